// A step along a chain, the most frequent thing that AFS does. An entry of the chain table that lies in the line used
// last, as that of the next chunk mostly does, is taken from there: to use that line once more changes neither the
// cache nor the order of its lines. Any other entry goes through the cache.
#pragma once

#include "afs/afs_internal.h"

#include <algorithm>

namespace yfs::afs {

// Steps of the present chain walk. A file head starts it anew; a loop is told by a walk of `chunks` steps.
[[gnu::visibility("hidden")]] extern std::uint32_t chunk_cntr;

constexpr bool is_allowed(const afs_context& ctx, std::uint16_t entry, std::uint16_t value)
{
    const bool is_head = entry < ctx.files;
    if (value >= ctx.files && value < std::uint32_t{ctx.files} + ctx.chunks) return true;
    if (value == no_file) return true;
    if (value <= last_chunk_max) return !is_head;
    return is_head && (value == zombie || value == empty_file);
}

// The byte at `va` if the cache's most recently used line holds it, else null.
inline std::uint8_t* at_head_line(const afs_context& ctx, std::uint32_t va)
{
    if (ctx.line_table == nullptr || ctx.cache_data == nullptr || ctx.page_size == 0) return nullptr;
    const cache_line_entry& line = ctx.line_table[ctx.cache_head];
    if ((line.link & line_valid) == 0 || line.page != va / line_bytes) return nullptr;
    return ctx.cache_data + std::size_t{ctx.cache_head} * line_bytes + va % line_bytes;
}

// As afs_get_next_cid.
inline std::uint32_t step_chain(afs_context& ctx, std::uint16_t cid, std::uint16_t& next)
{
    chunk_cntr = cid < ctx.files ? 0 : chunk_cntr + 1;
    std::uint8_t* at = at_head_line(ctx, fat_entry_at(cid));
    if (at == nullptr) {
        const std::uint32_t status = cache_at(ctx, fat_entry_at(cid), at);
        if (status != afs_status::ok) return status;
    }
    next = load<le16>(at);
    return is_allowed(ctx, cid, next) && chunk_cntr < ctx.chunks ? afs_status::ok : afs_status::failed;
}

// Puts `value` into FAT entry `entry`, in the cache; it reaches flash with the next flush.
std::uint32_t write_fat_entry_anywhere(afs_context& ctx, std::uint16_t entry, std::uint16_t value);
inline std::uint32_t write_fat_entry(afs_context& ctx, std::uint16_t entry, std::uint16_t value)
{
    std::uint8_t* const at = at_head_line(ctx, fat_entry_at(entry));
    if (at == nullptr) return write_fat_entry_anywhere(ctx, entry, value);
    store(at, le16(value));
    ctx.line_table[ctx.cache_head].link |= line_dirty;
    return afs_status::ok;
}

// Puts links[i + 1] into FAT entry links[i] for all i below `count`, the last first. Those that lie in the line of the
// one before, which thereby is the most recently used and written to, go straight there.
inline std::uint32_t write_links_down(afs_context& ctx, const std::uint16_t* links, std::uint32_t count)
{
    while (count != 0) {
        --count;
        const std::uint32_t status = write_fat_entry(ctx, links[count], links[count + 1]);
        if (status != afs_status::ok) return status;
        const std::uint32_t page = fat_entry_at(links[count]) / line_bytes;
        std::uint8_t* const line = ctx.cache_data + std::size_t{ctx.cache_head} * line_bytes;
        for (; count != 0; --count) {
            const std::uint32_t va = fat_entry_at(links[count - 1]);
            if (va / line_bytes != page) break;
            store(line + va % line_bytes, le16(links[count]));
        }
    }
    return afs_status::ok;
}

// How many entries from that of chunk `cid` on hold their own number + 1: the chunks that are followed by their
// neighbour. No more than `most`, none that isn't in the line used last, none that a walk may not take.
inline std::uint32_t neighbours_ahead(const afs_context& ctx, std::uint16_t cid, std::uint32_t most)
{
    if (cid < ctx.files) return 0; // a file's head is no chunk
    const std::uint32_t va = fat_entry_at(cid);
    const std::uint8_t* const at = at_head_line(ctx, va);
    if (at == nullptr || chunk_cntr >= ctx.chunks) return 0;
    const std::uint32_t in_line = (line_bytes - va % line_bytes) / 2;
    const std::uint32_t last_chunk = std::uint32_t{ctx.files} + ctx.chunks - 1;
    const std::uint32_t in_volume = last_chunk > cid ? last_chunk - cid : 0;
    most = std::min({most, in_line, in_volume, ctx.chunks - 1U - std::min(chunk_cntr, ctx.chunks - 1U)});
    std::uint32_t count = 0;
    constexpr std::uint64_t each = 0x0001000100010001; // four entries are a word
    std::uint64_t numbers = each * cid + 0x0004000300020001;
    const auto word_differs = [at, &count, &numbers](std::uint32_t word) {
        return load<le<std::uint64_t>>(at + 2 * count + 8 * word) ^ (numbers + 4 * each * word);
    };
    for (; count + 8 <= most && (word_differs(0) | word_differs(1)) == 0; count += 8) numbers += 8 * each;
    if (count + 4 <= most && word_differs(0) == 0) count += 4;
    while (count < most && load<le16>(at + 2 * count) == cid + count + 1) ++count;
    return count;
}

// Takes `count` steps of such a kind at once: `next` is the chunk that they begin with, and the one that they lead to.
inline void step_to_neighbours(std::uint16_t& next, std::uint32_t count)
{
    chunk_cntr += count;
    next = low16(next + count);
}

} // namespace yfs::afs
