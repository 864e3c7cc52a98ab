// Maps of one bit a chunk, many at a time: what a mount does once for each chunk it does so for up to 32 of them. A map
// has room for bits 0 to `chunks`.
#pragma once

#include "yfs/afs.h"

#include <algorithm>
#include <bit>

namespace yfs::afs {

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

inline void set_bits(std::uint32_t* map, std::uint32_t index, std::uint32_t count)
{
    while (count != 0) {
        const std::uint32_t here = std::min(count, 32 - (index & 31U));
        map[index >> 5] |= (here == 32 ? ~0U : (1U << here) - 1) << (index & 31U);
        index += here;
        count -= here;
    }
}

} // namespace yfs::afs
