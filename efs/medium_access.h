// The medium of EFS as the layer reaches it. A program can put its own EFS_physical_* in the place of the library's,
// and then each access is a call of its functions, in the order of the accesses. On the library's own medium, an image
// in memory, a read that only compares needs no copy: it looks at the image in place.
#pragma once

#include "yfs/efs.h"
#include "yfs/status.h"

#include <cstdint>

namespace yfs::efs {

// Whether the three functions of this process are the library's own. False until they say so when the library is
// loaded, and for ever where they aren't part of the program.
[[gnu::visibility("hidden")]] extern bool medium_built_in;

inline bool in_image(std::uint32_t address, std::uint32_t length)
{
    return efs_image != nullptr && length != 0 && address < efs_size && std::uint64_t{address} + length <= efs_size;
}

// One read: `seen` becomes the bytes, in the image or in `buffer`, to be used before the next write. ok | the medium's
// status.
inline std::uint32_t look(std::uint32_t address, std::uint32_t length, std::uint8_t* buffer, const std::uint8_t*& seen)
{
    if (medium_built_in) {
        if (!in_image(address, length)) return efs_status::invalid;
        seen = efs_image + address;
        return efs_status::ok;
    }
    seen = buffer;
    return EFS_physical_read(address, length, buffer);
}

} // namespace yfs::efs
