// The layer through which maintenance of the flash is asked for, and plain access for a volume without an FTL.
#include "afs/afs_internal.h"
#include "yfs/medium.h"

namespace yfs::afs {

// A volume over an FTL that is open; a half-built context answers every maintenance call with 22 or false.
static bool is_open(const afs_context& ctx)
{
    return ctx.ftl != nullptr && ctx.handler != nullptr;
}

static constexpr std::uint8_t partition_without_wipe = 2;

} // namespace yfs::afs

uint32_t afs_idle_reclaim(afs_context* ctx)
{
    if (ctx == nullptr) return afs_status::invalid;
    if (ctx->sub_partition != 0) return afs_status::ok;
    return yfs::afs::is_open(*ctx) ? afs_physical_ftl_idle_reclaim(ctx) : afs_status::invalid;
}

uint8_t afs_idle_reclaim_needed(afs_context* ctx)
{
    if (ctx == nullptr || ctx->sub_partition != 0 || !yfs::afs::is_open(*ctx)) return 0;
    uint32_t hint = 0;
    uint32_t is_data = 0;
    return afs_physical_ftl_idle_reclaim_needed(ctx, &hint, &is_data);
}

uint32_t afs_force_full_reclaim(afs_context* ctx)
{
    if (ctx == nullptr || !yfs::afs::is_open(*ctx)) return afs_status::invalid;
    return ctx->handler->force_full_reclaim(ctx);
}

uint32_t afs_force_dirty_erase(afs_context* ctx)
{
    if (ctx == nullptr) return afs_status::invalid;
    if (ctx->sub_partition == yfs::afs::partition_without_wipe) return afs_status::ok;
    if (ctx->sub_partition != 0) return afs_status::bad_state;
    return yfs::afs::is_open(*ctx) ? ctx->handler->force_dirty_erase(ctx) : afs_status::invalid;
}

uint8_t afs_get_idle_reclaim_enabled(afs_context* ctx)
{
    return ctx != nullptr && ctx->idle_reclaim_enabled != 0 ? 1 : 0;
}

void afs_set_idle_reclaim_enabled(afs_context* ctx)
{
    if (ctx != nullptr) ctx->idle_reclaim_enabled = 1;
}

uint32_t afs_sub_pt_read(afs_context* ctx, uint32_t addr, uint32_t len, void* buf)
{
    return SpiDrvRead(addr + ctx->flash_base, len, buf);
}

uint32_t afs_sub_pt_write(afs_context* ctx, uint32_t addr, uint32_t len, const void* buf)
{
    return SpiDrvWrite(addr + ctx->flash_base, len, buf);
}

uint32_t afs_sub_pt_trim(void)
{
    return afs_status::ok;
}
