#include "afs/line_order.h"

#include <algorithm>

namespace yfs::afs {

namespace {

constexpr std::uint32_t bucket_count = 64;
constexpr std::uint16_t not_listed = 0xFFFE;

// Behind the lines of line_table, in the same block of memory.
struct cache_order {
    std::uint16_t least_recent;
    std::uint16_t first_of_bucket[bucket_count]; // by page % bucket_count
    struct {
        std::uint16_t more_recent;
        std::uint16_t next_of_bucket;
    } line[1]; // as many as there are lines
};
static_assert(alignof(cache_order) <= alignof(cache_line_entry));

cache_order& order_of(const afs_context& ctx)
{
    return *static_cast<cache_order*>(static_cast<void*>(ctx.line_table + ctx.line_count));
}

std::uint16_t less_recent(const cache_line_entry& line)
{
    return line.link >> 2;
}
void set_less_recent(cache_line_entry& line, std::uint16_t other)
{
    line.link = low16((line.link & line_flags) | (other << 2));
}

std::uint16_t& bucket_of(cache_order& order, std::uint16_t page)
{
    return order.first_of_bucket[page % bucket_count];
}

void take_out_of_bucket(cache_order& order, std::uint16_t line, std::uint16_t page)
{
    if (order.line[line].next_of_bucket == not_listed) return;
    std::uint16_t* at = &bucket_of(order, page);
    while (*at != line) at = &order.line[*at].next_of_bucket;
    *at = order.line[line].next_of_bucket;
}

} // namespace

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
        order.line[i] = {i == 0 ? no_line : low16(i - 1U), not_listed};
    }
}

std::uint16_t find_line(const afs_context& ctx, std::uint16_t page)
{
    cache_order& order = order_of(ctx);
    std::uint16_t line = bucket_of(order, page);
    while (line != no_line) {
        const cache_line_entry& entry = ctx.line_table[line];
        if (entry.page == page && (entry.link & line_valid) != 0) break;
        line = order.line[line].next_of_bucket;
    }
    return line;
}

std::uint16_t least_recent_line(const afs_context& ctx)
{
    return order_of(ctx).least_recent;
}

std::uint16_t more_recent_line(const afs_context& ctx, std::uint16_t line)
{
    return order_of(ctx).line[line].more_recent;
}

void use_line(afs_context& ctx, std::uint16_t line)
{
    if (line == ctx.cache_head) return;
    cache_order& order = order_of(ctx);
    cache_line_entry& entry = ctx.line_table[line];
    const std::uint16_t before = order.line[line].more_recent;
    const std::uint16_t behind = less_recent(entry);
    set_less_recent(ctx.line_table[before], behind);
    (behind != no_line ? order.line[behind].more_recent : order.least_recent) = before;

    order.line[ctx.cache_head].more_recent = line;
    set_less_recent(entry, ctx.cache_head);
    order.line[line].more_recent = no_line;
    ctx.cache_head = line;
}

void give_line(afs_context& ctx, std::uint16_t line, std::uint16_t page)
{
    cache_order& order = order_of(ctx);
    cache_line_entry& entry = ctx.line_table[line];
    take_out_of_bucket(order, line, entry.page);
    std::uint16_t& first = bucket_of(order, page);
    order.line[line].next_of_bucket = first;
    first = line;
    entry.page = page;
    entry.link = low16((entry.link & ~line_flags) | line_valid);
}

} // namespace yfs::afs
