#include "ftl/group_table.h"

namespace yfs::ftl {

void forget_owners(ftl_context& ftl)
{
    std::memset(ftl.group_owner, 0xFF, sizeof ftl.group_owner);
}

// The group of a unit with `base_page`, or `none`: a log unit, a group off the grid or beyond the table.
static std::uint32_t group_of(const afs_context& ctx, std::uint32_t base_page)
{
    const std::uint32_t first_page = fat_pages(ctx);
    if (base_page < first_page || (base_page - first_page) % data_slots != 0) return none;
    const std::uint32_t group = (base_page - first_page) / data_slots;
    return group < sizeof ctx.ftl->group_owner ? group : none;
}

// From the last EU to the first, so that the first of a group is what stays.
static void fill(const afs_context& ctx)
{
    ftl_context& ftl = *ctx.ftl;
    forget_owners(ftl);
    for (std::uint32_t eu = ftl.eu_count; eu-- > 0;) {
        const std::uint32_t group = group_of(ctx, ftl.eu_table[eu].base_page);
        if (group != none) ftl.group_owner[group] = low8(eu);
    }
}

static std::uint32_t first_with(const ftl_context& ftl, std::uint16_t base_page)
{
    for (std::uint32_t eu = 0; eu < ftl.eu_count; ++eu) {
        if (ftl.eu_table[eu].base_page == base_page) return eu;
    }
    return none;
}

void renew_owner(const afs_context& ctx, std::uint16_t base_page)
{
    const std::uint32_t group = group_of(ctx, base_page);
    if (group != none) ctx.ftl->group_owner[group] = low8(first_with(*ctx.ftl, base_page));
}

std::uint32_t scan_for_owner(const afs_context& ctx, std::uint32_t group)
{
    const std::uint32_t eu = first_with(*ctx.ftl, base_page_of(ctx, group));
    if (eu != none) fill(ctx);
    return eu;
}

} // namespace yfs::ftl
