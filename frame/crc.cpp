// The checksums of the flash translation layer.
#include "frame/crc.h"
#include "frame/crc_lanes.h"
#include "yfs/medium.h"

#include <array>

constexpr uint8_t gCrc8_low[16] = {0x00, 0x07, 0x0E, 0x09, 0x1C, 0x1B, 0x12, 0x15,
                                   0x38, 0x3F, 0x36, 0x31, 0x24, 0x23, 0x2A, 0x2D};
constexpr uint8_t gCrc8_high[16] = {0x00, 0x70, 0xE0, 0x90, 0xC7, 0xB7, 0x27, 0x57,
                                    0x89, 0xF9, 0x69, 0x19, 0x4E, 0x3E, 0xAE, 0xDE};

namespace {

using yfs::low16;

using crc16_slice = std::array<uint16_t, 256>;

constexpr std::array<crc16_slice, 8> make_slices()
{
    constexpr uint16_t polynomial = 0x1021;
    std::array<crc16_slice, 8> slice{};
    for (uint32_t x = 0; x < 256; ++x) {
        uint16_t crc = low16(x << 8);
        for (int bit = 0; bit < 8; ++bit) crc = low16((crc & 0x8000U) != 0 ? (crc << 1) ^ polynomial : crc << 1);
        slice[0][x] = crc;
    }
    for (std::size_t k = 1; k < slice.size(); ++k) {
        for (uint32_t x = 0; x < 256; ++x) {
            const uint16_t before = slice[k - 1][x];
            slice[k][x] = low16((before << 8) ^ slice[0][before >> 8]);
        }
    }
    return slice;
}

constexpr std::array<crc16_slice, 8> crc16_slices = make_slices();
constexpr const crc16_slice& crc16_table = crc16_slices[0];
static_assert(crc16_table[1] == 0x1021);

constexpr uint16_t add_byte(uint16_t crc, uint8_t byte)
{
    return low16((crc << 8) ^ crc16_table[(crc >> 8) ^ byte]);
}

uint16_t add_eight(uint16_t crc, const uint8_t* b)
{
    const auto& t = crc16_slices;
    return low16(t[7][b[0] ^ (crc >> 8)] ^ t[6][b[1] ^ (crc & 0xFFU)] ^ t[5][b[2]] ^ t[4][b[3]] ^ t[3][b[4]] ^
                 t[2][b[5]] ^ t[1][b[6]] ^ t[0][b[7]]);
}

constexpr uint16_t crc16_start = 0xFFFF;

constexpr std::array<uint8_t, 256> make_crc8_table()
{
    std::array<uint8_t, 256> table{};
    for (uint32_t x = 0; x < 256; ++x) table[x] = yfs::low8(gCrc8_high[x >> 4] ^ gCrc8_low[x & 15U]);
    return table;
}
constexpr std::array<uint8_t, 256> crc8_table = make_crc8_table();

} // namespace

namespace yfs {

uint16_t crc16_by_bytes(uint16_t crc, const uint8_t* data, std::size_t length)
{
    for (; length != 0; --length, ++data) crc = add_byte(crc, *data);
    return crc;
}

uint16_t crc16_by_slices(uint16_t crc, const uint8_t* data, std::size_t length)
{
    for (; length >= 8; length -= 8, data += 8) crc = add_eight(crc, data);
    return crc16_by_bytes(crc, data, length);
}

uint16_t add_crc16(uint16_t crc, const uint8_t* data, std::size_t length)
{
    const std::size_t blocks = length / lane_bytes;
    if (!has_lanes || blocks == 0) return crc16_by_slices(crc, data, length);
    crc = crc16_lanes(crc, data, blocks);
    return crc16_by_slices(crc, data + blocks * lane_bytes, length % lane_bytes);
}

uint16_t add_crc16_key(uint16_t crc, const uint8_t* key)
{
    return low16(crc16_slices[1][key[0] ^ (crc >> 8)] ^ crc16_slices[0][key[1] ^ (crc & 0xFFU)]);
}

uint16_t crc16_of_page_by_slices(const uint8_t* data, uint16_t page)
{
    constexpr std::size_t page_bytes = 64;
    const le16 key = page;
    return add_crc16_key(crc16_by_slices(crc16_start, data, page_bytes), key.byte);
}

} // namespace yfs

uint8_t crc8(const void* data, uint32_t len)
{
    const auto* byte = static_cast<const uint8_t*>(data);
    uint8_t crc = 0x01;
    for (uint32_t i = 0; i < len; ++i) {
        crc = crc8_table[crc ^ byte[i]];
    }
    return crc;
}

uint16_t crc16(const void* data, int32_t len, const uint8_t* key)
{
    const std::size_t length = len > 0 ? static_cast<std::size_t>(len) : 0;
    return yfs::add_crc16_key(yfs::add_crc16(crc16_start, static_cast<const uint8_t*>(data), length), key);
}

namespace {

constexpr uint16_t crc14_mask = 0x3FFF; // taken off after each byte: it changes the result

constexpr uint16_t add_byte14(uint16_t crc, uint8_t byte)
{
    return add_byte(crc, byte) & crc14_mask;
}

constexpr yfs::crc14_pair_tables make_pair_tables()
{
    yfs::crc14_pair_tables tables{};
    const uint16_t of_zeros = add_byte14(add_byte14(crc14_mask, 0), 0);
    for (uint32_t x = 0; x < 256; ++x) {
        const auto byte = static_cast<uint8_t>(x);
        tables.first[x] = add_byte14(add_byte14(crc14_mask, byte), 0);
        tables.second[x] = add_byte14(add_byte14(crc14_mask, 0), byte) ^ of_zeros;
    }
    return tables;
}
} // namespace

constexpr yfs::crc14_pair_tables yfs::crc14_pairs = make_pair_tables();

uint16_t crc14(const void* data, int32_t len)
{
    const auto* byte = static_cast<const uint8_t*>(data);
    uint16_t crc = crc14_mask;
    for (int32_t i = 0; i < len; ++i) crc = add_byte14(crc, byte[i]);
    return crc;
}
