// Whether bytes lie erased, and erasing them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace yfs {

inline constexpr std::uint8_t erased = 0xFF;

// They are if the first is and each is like the one before it, which is a comparison of the bytes with themselves one
// place on, by the C library's long words.
inline bool is_blank(const std::uint8_t* bytes, std::size_t count)
{
    return count == 0 || (bytes[0] == erased && std::memcmp(bytes, bytes + 1, count - 1) == 0);
}

// The same for a few bytes whose number is known beforehand, without a call.
template <std::size_t count>
bool is_blank(const std::uint8_t* bytes)
{
    std::uint64_t all = ~std::uint64_t{0};
    std::uint8_t rest = erased;
    std::size_t at = 0;
    for (std::uint64_t word = 0; at + sizeof word <= count; at += sizeof word) {
        std::memcpy(&word, bytes + at, sizeof word);
        all &= word;
    }
    for (; at < count; ++at) rest &= bytes[at];
    return all == ~std::uint64_t{0} && rest == erased;
}

// An erase of `count` bytes. In pieces, which take the same time as the whole: what a C library does with longer ones
// differs between machines, and so would the count of instructions.
inline void lay_erased(std::uint8_t* bytes, std::size_t count)
{
    constexpr std::size_t piece = 1024;
    for (; count > piece; count -= piece, bytes += piece) std::memset(bytes, erased, piece);
    std::memset(bytes, erased, count);
}

} // namespace yfs
