// A volume with changed bytes: mount, sizes, reads, and then whatever the rest of the input asks for. The buffer is
// exactly as long as the volume, so that a step past its end is seen.
#include "fuzz/patched.h"
#include "inspect/picture.h"
#include "yfs/dfs.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::input in(data, size);
    fuzz::bytes image = fuzz::patched_volume(in);
    static_cast<void>(yfs::inspect::inspect_image(image));
    fuzz::bytes buffer(70000);
    const auto read_all = [&] {
        for (std::uint32_t file = 0; file < 65; ++file) {
            std::uint32_t length = 0;
            if (dfs_getsize(file, &length) != 0) continue;
            length = static_cast<std::uint32_t>(buffer.size());
            dfs_read(file, 0, &length, buffer.data());
        }
    };
    dfs_init(image.data(), static_cast<std::uint32_t>(image.size()));
    read_all();
    for (int i = 0; i < 60 && !in.empty(); ++i) {
        const std::uint32_t what = in.number(1), file = in.number(1) % 66, length = in.number(2) % 9000;
        switch (what % 12) {
        case 0:
            dfs_delete_file(file);
            break;
        case 1:
            dfs_mark_zombie_file(file);
            break;
        case 2:
            dfs_idle_reclaim();
            break;
        case 3:
            dfs_force_full_reclaim();
            break;
        case 4:
            dfs_force_dirty_erase();
            break;
        case 5:
            dfs_set_page_size(length);
            break;
        case 6:
            dfs_init(image.data(), static_cast<std::uint32_t>(image.size()));
            break;
        default:
            dfs_write(file, what / 16 % 2 * in.number(2), length, buffer.data(), what / 32 % 2);
            break;
        }
    }
    dfs_init(image.data(), static_cast<std::uint32_t>(image.size()));
    read_all();
    return 0;
}
