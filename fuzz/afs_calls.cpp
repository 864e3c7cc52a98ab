// A volume with changed places, used: whatever calls the input asks for, then a mount of what they left.
#include "fuzz/steps.h"
#include "inspect/picture.h"
#include "yfs/dfs.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::input in(data, size);
    fuzz::bytes image = fuzz::patched_volume(in);
    dfs_init(image.data(), static_cast<std::uint32_t>(image.size()));
    fuzz::change_afs(in, image);
    static_cast<void>(yfs::inspect::inspect_image(image));
    dfs_init(image.data(), static_cast<std::uint32_t>(image.size()));
    for (std::uint32_t file = 0; file < 66; ++file) fuzz::read_afs(file);
    fuzz::leave_afs();
    return 0;
}
