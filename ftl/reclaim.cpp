// Reclaim: the spare is erased, takes the victim's live pages or some of the log, and takes over from the victim, which
// becomes the spare. Cut short anywhere, the next mount can tell which of the two speaks for the group.
#include "ftl/flash_io.h"
#include "ftl/ftl_internal.h"

#include "frame/memory.h"

namespace yfs::ftl {

// The EU has room as it is: writing simply goes on there. Nothing touches the flash.
static void open_eu(afs_context& ctx, std::uint32_t eu)
{
    ftl_context& ftl = *ctx.ftl;
    if (is_data_eu(ftl, eu)) {
        ftl.alloc_flush_asked = 0;
        ftl.alloc_next = first_index(ctx, eu);
        ftl.alloc_end = end_index(ctx, eu);
    } else {
        ftl.log_eu = eu;
        ftl.log_slot = 0;
        ftl.last_page = 0;
    }
}

std::uint32_t reclaim_eu(afs_context* ctx, std::uint32_t eu, std::uint32_t mode)
{
    if (eu >= ctx->ftl->eu_count || eu == ctx->ftl->spare_eu) return afs_status::no_space;
    if (mode == mode_open) {
        open_eu(*ctx, eu);
        return afs_status::ok;
    }
    if (ctx->ftl->spare_eu >= ctx->ftl->eu_count) return afs_status::failed;
    // Without the map nobody can tell which data pages are live: a volume opened for reading only stays as it is.
    if (is_data_eu(*ctx->ftl, eu) && ctx->alloc_map == nullptr) return afs_status::invalid;
    // A mount may reclaim before it has done what a cut reclaim left undone; two of them at once can't be told apart.
    if (const std::uint32_t status = finish_interrupted_reclaim(ctx); status != afs_status::ok) return status;
    if (ctx->ftl->seq == UINT32_MAX) return afs_status::failed; // the next header would need a higher number
    const auto work = lt_allocate<std::uint8_t>(std::size_t{2} * work_half);
    if (!work) return afs_status::no_memory;
    return is_data_eu(*ctx->ftl, eu) ? reclaim_data_eu(ctx, eu, work.get()) : reclaim_log_eu(ctx, eu, work.get());
}

std::uint32_t reclaim_eu_wrapper(afs_context* ctx, std::uint32_t kind)
{
    std::uint32_t mode;
    std::uint32_t eu = choose_eu_to_reclaim(ctx, kind, true, &mode, false);
    const std::uint32_t status = reclaim_eu(ctx, eu, mode);
    if (status != afs_status::nothing_gained) return status;

    eu = choose_eu_to_reclaim(ctx, kind, false, &mode, false);
    if (mode == mode_reclaim && ctx->ftl->eu_table[eu].dirty == 0) return afs_status::no_space;
    return reclaim_eu(ctx, eu, mode);
}

// Whether a source reads as before, after giving it up has failed: a write can fail though its bits have landed, and
// one cleared bit is enough for a mount to follow the new EU. An EU that can't be read counts as standing.
static bool still_stands(std::uint32_t src_at)
{
    for (int t = 0; t < tries; ++t) {
        le32 magic = eu_magic;
        if (!read_flash(src_at, sizeof magic, &magic)) continue;
        return magic == eu_magic || magic == eu_magic_old || magic == eu_magic_alt;
    }
    return true;
}

// Lets `dst`, the spare, take over from `src` in three writes. Cut short at any of them, a mount can still tell who
// speaks for the group: the source, as long as its magic reads as one.
std::uint32_t reclaim_eu_write_eu_header(afs_context* ctx, std::uint32_t dst, std::uint32_t src, std::uint32_t dst_off,
                                         std::uint32_t src_off)
{
    ftl_context& ftl = *ctx->ftl;
    ftl_eu_entry& to = ftl.eu_table[dst];
    ftl_eu_entry& from = ftl.eu_table[src];
    ++ftl.seq;
    if (to.erase_count != UINT32_MAX) ++to.erase_count; // 0 would be no header at all

    eu_header_t header{};
    header.magic = eu_magic;
    header.seq = ftl.seq;
    header.erase_count = to.erase_count;
    header.src_eu = low16(src);
    header.base_page = from.base_page;
    header.crc = header_crc(header);
    std::uint8_t check[header_write_bytes];
    if (!write_verified(ctx->flash_base + dst_off, header_write_bytes, &header, check)) return afs_status::failed;

    // COMMIT: from here on a mount follows the new EU, with or without the byte below.
    const le32 given_up = eu_magic_given_up;
    const std::uint32_t src_at = ctx->flash_base + src_off;
    if (!write_verified(src_at, given_up) && still_stands(src_at)) return afs_status::failed;
    from.seq = 0;

    const auto commit_at = ctx->flash_base + dst_off + static_cast<std::uint32_t>(offsetof(eu_header_t, commit));
    if (!write_verified(commit_at, committed)) { // the next reclaim, or the next mount, catches up on it
        ftl.missing_commit = 1;
        ftl.missing_commit_eu = low8(dst);
    }

    ftl.spare_eu = low16(src);
    from.dirty = 0;
    to.base_page = from.base_page;
    from.base_page = 0;
    to.seq = ftl.seq;
    renew_owner(*ctx, to.base_page);
    return afs_status::ok;
}

} // namespace yfs::ftl

uint32_t afs_physical_ftl_idle_reclaim(struct afs_context* ctx)
{
    using namespace yfs::ftl;
    uint32_t mode;
    const uint32_t eu = choose_eu_to_reclaim(ctx, kind_any, true, &mode, true);
    if (eu < ctx->ftl->eu_count && mode == mode_reclaim) return reclaim_eu(ctx, eu, mode_reclaim);
    return afs_status::ok;
}
