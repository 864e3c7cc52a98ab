// Work on the whole image: one step of background work a call, the end of all block maps, and the marker that makes the
// next mount pass over BM 0.
#include "efs/write_internal.h"
#include "yfs/efs.h"

namespace yfs::efs {
namespace {

// Beyond this offset the next switch is near enough to erase its BM ahead of need.
constexpr std::uint32_t erase_ahead_offset = 2856;

std::uint32_t erase_other_maps(const geometry& geo)
{
    for (std::uint32_t bm = 0; bm < geo.bm_num; ++bm) {
        if (bm == efs_ctx.current_bm) continue;
        if (const auto status = erase_bm(bm); status != efs_status::ok) return status;
    }
    return efs_status::ok;
}

std::uint32_t erase_unmounted(const geometry& geo)
{
    for (std::uint32_t bm = 0; bm < geo.bm_num; ++bm) {
        const auto status = EFS_physical_erase(geometry::bm_at(bm), block_bytes);
        if (status != efs_status::ok) return status;
    }
    return efs_status::ok;
}

} // namespace
} // namespace yfs::efs

uint32_t EFS_idle_reclaim(void)
{
    using namespace yfs::efs;
    if (!mounted()) return efs_status::not_ready;
    const geometry geo = current_geometry();
    const std::uint32_t next = next_bm(geo);
    if (efs_ctx.next_bm_state == next_bm_unknown) {
        if (const auto status = EFS_check_next_BM_state(next); status != efs_status::ok) return status;
    }
    if (efs_ctx.next_bm_state == next_bm_dirty && efs_ctx.bme_offset + geo.bme_bytes() > erase_ahead_offset) {
        if (geo.bm_num < 2) return efs_status::integrity; // it would erase the only map
        if (const auto status = erase_bm(next); status != efs_status::ok) return status;
        efs_ctx.next_bm_state = next_bm_erased;
        return efs_status::ok;
    }
    if (const auto status = need_scan(); status != efs_status::ok) return status;
    if (const auto status = EFS_wear_leveling(0, 0); status != efs_status::ok) return status;
    return efs_ctx.free_block_count < geo.non_valid_block_num ? EFS_erase_dirty_block() : efs_status::ok;
}

uint32_t EFS_erase_next_BM(uint32_t bm)
{
    using namespace yfs::efs;
    if (mounted_otherwise()) return efs_status::not_ready;
    if (bm >= g_efs_bm_num || !current_geometry().representable()) return efs_status::invalid;
    return erase_bm(bm);
}

uint32_t EFS_erase(void)
{
    using namespace yfs::efs;
    const geometry geo = current_geometry();
    std::uint32_t status;
    if (mounted_otherwise()) return efs_status::not_ready;
    if (mounted()) {
        // The BM in force goes last: until then it stands, and so does the mount.
        status = erase_other_maps(geo);
        if (status != efs_status::ok) return status;
        status = efs_ctx.current_bm < geo.bm_num ? erase_bm(efs_ctx.current_bm) : efs_status::invalid;
    } else {
        status = EFS_physical_init(0);
        if (status != efs_status::ok) return status;
        status = erase_unmounted(geo);
    }
    efs_ctx.initialized = 0;
    return status;
}

uint32_t EFS_write_RTFD_marker(void)
{
    using namespace yfs::efs;
    if (mounted_otherwise()) return efs_status::not_ready;
    const auto status = EFS_physical_init(0);
    return status != efs_status::ok ? status : EFS_physical_write(0, sizeof rtfd_marker, rtfd_marker);
}
