// How far the image under the built-in medium reaches. Only whoever mounts it knows: SpiFlashDrvInitialize is given no
// size, so it clears the bound, and the translation layer sets it.
#pragma once

#include <cstdint>

namespace yfs {

struct medium_bound {
    const std::uint8_t* image; // a program may point gpBuffer elsewhere; the bound holds for this image alone
    std::uint64_t bytes;
};
[[gnu::visibility("hidden")]] extern medium_bound gpBuffer_bound;

// Bounds what SpiFlashDrvInitialize has attached.
void bound_medium(std::uint64_t bytes);

} // namespace yfs
