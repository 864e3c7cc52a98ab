// A hash of names by words of eight bytes. It spreads names over tables; what two names of one hash are is told by the
// names.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

namespace yfs::vfs {

// Both halves of a product, so that what a difference of names becomes depends on what was mixed before.
inline std::uint64_t mix(std::uint64_t hash, std::uint64_t word)
{
    constexpr std::uint64_t spread = 0x9E3779B97F4A7C15;
    __extension__ using both_halves = unsigned __int128;
    const both_halves product = both_halves{hash ^ word} * spread;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

inline std::uint64_t hash_of(std::string_view name, std::uint64_t seed)
{
    std::uint64_t hash = mix(seed, name.size());
    constexpr std::size_t step = sizeof(std::uint64_t);
    std::uint64_t word = 0;
    if (name.size() < step) {
        for (const char c : name) word = word << 8 | static_cast<unsigned char>(c);
    } else {
        const char* at = name.data();
        const char* const last = at + name.size() - step; // with some bytes once more, rather than one by one
        for (; at < last; at += step) {
            std::memcpy(&word, at, step);
            hash = mix(hash, word);
        }
        std::memcpy(&word, last, step);
    }
    return mix(hash, word);
}

} // namespace yfs::vfs
