#include "fuzz/steps.h"

#include "yfs/efs.h"

namespace fuzz {

std::optional<bytes> read_efs(std::uint32_t file)
{
    std::uint32_t size = 0;
    if (EFS_get_file_size(file, &size) != 0) return std::nullopt;
    bytes content(std::max(size, 1U)); // an empty file's buffer must be one, too
    std::uint32_t length = size;
    if (EFS_read(file, 0, &length, content.data()) != 0) return std::nullopt;
    must(length == size);
    content.resize(size);
    return content;
}

// One write: one that is done reads back, one that isn't leaves the old contents.
static void write_efs(std::uint32_t file, std::uint32_t offset, std::uint32_t length, unsigned seed)
{
    const std::optional<bytes> before = read_efs(file);
    const bytes content = some_bytes(length, seed);
    const bool done = EFS_write(file, offset, length, content.data()) == 0;
    if (done) must(read_efs(file) == content);
    if (!done && before) must(read_efs(file) == before);
}

// What ends all files, or the mount.
static void seldom(input& in, std::uint32_t which)
{
    std::uint32_t position = 0;
    switch (which) {
    case 0:
        EFS_init(1);
        break;
    case 1:
        EFS_do_format();
        break;
    case 2:
        EFS_erase();
        break;
    case 3:
        EFS_write_RTFD_marker();
        break;
    case 4:
        EFS_erase_next_BM(in.number(1));
        break;
    default:
        EFS_select_free_page_for_write(&position);
        break;
    }
}

void change_efs(input& in)
{
    for (int i = 0; i < 24 && !in.empty(); ++i) {
        const std::uint32_t what = in.number(1);
        switch (what % 16) {
        case 0:
            EFS_delete(in.number(1) % 5);
            break;
        case 1:
        case 2:
            EFS_idle_reclaim();
            break;
        case 3:
            EFS_wear_leveling(0, 0);
            break;
        case 4:
            EFS_init(0);
            break;
        case 5:
            EFS_scan_for_Data_Blocks_status_and_EC();
            break;
        case 6:
            EFS_erase_data_block(in.number(1), in.number(4));
            break;
        case 7:
            EFS_erase_dirty_block();
            break;
        case 8:
        case 9:
            seldom(in, what / 16);
            break;
        case 10:
            if (efs_ctx.initialized != 0) EFS_switch_BM(&efs_ctx.current_bme);
            break;
        case 11:
            write_efs(in.number(1) % 5, what / 128, in.number(2), what);
            break;
        default:
            write_efs(what / 16 % 4, 0, in.number(2) % 1100, what);
            break;
        }
    }
}

void leave_efs()
{
    efs_image = nullptr;
    EFS_init(0);
}

} // namespace fuzz
