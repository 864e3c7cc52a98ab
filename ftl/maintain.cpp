// Maintenance that works on many EUs: a reclaim of every data EU, a wipe of dead contents, the end of the mode in which
// the first files of a flash were reserved.
#include "ftl/flash_io.h"
#include "ftl/ftl_internal.h"

namespace yfs::ftl {

static bool reclaim_went_through(std::uint32_t status)
{
    return status == afs_status::ok || status == afs_status::nothing_gained;
}

// Only programming, no erase: the records stay, and the zeroed frames are read by nobody.
static std::uint32_t wipe_eu(afs_context& ctx, std::uint32_t eu)
{
    const bool spare = eu == ctx.ftl->spare_eu;
    std::uint8_t rec[data_slots];
    if (!read_flash(eu_at(ctx, eu) + data_record_at(0), sizeof rec, rec)) return afs_status::failed;

    const page_frame_t zeros{};
    for (std::uint32_t k = 0; k < data_slots; ++k) {
        if (!spare && (rec[k] == data_rec_free || chunk_in_use(ctx, first_index(ctx, eu) + k))) continue;
        if (!chip::write(eu_at(ctx, eu) + data_frame_at(k), sizeof zeros, &zeros)) return afs_status::failed;
    }
    return afs_status::ok;
}

} // namespace yfs::ftl

uint32_t afs_physical_ftl_force_full_reclaim(struct afs_context* ctx)
{
    using namespace yfs::ftl;
    ftl_context& ftl = *ctx->ftl;
    uint32_t eu = ftl.full_reclaim_next;
    while (eu < ftl.eu_count && (!is_data_eu(ftl, eu) || eu == ftl.spare_eu)) ++eu;
    if (eu >= ftl.eu_count) {
        ftl.full_reclaim_next = 0;
        return afs_status::ok;
    }

    const uint32_t status = reclaim_eu(ctx, eu, mode_reclaim);
    if (!reclaim_went_through(status)) return status;
    const bool last = eu + 1 == ftl.eu_count;
    ftl.full_reclaim_next = yfs::low8(last ? 0 : eu + 1);
    return last ? afs_status::ok : afs_status::call_again;
}

uint32_t afs_physical_ftl_force_dirty_erase(struct afs_context* ctx)
{
    using namespace yfs::ftl;
    if (ctx == nullptr || ctx->ftl == nullptr || ctx->ftl->eu_table == nullptr) return afs_status::invalid;
    if (ctx->alloc_map == nullptr) return afs_status::invalid; // opened for reading only
    for (uint32_t eu = 0; eu < ctx->ftl->eu_count; ++eu) {
        if (!is_data_eu(*ctx->ftl, eu) && eu != ctx->ftl->spare_eu) continue;
        if (const uint32_t status = wipe_eu(*ctx, eu); status != afs_status::ok) return status;
    }
    return afs_status::ok;
}

uint32_t afs_physical_ftl_end_reserved_files_mode(struct afs_context* ctx)
{
    using namespace yfs::ftl;
    if (ctx->ftl->spare_eu != 0) {
        if (const uint32_t status = reclaim_eu(ctx, 0, mode_reclaim); !reclaim_went_through(status)) return status;
    }
    const uint32_t status = reclaim_eu(ctx, 1, mode_reclaim);
    return reclaim_went_through(status) ? afs_status::ok : status;
}
