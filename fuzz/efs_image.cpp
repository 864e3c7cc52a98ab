// An EFS image with changed bytes and perhaps a changed layout: mount, reads, and then what the rest of the input says.
#include "fuzz/patched.h"
#include "inspect/efs_picture.h"
#include "yfs/efs.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::input in(data, size);
    fuzz::bytes image = fuzz::patched_efs(in);
    static_cast<void>(yfs::inspect::inspect_efs(image, yfs::inspect::loaded_efs_plan()));
    fuzz::bytes buffer(70000);
    const auto read_all = [&] {
        for (std::uint32_t file = 0; file < g_efs_files_num; ++file) {
            std::uint32_t length = 0;
            EFS_get_file_size(file, &length);
            length = 65000;
            EFS_read(file, 0, &length, buffer.data());
        }
    };
    EFS_init_tools(image.data());
    read_all();
    for (int i = 0; i < 60 && !in.empty(); ++i) {
        const std::uint32_t what = in.number(1), file = in.number(1) % 5;
        switch (what % 8) {
        case 0:
            EFS_delete(file);
            break;
        case 1:
            EFS_idle_reclaim();
            break;
        case 2:
            EFS_wear_leveling(0, 0);
            break;
        case 3:
            EFS_init(0);
            break;
        case 4:
            EFS_scan_for_Data_Blocks_status_and_EC();
            break;
        default:
            EFS_write(file, what / 64, in.number(2), buffer.data());
            break;
        }
    }
    EFS_init(0);
    read_all();
    return 0;
}
