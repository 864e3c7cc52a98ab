// What a power cut or a failing medium leaves behind a commit, and what makes it harmless.
#include "efs/write_internal.h"
#include "yfs/efs.h"

namespace yfs::efs {

// Programming zeros only clears bits, so it works whatever has landed, and no CRC of the format vouches for the result.
std::uint32_t settle_undecided()
{
    static constexpr std::uint8_t zeros[block_bytes] = {};
    if (efs_ctx.undecided_length == 0) return efs_status::ok;
    const auto status = EFS_write_with_read_check(efs_ctx.undecided_at, efs_ctx.undecided_length, zeros, 0);
    if (status == efs_status::ok) efs_ctx.undecided_length = 0;
    return status;
}

void void_commit(std::uint32_t at, std::uint32_t length)
{
    efs_ctx.undecided_at = at;
    efs_ctx.undecided_length = length;
    static_cast<void>(settle_undecided()); // else the next erase or commit insists on it
}

void retire_older_maps(const geometry& geo)
{
    if (efs_ctx.older_maps == 0) return;
    bool done = true;
    for (std::uint32_t bm = 0; bm < geo.bm_num; ++bm) {
        if (bm == efs_ctx.current_bm || !read_bm_header(bm)) continue;
        const efs_bm_header_t retired{};
        done &= EFS_write_with_read_check(geometry::bm_at(bm), sizeof retired, &retired, 0) == efs_status::ok;
    }
    if (done) efs_ctx.older_maps = 0; // else the next change tries again
}

} // namespace yfs::efs
