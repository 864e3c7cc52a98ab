#include "tests/support/efs_builder.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <stdexcept>

namespace yfs::test {

using namespace yfs::efs;

using blob = std::vector<std::uint8_t>;

template <flash_record R>
static blob bytes_of(const R& record)
{
    blob out(sizeof record);
    store(out.data(), record);
    return out;
}

// With the CRC of all that stands before it.
static blob sealed(blob part)
{
    const blob crc = bytes_of(le32(plain_crc32(part.data(), part.size())));
    part.insert(part.end(), crc.begin(), crc.end());
    return part;
}

unsigned plain_crc(const blob& data, unsigned width, unsigned polynomial, unsigned mask, unsigned reg)
{
    for (std::size_t bit = 0; bit < data.size() * 8; ++bit) {
        if (bit % 8 == 0) reg ^= unsigned{data[bit / 8]} << (width - 8);
        reg = (reg << 1) ^ (((reg >> (width - 1)) & 1U) != 0 ? polynomial : 0);
        if (bit % 8 == 7) reg &= mask;
    }
    return reg;
}

std::uint32_t plain_crc32(const std::uint8_t* data, std::size_t count)
{
    std::uint32_t crc = 0;
    for (std::size_t bit = 0; bit < count * 8; ++bit) {
        if (bit % 8 == 0) crc ^= data[bit / 8];
        crc = (crc >> 1) ^ ((crc & 1U) != 0 ? 0xEDB88320U : 0U);
    }
    return crc;
}

efs_file_t efs_entry(unsigned first_block, unsigned offset, unsigned max_size)
{
    return {low8(first_block), low16(offset), low16(max_size), file_in_use, 0};
}

void use_efs_table(const geometry& geo, std::vector<efs_file_t> files, std::uint8_t layout_id, std::uint32_t threshold)
{
    static std::vector<efs_file_t> in_use;
    in_use = std::move(files);
    g_efs_bm_num = geo.bm_num;
    g_efs_valid_block_num = geo.valid_block_num;
    g_efs_non_valid_block_num = geo.non_valid_block_num;
    g_efs_files_num = static_cast<std::uint32_t>(in_use.size());
    g_efs_layout_id = layout_id;
    g_efs_wear_leveling_threshold = threshold;
    EFS_files = in_use.data();
    g_efs_autogen_data_loaded = 1;
}

efs_volume::efs_volume(const geometry& of, std::uint8_t layout)
    : geo(of), layout_id(layout), tables(of.data_blocks()), image(of.image_bytes(), erased_byte)
{
    std::iota(tables.begin(), tables.end(), std::uint8_t{0});
    for (unsigned p = 0; p < geo.data_blocks(); ++p) block_header(p, 1);
    for (unsigned p = 0; p < geo.valid_block_num; ++p) put_footer(p);
}

void efs_volume::put(std::size_t offset, const blob& part)
{
    if (offset + part.size() > image.size()) throw std::out_of_range("a part doesn't fit the image");
    std::copy(part.begin(), part.end(), image.begin() + static_cast<std::ptrdiff_t>(offset));
}

efs_volume& efs_volume::fill(std::uint32_t at, std::uint32_t count, std::uint8_t value)
{
    return put(at, blob(count, value)), *this;
}

efs_volume& efs_volume::block_header(unsigned physical, std::uint32_t erase_count)
{
    blob header = bytes_of(le32(erase_count));
    header.resize(12);
    return put(geo.data_block_at(physical), sealed(header)), *this;
}

efs_volume& efs_volume::bm(unsigned index, std::uint32_t sequence, unsigned slots, unsigned changed, std::uint8_t value)
{
    efs_bm_header_t record{bm_version, 0, sequence, low8(geo.bm_num), low8(geo.valid_block_num), 0, layout_id, 0};
    record.non_valid_block_num = low8(geo.non_valid_block_num);
    blob header = bytes_of(record);
    header.resize(12);
    header.at(changed) = value;
    put(geometry::bm_at(index), sealed(header));
    while (slots-- > 0) slot(index);
    return *this;
}

efs_volume& efs_volume::slot(unsigned index)
{
    blob entry = tables;
    entry.resize(entry.size() + 2 * sizeof(le32)); // both reserved words
    return put(geometry::bm_at(index) + first_slot_at + slots_[index]++ * geo.bme_bytes(), sealed(entry)), *this;
}

efs_volume& efs_volume::torn(unsigned index, unsigned kept)
{
    slot(index);
    const auto end = geometry::bm_at(index) + first_slot_at + slots_[index] * geo.bme_bytes();
    return fill(end - geo.bme_bytes() + kept, geo.bme_bytes() - kept, erased_byte);
}

std::uint32_t efs_volume::area_at(unsigned logical) const
{
    return geo.data_block_at(tables.at(logical)) + static_cast<std::uint32_t>(offsetof(data_block_t, data_area));
}

efs_volume& efs_volume::chunk(unsigned logical, unsigned offset, unsigned length, const blob& payload)
{
    blob covered = bytes_of(le16(low16(length)));
    covered.insert(covered.end(), payload.begin(), payload.end());
    const std::uint32_t at = area_at(logical) + offset;
    put(at, bytes_of(efs_chunk_header_t{low16(length), low16(plain_crc(covered, 16, 0x1021, 0xFFFF, logical))}));
    put(at + sizeof(efs_chunk_header_t), payload);
    return put_footer(logical), *this;
}

void efs_volume::put_footer(unsigned logical)
{
    const std::uint32_t area = area_at(logical);
    put(area + data_area_bytes, bytes_of(le32(plain_crc32(image.data() + area, data_area_bytes))));
}

efs_volume& efs_volume::file(const efs_file_t& entry, const blob& contents)
{
    unsigned logical = entry.first_block, offset = entry.offset, length = low16(contents.size());
    auto from = contents.begin();
    do {
        const auto count = std::min<std::ptrdiff_t>(contents.end() - from, chunk_room - offset);
        chunk(logical++, offset, length, blob(from, from + count));
        from += count, offset = 0, length = efs::no_file;
    } while (from != contents.end());
    return *this;
}

blob make_autogen_table(std::uint32_t rows)
{
    constexpr std::uint32_t unread = 0xEEEEEEEE;
    const std::uint32_t lists_at = (rows + 2) * 16 + 80;
    std::vector<std::uint32_t> words = {ftbl_magic, unread, unread, rows};
    words.resize(4 + std::size_t{rows} * 4);
    const auto add = [&](const std::vector<std::uint32_t>& more) {
        words.insert(words.end(), more.begin(), more.end());
    };
    add({efst_magic, unread, unread, 2});
    add({8, lists_at, 2, 120, 2, 7, 3, 2, 100, 0});
    add({0x01020307, lists_at + 120, 2, 120, 3, 9, 4, 6, 77, 0x1A5});
    const std::uint32_t files[][4] = {{0, 1, 2, 3}, {0, 4, 5, 6}, {5, 6, 100, 900}, {1, 8, 4072, 1}};
    for (const auto& [index, first_block, offset, max_size] : files) {
        add({index | 0xEEEE0000});
        words.resize(words.size() + 11, unread);
        add({first_block << 16 | 0xEE00EEEE, max_size << 16 | offset, unread}); // of first_block the low byte counts
    }
    blob table(words.size() * 4);
    for (std::size_t i = 0; i < words.size(); ++i) store(&table[i * 4], le32(words[i]));
    return table;
}

} // namespace yfs::test
