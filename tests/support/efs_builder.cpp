#include "tests/support/efs_builder.h"

#include <algorithm>
#include <stdexcept>

namespace yfs::test {

using namespace yfs::efs;

namespace {

using blob = std::vector<std::uint8_t>;

template <flash_record R>
blob bytes_of(const R& record)
{
    blob out(sizeof record);
    store(out.data(), record);
    return out;
}

// Of all but the last `tail` bytes of a record.
template <flash_record R>
std::uint32_t crc_before(const R& record, std::size_t tail)
{
    const blob bytes = bytes_of(record);
    return plain_crc32(blob(bytes.begin(), bytes.end() - static_cast<std::ptrdiff_t>(tail)));
}

void put(blob& at, std::size_t offset, const blob& part)
{
    if (offset + part.size() > at.size()) throw std::out_of_range("a part doesn't fit the image");
    std::copy(part.begin(), part.end(), at.begin() + static_cast<std::ptrdiff_t>(offset));
}

void append(blob& to, const blob& part)
{
    to.insert(to.end(), part.begin(), part.end());
}

} // namespace

std::uint16_t plain_crc16(std::uint16_t initial, const blob& data)
{
    std::uint32_t crc = initial;
    for (const std::uint8_t byte : data) {
        crc ^= std::uint32_t{byte} << 8;
        for (int bit = 0; bit < 8; ++bit) crc = ((crc << 1) ^ ((crc & 0x8000U) != 0 ? 0x1021U : 0U)) & 0xFFFFU;
    }
    return low16(crc);
}

std::uint32_t plain_crc32(const blob& data)
{
    std::uint32_t crc = 0;
    for (const std::uint8_t byte : data) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1U) != 0 ? 0xEDB88320U : 0U);
    }
    return crc;
}

void use_efs_table(const geometry& geo, std::vector<efs_file_t>& files, std::uint8_t layout_id)
{
    g_efs_bm_num = geo.bm_num;
    g_efs_valid_block_num = geo.valid_block_num;
    g_efs_non_valid_block_num = geo.non_valid_block_num;
    g_efs_files_num = static_cast<std::uint32_t>(files.size());
    g_efs_layout_id = layout_id;
    EFS_files = files.data();
    g_efs_autogen_data_loaded = 1;
}

efs_file_t efs_entry(unsigned first_block, unsigned offset, unsigned max_size)
{
    return {low8(first_block), low16(offset), low16(max_size), file_in_use, 0};
}

efs_volume::bm_plan& efs_volume::bm_plan::counts(const geometry& geo)
{
    header_.bm_num = low8(geo.bm_num);
    header_.valid_block_num = low8(geo.valid_block_num);
    header_.non_valid_block_num = low8(geo.non_valid_block_num);
    return *this;
}

efs_volume::bm_plan& efs_volume::bm_plan::entry(const blob& tables)
{
    blob slot = tables;
    slot.resize(slot.size() + 2 * sizeof(le32)); // both reserved words
    append(slot, bytes_of(le32(plain_crc32(slot))));
    slots_.push_back(std::move(slot));
    return *this;
}

efs_volume::bm_plan& efs_volume::bm_plan::torn()
{
    entry();
    slots_.back().back() ^= 0x80U;
    return *this;
}

efs_volume::bm_plan& efs_volume::bm_plan::cut(unsigned count)
{
    entry();
    std::fill(slots_.back().begin() + static_cast<std::ptrdiff_t>(count), slots_.back().end(), erased_byte);
    return *this;
}

efs_volume::efs_volume(const geometry& geo, std::uint8_t layout_id)
    : geo_(geo), layout_id_(layout_id), blocks_(geo.data_blocks())
{
    for (std::size_t p = 0; p < blocks_.size(); ++p) {
        now_.push_back(low8(p));
        if (p < geo.valid_block_num) blocks_[p].data_area = blob(data_area_bytes, erased_byte);
    }
}

efs_volume::bm_plan& efs_volume::bm(unsigned index)
{
    const auto [found, is_new] = bms_.try_emplace(index);
    bm_plan& plan = found->second;
    if (is_new) {
        plan.now_ = &now_;
        plan.header_.version = bm_version;
        plan.counts(geo_).sequence(first_bm_sequence).layout(layout_id_);
    }
    return plan;
}

efs_volume& efs_volume::chunk(unsigned logical, unsigned offset, unsigned length, const blob& payload)
{
    blob covered = bytes_of(le16(low16(length)));
    append(covered, payload);
    const le16 crc = plain_crc16(low16(logical), covered);
    blob& area = blocks_.at(now_.at(logical)).data_area.value();
    put(area, offset, bytes_of(efs_chunk_header_t{low16(length), crc}));
    put(area, offset + sizeof(efs_chunk_header_t), payload);
    return *this;
}

efs_volume& efs_volume::file(const efs_file_t& entry, const blob& contents)
{
    unsigned logical = entry.first_block;
    unsigned offset = entry.offset;
    std::size_t length = contents.size();
    auto from = contents.begin();
    do {
        const auto count = std::min<std::ptrdiff_t>(contents.end() - from, chunk_room - offset);
        chunk(logical++, offset, low16(length), blob(from, from + count));
        from += count;
        offset = 0;
        length = efs::no_file;
    } while (from != contents.end());
    return *this;
}

efs_volume& efs_volume::no_file(const efs_file_t& entry)
{
    return chunk(entry.first_block, entry.offset, efs::no_file, {});
}

efs_volume& efs_volume::move(unsigned logical, unsigned to)
{
    blocks_.at(to).data_area = blocks_.at(now_.at(logical)).data_area;
    std::swap(now_.at(logical), *std::find(now_.begin(), now_.end(), to));
    return *this;
}

efs_volume& efs_volume::erase_count(unsigned physical, std::uint32_t value)
{
    return blocks_.at(physical).erase_count = value, *this;
}

std::uint32_t efs_volume::block_at(unsigned logical) const
{
    return geo_.data_block_at(now_.at(logical));
}

std::uint32_t efs_volume::chunk_at(const efs_file_t& entry, unsigned index) const
{
    const unsigned offset = index == 0 ? unsigned{entry.offset} : 0;
    return static_cast<std::uint32_t>(block_at(entry.first_block + index) + offsetof(data_block_t, data_area) + offset);
}

blob efs_volume::image() const
{
    blob image(geo_.image_bytes(), erased_byte);
    for (const auto& [index, plan] : bms_) {
        const std::size_t at = geometry::bm_at(index);
        efs_bm_header_t header = plan.header_;
        header.crc = crc_before(header, sizeof header.crc) ^ plan.crc_xor_;
        if (plan.state_ == bm_plan::state::sound) put(image, at, bytes_of(header));
        if (plan.state_ == bm_plan::state::retired) put(image, at, blob(sizeof header, 0));
        for (std::size_t k = 0; k < plan.slots_.size(); ++k) {
            put(image, at + first_slot_at + k * geo_.bme_bytes(), plan.slots_[k]);
        }
    }
    for (std::uint32_t p = 0; p < blocks_.size(); ++p) {
        efs_block_header_t header = {};
        header.erase_count = blocks_[p].erase_count;
        header.crc = crc_before(header, sizeof header.crc);
        put(image, geo_.data_block_at(p), bytes_of(header));
        if (!blocks_[p].data_area) continue;
        put(image, geo_.data_block_at(p) + offsetof(data_block_t, data_area), *blocks_[p].data_area);
        put(image, geo_.data_block_at(p) + offsetof(data_block_t, footer),
            bytes_of(le32(plain_crc32(*blocks_[p].data_area))));
    }
    return image;
}

blob make_efst(const std::vector<efst_sku>& skus, std::uint32_t at)
{
    constexpr std::uint8_t nobody_reads = 0xEE;
    efst_header_t header;
    std::fill(std::begin(header.unread), std::end(header.unread), nobody_reads);
    header.magic = efst_magic;
    header.record_count = static_cast<std::uint32_t>(skus.size());

    blob records = bytes_of(header);
    blob lists;
    const std::size_t lists_at = at + sizeof header + skus.size() * sizeof(efst_sku_record_t);
    for (const efst_sku& sku : skus) {
        const auto count = static_cast<std::uint32_t>(sku.files.size());
        const std::uint32_t last = sku.files.empty() ? 0 : sku.files.rbegin()->first + 1;
        append(records, bytes_of(efst_sku_record_t{sku.sku, static_cast<std::uint32_t>(lists_at + lists.size()), count,
                                                   static_cast<std::uint32_t>(count * sizeof(efst_file_record_t)),
                                                   sku.geo.bm_num, sku.geo.valid_block_num, sku.geo.non_valid_block_num,
                                                   sku.files_num.value_or(last), sku.threshold, sku.layout_id}));
        for (const auto& [index, entry] : sku.files) {
            efst_file_record_t file;
            std::fill(std::begin(file.unread), std::end(file.unread), nobody_reads);
            std::fill(std::begin(file.unread_tail), std::end(file.unread_tail), nobody_reads);
            file.file_index = low16(index);
            file.first_block = low16(0xEE00U | entry.first_block); // only the low byte counts
            file.offset = entry.offset;
            file.max_size = entry.max_size;
            append(lists, bytes_of(file));
        }
    }
    append(records, lists);
    return records;
}

blob make_autogen_table(const std::vector<efst_sku>& skus, std::uint32_t rows)
{
    blob table(efst_at(rows), 0);
    store(table.data(), ftbl_lead_t{ftbl_magic, {}, rows});
    append(table, make_efst(skus, efst_at(rows)));
    return table;
}

} // namespace yfs::test
