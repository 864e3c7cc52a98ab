// Which EU holds a group: a table beside the headers' one, so that a lookup needs no scan of it. It is filled at the
// first lookup after a mount, so that the lowest of several EUs that claim a group stands in it, as a scan from the
// first EU on would find it, and a reclaim renews the place of its group. A place in it counts only while the headers'
// table still says the same; where it doesn't, and where no EU holds the group, the scan decides.
#pragma once

#include "ftl/ftl_internal.h"

namespace yfs::ftl {

// The scan, which fills the table. `none`: no EU holds the group.
std::uint32_t scan_for_owner(const afs_context& ctx, std::uint32_t group);

inline std::uint16_t base_page_of(const afs_context& ctx, std::uint32_t group)
{
    return low16(fat_pages(ctx) + data_slots * group);
}

// The EU that the table tells, or `none`.
inline std::uint32_t listed_owner(const afs_context& ctx, std::uint32_t group)
{
    const ftl_context& ftl = *ctx.ftl;
    if (group >= sizeof ftl.group_owner) return none;
    const std::uint8_t eu = ftl.group_owner[group];
    return eu < ftl.eu_count && ftl.eu_table[eu].base_page == base_page_of(ctx, group) ? eu : none;
}

// The EU that holds a group, or `none`.
inline std::uint32_t owner_or_none(const afs_context& ctx, std::uint32_t group)
{
    const std::uint32_t listed = listed_owner(ctx, group);
    return listed != none ? listed : scan_for_owner(ctx, group);
}

// The same, but EU 0 for `none`: the CRC of the page that is read there decides.
inline std::uint32_t find_owner(const afs_context& ctx, std::uint32_t group)
{
    const std::uint32_t eu = owner_or_none(ctx, group);
    return eu != none ? eu : 0;
}

} // namespace yfs::ftl
