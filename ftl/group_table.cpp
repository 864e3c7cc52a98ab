#include "ftl/group_table.h"

namespace yfs::ftl {

void forget_owners(ftl_context& ftl)
{
    std::memset(ftl.group_owner, 0xFF, sizeof ftl.group_owner);
}

// From the last EU to the first, so that the first of a group is what stays.
static void fill(const afs_context& ctx)
{
    ftl_context& ftl = *ctx.ftl;
    forget_owners(ftl);
    const std::uint32_t first_page = fat_pages(ctx);
    for (std::uint32_t eu = ftl.eu_count; eu-- > 0;) {
        const std::uint32_t base_page = ftl.eu_table[eu].base_page;
        if (base_page < first_page || (base_page - first_page) % data_slots != 0) continue;
        const std::uint32_t group = (base_page - first_page) / data_slots;
        if (group < sizeof ftl.group_owner) ftl.group_owner[group] = low8(eu);
    }
}

std::uint32_t scan_for_owner(const afs_context& ctx, std::uint32_t group)
{
    const ftl_context& ftl = *ctx.ftl;
    const std::uint16_t base_page = base_page_of(ctx, group);
    for (std::uint32_t eu = 0; eu < ftl.eu_count; ++eu) {
        if (ftl.eu_table[eu].base_page != base_page) continue;
        fill(ctx);
        return eu;
    }
    return none;
}

} // namespace yfs::ftl
