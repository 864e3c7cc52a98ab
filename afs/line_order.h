// The lines of the page cache by page and in order of use, so that neither a hit nor a miss nor a flush walks over
// them. The order itself stays in the links of line_table, from the most to the least recently used; beside it stand
// the links back, and for each page the lines that may hold it. Which line is evicted, and in what order dirty lines
// are written, decides what the flash looks like: every operation here leaves exactly the order that a walk along the
// links would.
#pragma once

#include "afs/afs_internal.h"

namespace yfs::afs {

inline constexpr std::uint16_t line_flags = line_valid | line_dirty;
inline constexpr std::uint16_t no_line = 0xFFF; // ends the list

inline bool is_dirty(const cache_line_entry& line)
{
    return (line.link & line_flags) == line_flags;
}

// Entries of line_table that make room for `lines` lines and for what is kept beside them.
std::size_t line_table_entries(std::uint32_t lines);
// A fresh line_table: all lines in the list in the order of their numbers, none valid. ctx.line_count is set.
void begin_order(afs_context& ctx);

inline constexpr std::uint32_t bucket_count = 64;
inline constexpr std::uint16_t not_listed = 0xFFFE;

// Behind the lines of line_table, in the same block of memory.
struct cache_order {
    std::uint16_t least_recent;
    std::uint16_t first_of_bucket[bucket_count]; // by page % bucket_count
    struct {
        std::uint16_t more_recent;
        std::uint16_t next_of_bucket;
        std::uint16_t page; // whose bucket it is in, whatever a program has made of line_table meanwhile
    } line[1];              // as many as there are lines
};
static_assert(alignof(cache_order) <= alignof(cache_line_entry));

inline cache_order& order_of(const afs_context& ctx)
{
    return *static_cast<cache_order*>(static_cast<void*>(ctx.line_table + ctx.line_count));
}

inline std::uint16_t less_recent(const cache_line_entry& line)
{
    return line.link >> 2;
}
inline void set_less_recent(cache_line_entry& line, std::uint16_t other)
{
    line.link = low16((line.link & line_flags) | (other << 2));
}

inline std::uint16_t& bucket_of(cache_order& order, std::uint16_t page)
{
    return order.first_of_bucket[page % bucket_count];
}

inline void take_out_of_bucket(cache_order& order, std::uint16_t line)
{
    if (order.line[line].next_of_bucket == not_listed) return;
    std::uint16_t* at = &bucket_of(order, order.line[line].page);
    while (*at != line) at = &order.line[*at].next_of_bucket;
    *at = order.line[line].next_of_bucket;
}

// The valid line with `page`, or no_line.
inline std::uint16_t find_line(const afs_context& ctx, std::uint16_t page)
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

inline std::uint16_t least_recent_line(const afs_context& ctx)
{
    return order_of(ctx).least_recent;
}

// The line used next after this one was; no_line for the most recent.
inline std::uint16_t more_recent_line(const afs_context& ctx, std::uint16_t line)
{
    return order_of(ctx).line[line].more_recent;
}

// Makes it the most recently used.
inline void use_line(afs_context& ctx, std::uint16_t line)
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

// The same for the least recently used line, behind which there is none. A cache has two lines at least.
inline void use_least_recent(afs_context& ctx, std::uint16_t line)
{
    cache_order& order = order_of(ctx);
    const std::uint16_t before = order.line[line].more_recent;
    set_less_recent(ctx.line_table[before], no_line);
    order.least_recent = before;

    order.line[ctx.cache_head].more_recent = line;
    set_less_recent(ctx.line_table[line], ctx.cache_head);
    order.line[line].more_recent = no_line;
    ctx.cache_head = line;
}

inline void line_was_written(afs_context& ctx, std::uint16_t line)
{
    use_line(ctx, line);
    ctx.line_table[line].link |= line_dirty;
}

// As cache_line_written: the line that `byte` lies in was changed.
inline void line_was_written(afs_context& ctx, const std::uint8_t* byte)
{
    const auto line = static_cast<std::uint32_t>((byte - ctx.cache_data) / line_bytes);
    if (line < ctx.line_count) line_was_written(ctx, low16(line));
}

// Makes it a valid, clean line that holds `page`.
inline void give_line(afs_context& ctx, std::uint16_t line, std::uint16_t page)
{
    cache_order& order = order_of(ctx);
    cache_line_entry& entry = ctx.line_table[line];
    take_out_of_bucket(order, line);
    std::uint16_t& first = bucket_of(order, page);
    order.line[line].next_of_bucket = first;
    order.line[line].page = page;
    first = line;
    entry.page = page;
    entry.link = low16((entry.link & ~line_flags) | line_valid);
}

} // namespace yfs::afs
