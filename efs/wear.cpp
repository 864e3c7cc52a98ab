// Wear levelling: data that never changes holds its block back from wear. It moves onto the most worn spare, and its
// little worn block becomes the first choice for the next write.
#include "efs/write_internal.h"
#include "yfs/efs.h"

namespace yfs::efs {
namespace {

struct extreme {
    std::uint32_t position = 0;
    std::uint32_t block = 0;
    std::uint32_t ec = 0;
    bool found = false;
};

// The last of equals wins, in both.
extreme coldest(const geometry& geo)
{
    extreme c;
    for (std::uint32_t i = 0; i < geo.valid_block_num; ++i) {
        const std::uint32_t block = efs_ctx.current_bme.valid_table[i];
        if (!c.found || efs_ctx.block_ec[block] <= c.ec) c = {i, block, efs_ctx.block_ec[block], true};
    }
    return c;
}

extreme most_worn_spare(const geometry& geo)
{
    extreme h;
    for (std::uint32_t i = 0; i < geo.non_valid_block_num; ++i) {
        const std::uint32_t block = efs_ctx.current_bme.non_valid_table[i];
        if (!h.found || efs_ctx.block_ec[block] >= h.ec) h = {i, block, efs_ctx.block_ec[block], true};
    }
    return h;
}

bool worth_moving(const extreme& cold, const extreme& hot)
{
    return cold.found && hot.found && hot.ec >= cold.ec && hot.ec - cold.ec >= g_efs_wear_leveling_threshold;
}

// Makes the target free, if it isn't, and takes it out of the pool.
std::uint32_t take_target(const extreme& hot)
{
    if (efs_ctx.block_status[hot.position] == spare_dirty) {
        const auto status = EFS_erase_data_block(hot.block, hot.ec);
        if (status != efs_status::ok) return status;
        ++efs_ctx.free_block_count;
        ++efs_ctx.block_ec[hot.block];
    }
    efs_ctx.block_status[hot.position] = spare_dirty;
    --efs_ctx.free_block_count;
    return efs_status::ok;
}

// Data area and footer from page_buf; chunk CRCs hang on the logical block and the footer on the data, so none changes.
std::uint32_t copy_to(const geometry& geo, std::uint32_t block)
{
    constexpr auto from = static_cast<std::uint32_t>(offsetof(data_block_t, data_area));
    return EFS_write_with_read_check(geo.data_block_at(block) + from, block_bytes - from, efs_ctx.page_buf + from, 1);
}

} // namespace
} // namespace yfs::efs

uint32_t EFS_wear_leveling(uint32_t reserved0, uint32_t reserved1)
{
    using namespace yfs::efs;
    if (!mounted()) return efs_status::not_ready;
    if (const auto status = need_scan(); status != efs_status::ok) return status;
    const geometry geo = current_geometry();
    working_bme bme;
    if (!bme.allocate(geo)) return efs_status::no_memory;

    const extreme cold = coldest(geo);
    const extreme hot = most_worn_spare(geo);
    if (!worth_moving(cold, hot)) return efs_status::ok;

    auto status = EFS_read_and_verify_data_block_header_and_footer(cold.block);
    if (status == efs_status::ok) status = take_target(hot);
    if (status == efs_status::ok) status = copy_to(geo, hot.block);
    if (status != efs_status::ok) return status;

    bme.copy_current(geo);
    bme->non_valid_table[hot.position] = yfs::low8(cold.block);
    bme->valid_table[cold.position] = yfs::low8(hot.block);
    return EFS_commit_BME(bme.get(), reserved0, reserved1); // COMMIT: until then the map in force names the cold block
}
