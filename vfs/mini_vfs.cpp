// Paths over dispatch: the file table gives the number, the file systems the contents.
#include "vfs/ftbl_layout.h"
#include "vfs/vfs_internal.h"
#include "yfs/dfs.h"
#include "yfs/status.h"

namespace {

constexpr std::uint32_t init_failed = 1;
constexpr std::uint32_t null_pointer = 1;
constexpr std::uint32_t no_such_path = 2;
constexpr std::uint32_t read_failed = 6;

} // namespace

std::uint32_t mini_vfs_init(void* image, std::uint32_t size)
{
    return dfs_init(image, size) == afs_status::ok ? 0 : init_failed;
}

std::uint32_t pathToFileNumber(const char* path, std::uint32_t* number)
{
    if (!number) return null_pointer;
    const ftbl_file_entry_t* entry = yfs::vfs::find_by_name(path);
    if (!entry) return no_such_path;
    *number = yfs::vfs::dfs_number(*entry);
    return 0;
}

std::uint32_t readVfs(const char* path, std::uint32_t offset, void* buffer, std::uint32_t length)
{
    std::uint32_t number = 0;
    if (const auto st = pathToFileNumber(path, &number); st != 0) return st;
    return dfs_read(number, offset, &length, buffer) == afs_status::ok ? 0 : read_failed;
}
