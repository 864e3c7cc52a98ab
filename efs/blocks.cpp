// The pool of spares: what the medium tells of the data blocks, found out once by a scan, and the erase that makes a
// dirty spare free again.
#include "efs/write_internal.h"
#include "frame/blank.h"
#include "yfs/efs.h"
#include "yfs/medium.h"

#include <cstring>
#include <utility>

namespace yfs::efs {

efs_block_header_t make_block_header(std::uint32_t erase_count)
{
    efs_block_header_t header{};
    header.erase_count = erase_count;
    std::uint8_t covered[header_crc_bytes];
    std::memcpy(covered, &header, sizeof covered);
    header.crc = EFS_crc32(0, covered, sizeof covered);
    return header;
}

std::uint32_t need_scan()
{
    return efs_ctx.scan_done != 0 ? efs_status::ok : EFS_scan_for_Data_Blocks_status_and_EC();
}

namespace {

// A cut leaves one spare without a sound header; the next scan erases it anew.
std::uint32_t erase_and_head(std::uint32_t block_at, std::uint32_t erase_count)
{
    if (const auto undecided = settle_undecided(); undecided != efs_status::ok) return undecided;
    const auto crc_at = block_at + static_cast<std::uint32_t>(offsetof(efs_block_header_t, crc));
    const le32 no_crc = 0;
    auto status = EFS_physical_write(crc_at, sizeof no_crc, &no_crc);
    if (status != efs_status::ok) return status;
    status = read_until([&] { return EFS_physical_read(crc_at, sizeof no_crc, efs_ctx.verify_buf); },
                        [] { return load<le32>(efs_ctx.verify_buf) == 0; });
    if (status != efs_status::ok) return status;
    status = EFS_physical_erase(block_at, block_bytes);
    if (status != efs_status::ok) return status;

    const efs_block_header_t header = make_block_header(erase_count);
    return EFS_write_with_read_check(block_at, sizeof header, &header, 1);
}

// What the scan has found besides the tables.
struct scan_result {
    std::uint32_t unsound = 0; // spares without a sound header
    std::uint32_t unsound_block = 0;
    std::uint32_t unsound_position = 0;
};

bool rest_blank()
{
    return is_blank(efs_ctx.page_buf + sizeof(efs_block_header_t), block_bytes - sizeof(efs_block_header_t));
}

std::uint32_t read_block(const geometry& geo, std::uint32_t block)
{
    return EFS_physical_read(geo.data_block_at(block), block_bytes, efs_ctx.page_buf);
}

// The block into page_buf. ok | integrity, and `unsound` true: its header stays unsound | a medium's failure.
std::uint32_t read_headed_block(const geometry& geo, std::uint32_t block, bool& unsound)
{
    return read_until([&] { return read_block(geo, block); }, [] { return header_sound(efs_ctx.page_buf); }, &unsound);
}

void note_erase_count(std::uint32_t block)
{
    efs_ctx.block_ec[block] = load<efs_block_header_t>(efs_ctx.page_buf).erase_count;
}

std::uint32_t scan_valid(const geometry& geo)
{
    for (std::uint32_t i = 0; i < geo.valid_block_num; ++i) {
        const std::uint32_t block = efs_ctx.current_bme.valid_table[i];
        bool unsound = false;
        if (const auto status = read_headed_block(geo, block, unsound); status != efs_status::ok) return status;
        note_erase_count(block);
    }
    return efs_status::ok;
}

// The block stands in page_buf from the test of its header: that read is the first of the tries.
std::uint32_t test_blank(const geometry& geo, std::uint32_t block, bool& is_blank)
{
    bool first = true;
    const auto read = [&] { return std::exchange(first, false) ? efs_status::ok : read_block(geo, block); };
    bool written = false;
    const auto status = read_until(
        read, [] { return rest_blank(); }, &written);
    is_blank = status == efs_status::ok;
    return written ? efs_status::ok : status;
}

std::uint32_t scan_spare(const geometry& geo, std::uint32_t position, scan_result& found)
{
    const std::uint32_t block = efs_ctx.current_bme.non_valid_table[position];
    bool unsound = false;
    const auto status = read_headed_block(geo, block, unsound);
    if (unsound) {
        ++found.unsound;
        found.unsound_block = block;
        found.unsound_position = position;
        efs_ctx.block_status[position] = spare_dirty;
        efs_ctx.block_ec[block] = 0;
        return efs_status::ok;
    }
    if (status != efs_status::ok) return status;

    bool is_blank = false;
    if (const auto read = test_blank(geo, block, is_blank); read != efs_status::ok) return read;
    efs_ctx.block_status[position] = is_blank ? spare_free : spare_dirty;
    if (is_blank) ++efs_ctx.free_block_count;
    note_erase_count(block);
    return efs_status::ok;
}

// An interrupted erase left one spare without a header: it gets the truncated mean of the others' erase counts.
std::uint32_t repair_unsound(const geometry& geo, const scan_result& found)
{
    std::uint32_t sum = 0;
    std::uint32_t others = 0;
    for (std::uint32_t block = 0; block < geo.data_blocks(); ++block) {
        if (block == found.unsound_block) continue;
        sum += efs_ctx.block_ec[block];
        ++others;
    }
    const std::uint32_t mean = others != 0 ? sum / others : 0;
    efs_ctx.block_ec[found.unsound_block] = mean;
    const auto status = EFS_erase_data_block(found.unsound_block, mean - 1);
    if (status != efs_status::ok) return status;
    efs_ctx.block_status[found.unsound_position] = spare_free;
    ++efs_ctx.free_block_count;
    return efs_status::ok;
}

} // namespace
} // namespace yfs::efs

uint32_t EFS_erase_data_block(uint32_t physical_block, uint32_t erase_count)
{
    using namespace yfs::efs;
    if (mounted_otherwise()) return efs_status::not_ready;
    const geometry geo = current_geometry();
    if (!geo.representable() || physical_block >= geo.data_blocks()) return efs_status::invalid;
    const auto status = erase_and_head(geo.data_block_at(physical_block), erase_count + 1);
    if (status != efs_status::ok) efs_ctx.scan_done = 0;
    return status;
}

uint32_t EFS_erase_dirty_block(void)
{
    using namespace yfs::efs;
    if (!mounted()) return efs_status::not_ready;
    if (const auto status = need_scan(); status != efs_status::ok) return status;

    const geometry geo = current_geometry();
    const std::uint8_t* const spares = efs_ctx.current_bme.non_valid_table;
    std::uint32_t chosen = geo.non_valid_block_num;
    for (std::uint32_t i = 0; i < geo.non_valid_block_num; ++i) {
        if (efs_ctx.block_status[i] != spare_dirty) continue;
        if (chosen == geo.non_valid_block_num || efs_ctx.block_ec[spares[i]] < efs_ctx.block_ec[spares[chosen]]) {
            chosen = i;
        }
    }
    if (chosen == geo.non_valid_block_num) return efs_status::integrity;

    const std::uint32_t block = spares[chosen];
    const auto status = EFS_erase_data_block(block, efs_ctx.block_ec[block]);
    if (status != efs_status::ok) return status;
    efs_ctx.block_status[chosen] = spare_free;
    ++efs_ctx.block_ec[block];
    ++efs_ctx.free_block_count;
    return efs_status::ok;
}

uint32_t EFS_scan_for_Data_Blocks_status_and_EC(void)
{
    using namespace yfs::efs;
    if (!mounted()) return efs_status::not_ready;
    const geometry geo = current_geometry();
    if (geo.data_blocks() < 2) return efs_status::integrity; // no other block for a mean

    efs_ctx.scan_done = 0;
    efs_ctx.free_block_count = 0;
    if (const auto status = scan_valid(geo); status != efs_status::ok) return status;
    scan_result found;
    for (std::uint32_t i = 0; i < geo.non_valid_block_num; ++i) {
        if (const auto status = scan_spare(geo, i, found); status != efs_status::ok) return status;
    }
    if (found.unsound > 1) return efs_status::integrity; // one cut leaves one
    if (found.unsound == 1) {
        if (const auto status = repair_unsound(geo, found); status != efs_status::ok) return status;
    }
    efs_ctx.scan_done = 1;
    return efs_status::ok;
}
