// What happens where a page isn't in the cache: a line is freed for it and filled. The line of a chunk that the
// allocator has just given needs nothing from the flash, and is the one that a write of a file asks for again and
// again.
#pragma once

#include "afs/line_order.h"

#include <cstring>

namespace yfs::afs {

inline std::uint8_t* bytes_of(const afs_context& ctx, std::uint16_t line)
{
    return ctx.cache_data + std::size_t{line} * line_bytes;
}

// Writes the page that the line holds. The status of the page write.
inline std::uint32_t write_line(afs_context& ctx, std::uint16_t line)
{
    const std::uint32_t va = ctx.line_table[line].page * line_bytes;
    return ctx.handler->write_page(&ctx, va, line_bytes, bytes_of(ctx, line), ctx.flash_base);
}

// The least recently used line, which is the most recent from then on, whatever comes of it, and clean if 0 comes of
// it.
inline std::uint32_t make_room(afs_context& ctx, std::uint16_t& line)
{
    line = least_recent_line(ctx);
    use_least_recent(ctx, line);
    return is_dirty(ctx.line_table[line]) ? write_line(ctx, line) : afs_status::ok;
}

// A chunk that the allocator of the translation layer has given has a clear bit in the map of chunks, which only a
// write of its page sets, and that page isn't in the cache where a line is looked for. Such a page reads as zeros, for
// which that layer looks at no flash. Any other layer is asked for the page, also where all of it is overwritten: it
// sees the same calls as ever.
inline bool fresh_chunks_read_as_zeros(const afs_context& ctx)
{
    return ctx.ftl_allocator == 1 && ctx.no_alloc_map == 0 &&
           ctx.handler->read_page == afs_physical_spi_handler.read_page;
}

// How a fresh chunk's line is filled: in part, over what the chunk reads as, or wholly, over whatever lies there.
enum class fill { partly, wholly };

// The line for `page`, a chunk that the allocator has just given, made the most recently used. 0 | the cache's status.
template <fill how>
std::uint32_t line_for_fresh_chunk(afs_context& ctx, std::uint16_t page, bool reads_as_zeros, std::uint16_t& line)
{
    line = find_line(ctx, page);
    if (line != no_line) {
        use_line(ctx, line);
        return afs_status::ok;
    }
    if (const std::uint32_t status = make_room(ctx, line); status != afs_status::ok) return status;
    std::uint8_t* const bytes = bytes_of(ctx, line);
    if (!reads_as_zeros) {
        const std::uint32_t va = page * line_bytes;
        const std::uint32_t status = ctx.handler->read_page(&ctx, va, line_bytes, bytes, ctx.flash_base);
        if (status != afs_status::ok) return status;
    } else if (how == fill::partly) {
        std::memset(bytes, 0, line_bytes);
    }
    give_line(ctx, line, page);
    return afs_status::ok;
}

} // namespace yfs::afs
