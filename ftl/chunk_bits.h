// Maps of one bit a chunk, many at a time: what a mount or a reclaim does once for each chunk it does so for up to 32
// of them. A map has room for bits 0 to `chunks`.
#pragma once

#include "yfs/afs.h"

#include <algorithm>
#include <bit>

namespace yfs {

inline bool bit_is_set(const std::uint32_t* map, std::uint32_t index)
{
    return ((map[index >> 5] >> (index & 31U)) & 1U) != 0;
}
inline void set_bit(std::uint32_t* map, std::uint32_t index)
{
    map[index >> 5] |= 1U << (index & 31U);
}

// How many bits from `index` on are set (or clear, by `flip` of all ones) without a gap, no more than `most`.
inline std::uint32_t alike_ahead(const std::uint32_t* map, std::uint32_t index, std::uint32_t most, std::uint32_t flip)
{
    std::uint32_t count = 0;
    while (count < most) {
        const std::uint32_t at = index + count;
        const std::uint32_t bits = (map[at >> 5] ^ flip) >> (at & 31U);
        const auto here = static_cast<std::uint32_t>(std::countr_one(bits));
        count += here;
        if ((at & 31U) + here < 32) break;
    }
    return std::min(count, most);
}
inline std::uint32_t set_ahead(const std::uint32_t* map, std::uint32_t index, std::uint32_t most)
{
    return alike_ahead(map, index, most, 0);
}
inline std::uint32_t clear_ahead(const std::uint32_t* map, std::uint32_t index, std::uint32_t most)
{
    return alike_ahead(map, index, most, ~0U);
}

// The same downwards from `index` on; `most` is at most index + 1.
inline std::uint32_t alike_down(const std::uint32_t* map, std::uint32_t index, std::uint32_t most, std::uint32_t flip)
{
    std::uint32_t count = 0;
    while (count < most) {
        const std::uint32_t at = index - count;
        const std::uint32_t bits = (map[at >> 5] ^ flip) << (31 - (at & 31U));
        const auto here = static_cast<std::uint32_t>(std::countl_one(bits));
        count += here;
        if (here <= (at & 31U)) break;
    }
    return std::min(count, most);
}

inline std::uint32_t set_down(const std::uint32_t* map, std::uint32_t index, std::uint32_t most)
{
    return alike_down(map, index, most, 0);
}
inline std::uint32_t clear_down(const std::uint32_t* map, std::uint32_t index, std::uint32_t most)
{
    return alike_down(map, index, most, ~0U);
}

// In the word that bit `index` is in, that bit and those above it, `count` in all.
inline std::uint32_t bits_of(std::uint32_t index, std::uint32_t count)
{
    return (count == 32 ? ~0U : (1U << count) - 1) << (index & 31U);
}

inline void set_bits(std::uint32_t* map, std::uint32_t index, std::uint32_t count)
{
    while (count != 0) {
        const std::uint32_t here = std::min(count, 32 - (index & 31U));
        map[index >> 5] |= bits_of(index, here);
        index += here;
        count -= here;
    }
}

// Chunks of a volume by index, no more than `most`. Behind the last one, and without a map, none is in use.
inline bool chunk_in_use(const afs_context& ctx, std::uint32_t index)
{
    return ctx.alloc_map != nullptr && index <= ctx.chunks && bit_is_set(ctx.alloc_map, index);
}
inline std::uint32_t in_use_ahead(const afs_context& ctx, std::uint32_t index, std::uint32_t most)
{
    if (ctx.alloc_map == nullptr || index > ctx.chunks) return 0;
    return set_ahead(ctx.alloc_map, index, std::min(most, ctx.chunks + 1U - index));
}
inline std::uint32_t unused_ahead(const afs_context& ctx, std::uint32_t index, std::uint32_t most)
{
    if (ctx.alloc_map == nullptr || index > ctx.chunks) return most;
    const std::uint32_t mapped = ctx.chunks + 1U - index;
    const std::uint32_t count = clear_ahead(ctx.alloc_map, index, std::min(most, mapped));
    return count == mapped ? most : count;
}
inline std::uint32_t in_use_down(const afs_context& ctx, std::uint32_t index, std::uint32_t most)
{
    if (ctx.alloc_map == nullptr || index > ctx.chunks) return 0;
    return set_down(ctx.alloc_map, index, most);
}
inline std::uint32_t unused_down(const afs_context& ctx, std::uint32_t index, std::uint32_t most)
{
    if (ctx.alloc_map == nullptr) return most;
    const std::uint32_t unmapped = index > ctx.chunks ? std::min(most, index - ctx.chunks) : 0;
    return unmapped == most ? most : unmapped + clear_down(ctx.alloc_map, index - unmapped, most - unmapped);
}

// Takes `count` chunks out of use. How many of them were in it.
inline std::uint32_t clear_in_use(afs_context& ctx, std::uint32_t index, std::uint32_t count)
{
    if (ctx.alloc_map == nullptr || index > ctx.chunks) return 0;
    std::uint32_t cleared = 0;
    const std::uint32_t end = std::min(index + count, ctx.chunks + 1U);
    while (index < end) {
        const std::uint32_t here = std::min(end - index, 32 - (index & 31U));
        std::uint32_t& word = ctx.alloc_map[index >> 5];
        const std::uint32_t all = bits_of(index, here);
        const std::uint32_t bits = word & all;
        cleared += bits == all ? here : static_cast<std::uint32_t>(std::popcount(bits));
        word ^= bits;
        index += here;
    }
    return cleared;
}

} // namespace yfs
