// The image under the medium. It stands apart from the medium itself, so that a replacement can use it too.
#include "yfs/medium.h"
#include "efs/efs_internal.h"
#include "efs/medium_access.h"
#include "yfs/efs.h"

#include <limits>

uint8_t* efs_image = nullptr;
uint32_t efs_size = 0;

bool yfs::efs::medium_built_in = false;

namespace {

// The image that the library made itself: the only one that it ever releases. efs_image can point elsewhere meanwhile.
uint8_t* made_image = nullptr;

} // namespace

uint32_t EFS_get_efs_size(void)
{
    const uint64_t bytes = yfs::efs::current_geometry().image_bytes();
    constexpr uint64_t most = std::numeric_limits<uint32_t>::max();
    return static_cast<uint32_t>(bytes < most ? bytes : most);
}

uint32_t EFS_physical_init(uint8_t format)
{
    // A size that no image has would let the medium reach behind the caller's buffer.
    if (!yfs::efs::current_geometry().representable()) return efs_status::integrity;

    efs_size = EFS_get_efs_size();
    if (format == 0) return efs_image != nullptr ? efs_status::ok : efs_status::not_ready;

    LtFreeMemory(made_image);
    made_image = static_cast<uint8_t*>(LtAllocateMemory(efs_size != 0 ? efs_size : 1));
    efs_image = made_image;
    if (made_image == nullptr) return efs_status::no_memory;
    LtSetMemory(made_image, yfs::efs::erased_byte, efs_size);
    return efs_status::ok;
}
