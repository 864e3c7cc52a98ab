// An EFS image with changed places and perhaps another layout, used: whatever calls the input asks for, then a mount of
// what they left.
#include "fuzz/steps.h"
#include "inspect/efs_picture.h"
#include "yfs/efs.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::input in(data, size);
    fuzz::bytes image = fuzz::patched_efs(in);
    image.reserve(1); // an image of no bytes has an address all the same
    EFS_init_tools(image.data());
    fuzz::change_efs(in);
    static_cast<void>(yfs::inspect::inspect_efs(image, yfs::inspect::loaded_efs_plan()));
    EFS_init(0);
    for (std::uint32_t file = 0; file < 5; ++file) fuzz::read_efs(file);
    fuzz::leave_efs();
    return 0;
}
