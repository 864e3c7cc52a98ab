#include "afs/line_order.h"

#include <algorithm>

namespace yfs::afs {

std::size_t line_table_entries(std::uint32_t lines)
{
    const std::size_t bytes = sizeof(cache_order) + lines * sizeof(cache_order::line);
    return lines + (bytes + sizeof(cache_line_entry) - 1) / sizeof(cache_line_entry);
}

void begin_order(afs_context& ctx)
{
    cache_order& order = order_of(ctx);
    std::fill_n(order.first_of_bucket, bucket_count, no_line);
    ctx.cache_head = 0;
    order.least_recent = low16(ctx.line_count - 1U);
    for (std::uint16_t i = 0; i < ctx.line_count; ++i) {
        const bool last = i == order.least_recent;
        set_less_recent(ctx.line_table[i], last ? no_line : low16(i + 1U));
        order.line[i] = {i == 0 ? no_line : low16(i - 1U), not_listed, 0};
    }
}

} // namespace yfs::afs
