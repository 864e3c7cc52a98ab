// The chip as the layers above reach it. SpiDrvRead, SpiDrvWrite and SpiDrvEraseBlock can be replaced by a program, and
// then each access is a call of its functions, in the order of the accesses. On the library's own chip, which is
// nothing but an image in memory, an access needs no call, and a read that only compares or checks needs no copy: it
// looks at the image in place.
#pragma once

#include "frame/medium_bound.h"
#include "yfs/medium.h"

#include <cstring>

namespace yfs::chip {

// Whether the three functions of this process are the library's own. False until they say so when the library is
// loaded, and for ever where they aren't part of the program.
[[gnu::visibility("hidden")]] extern bool built_in;

inline bool in_image(std::uint32_t at, std::uint32_t len)
{
    if (gpBuffer == nullptr) return false;
    const bool bounded = gpBuffer_bound.image == gpBuffer;
    return !bounded || std::uint64_t{at} + len <= gpBuffer_bound.bytes;
}

// Where `len` bytes at `at` stand in memory. Null on a chip of a program's own, and outside the image.
[[nodiscard]] inline std::uint8_t* in_place(std::uint32_t at, std::uint32_t len)
{
    return built_in && in_image(at, len) ? gpBuffer + at : nullptr;
}

// One read. Null: the chip failed. Else the bytes, in the image or in `buf`: they are to be used before the next write.
[[nodiscard]] inline const std::uint8_t* look(std::uint32_t at, std::uint32_t len, void* buf)
{
    if (built_in) return in_image(at, len) ? gpBuffer + at : nullptr;
    return SpiDrvRead(at, len, buf) == 0 ? static_cast<const std::uint8_t*>(buf) : nullptr;
}

// One read into `buf`.
[[nodiscard]] inline bool read(std::uint32_t at, std::uint32_t len, void* buf)
{
    const std::uint8_t* const seen = look(at, len, buf);
    if (seen != nullptr && seen != buf) std::memcpy(buf, seen, len);
    return seen != nullptr;
}

[[nodiscard]] inline bool write(std::uint32_t at, std::uint32_t len, const void* data)
{
    if (!built_in) return SpiDrvWrite(at, len, data) == 0;
    if (!in_image(at, len)) return false;
    std::memcpy(gpBuffer + at, data, len);
    return true;
}

} // namespace yfs::chip
