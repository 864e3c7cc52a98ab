// The CRC with polynomial 0x1021, most significant bit first, from any register on: what the pages of the translation
// layer and the chunks of EFS carry. One value, three ways to it; the bytes of a message may be given in any number of
// parts.
#pragma once

#include "frame/crc_lanes.h"
#include "yfs/le.h"

#include <bit>

namespace yfs {

// Byte by byte: the plain form, which the tests hold the others against.
std::uint16_t crc16_by_bytes(std::uint16_t crc, const std::uint8_t* data, std::size_t length);
// Eight bytes a step through slices of the table: T[k][x] is the register after byte x followed by k zero bytes, so
// that the bytes of a step can be looked up side by side.
std::uint16_t crc16_by_slices(std::uint16_t crc, const std::uint8_t* data, std::size_t length);
// The quickest of this machine.
std::uint16_t add_crc16(std::uint16_t crc, const std::uint8_t* data, std::size_t length);

// What two bytes make of the register.
std::uint16_t add_crc16_key(std::uint16_t crc, const std::uint8_t* key);

// crc16 of one page of 64 bytes, whose key is the number of the page, its low byte first.
std::uint16_t crc16_of_page_by_slices(const std::uint8_t* data, std::uint16_t page);
inline std::uint16_t crc16_of_page(const std::uint8_t* data, std::uint16_t page)
{
    return has_lanes ? crc16_page_lanes(data, std::rotl(page, 8)) : crc16_of_page_by_slices(data, page);
}

// crc14 of the two bytes of a number, its low byte first. Each bit of two bytes flips the same bits of their CRC
// whatever the others are, so what the first and the second byte make of it can be looked up apart.
struct crc14_pair_tables {
    std::uint16_t first[256];
    std::uint16_t second[256];
};
[[gnu::visibility("hidden")]] extern const crc14_pair_tables crc14_pairs;
inline std::uint16_t crc14_of_pair(std::uint16_t pair)
{
    return crc14_pairs.first[pair & 0xFFU] ^ crc14_pairs.second[pair >> 8];
}

} // namespace yfs
