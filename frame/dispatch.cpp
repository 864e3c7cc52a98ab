// The one door to file contents: two bits of a file number choose AFS or EFS, and the many statuses of the two become
// the few that the layers above know.
#include "yfs/dfs.h"

#include "frame/memory.h"
#include "yfs/efs.h"
#include "yfs/status.h"

#include <initializer_list>

afs_context* dfs_context = nullptr;

namespace {

constexpr uint32_t selector_shift = 11;
constexpr uint32_t selector_mask = 0x3;
constexpr uint32_t selector_afs = 0;
constexpr uint32_t selector_efs = 2;
constexpr uint32_t index_mask = 0x0FFFE7FF; // what is handed down: without selector and bits 28 to 31

constexpr uint32_t cache_bytes = 8192;
constexpr uint32_t staging_bytes = 4096;

// The volume as dfs_init opens it: sizes kept, over the FTL, mounted and attached here.
constexpr uint32_t mount_page_size = 64;
constexpr uint32_t mount_cache_lines = 10;
constexpr uint32_t mount_files = 1024;
constexpr uint32_t mount_flags = 0x20025;

uint32_t selector_of(uint32_t fileno)
{
    return (fileno >> selector_shift) & selector_mask;
}

uint32_t fold(uint32_t status, std::initializer_list<uint32_t> let_through)
{
    for (const uint32_t known : let_through) {
        if (status == known) return status;
    }
    return afs_status::failed;
}

uint32_t fold_read(uint32_t status)
{
    return fold(status, {afs_status::ok, afs_status::not_found, afs_status::invalid});
}

uint32_t fold_write(uint32_t status)
{
    return fold(status, {afs_status::ok, afs_status::invalid, afs_status::too_large, afs_status::no_space,
                         afs_status::let_through});
}

int32_t afs_number(uint32_t fileno)
{
    return static_cast<int32_t>(fileno & index_mask);
}

void release_context()
{
    if (dfs_context == nullptr) return;
    afs_free_context(dfs_context);
    yfs::lt_release(dfs_context->staging);
    yfs::lt_release(dfs_context);
}

// A half-built volume is neither read nor written nor reclaimed: without files and tables every operation answers 22.
void close_half_built()
{
    afs_free_context(dfs_context);
    dfs_context->files = 0;
    dfs_context->ftl_allocator = 0;
}

} // namespace

uint32_t dfs_init(void* image, uint32_t size)
{
    release_context();
    auto context = yfs::lt_allocate_zero<afs_context>(1);
    if (!context) return afs_status::no_context;
    dfs_context = context.release();

    dfs_context->staging = static_cast<uint8_t*>(LtAllocateZeroMemory(staging_bytes));
    uint32_t status = afs_status::no_memory;
    if (dfs_context->staging != nullptr) {
        status =
            afs_init(dfs_context, image, mount_page_size, mount_cache_lines, mount_files, 0, size, mount_flags, 0, 0);
    }
    if (status != afs_status::ok) close_half_built();
    return status;
}

uint32_t dfs_terminate(void)
{
    return afs_status::ok;
}

uint32_t dfs_is_fs_erased(void)
{
    return afs_status::ok;
}

uint32_t dfs_getsize(uint32_t fileno, uint32_t* size)
{
    if (dfs_context == nullptr) return afs_status::not_found;
    switch (selector_of(fileno)) {
    case selector_afs:
        return fold_read(afs_getfilesize(dfs_context, afs_number(fileno), size));
    case selector_efs:
        return fold_read(EFS_get_file_size(fileno & index_mask, size));
    default:
        return afs_status::invalid;
    }
}

uint32_t dfs_read(uint32_t fileno, uint32_t offset, uint32_t* len, void* buf)
{
    switch (selector_of(fileno)) {
    case selector_afs:
        return fold_read(afs_readfile(dfs_context, afs_number(fileno), offset, len, buf));
    case selector_efs:
        if (EFS_is_initialized() == 0) return afs_status::not_found;
        return fold_read(EFS_read(fileno & index_mask, offset, len, static_cast<uint8_t*>(buf)));
    default:
        return afs_status::invalid;
    }
}

uint32_t dfs_write(uint32_t fileno, uint32_t offset, uint32_t len, const void* buf, uint32_t flags)
{
    switch (selector_of(fileno)) {
    case selector_afs:
        return fold_write(afs_writefile(dfs_context, afs_number(fileno), offset, len, buf, flags));
    case selector_efs: // always the whole file, so no flags
        return fold_write(EFS_write(fileno & index_mask, offset, len, static_cast<const uint8_t*>(buf)));
    default:
        return afs_status::invalid;
    }
}

uint32_t dfs_delete_file(uint32_t fileno)
{
    if (selector_of(fileno) != selector_afs) return afs_status::invalid;
    if (dfs_context == nullptr) return afs_status::not_found;
    return fold_read(afs_deletefile(dfs_context, static_cast<int32_t>(fileno)));
}

uint32_t dfs_mark_zombie_file(uint32_t fileno)
{
    return afs_mark_zombie_file(dfs_context, static_cast<int32_t>(fileno));
}

uint32_t dfs_force_full_reclaim(void)
{
    return afs_force_full_reclaim(dfs_context);
}

uint32_t dfs_force_dirty_erase(void)
{
    return afs_force_dirty_erase(dfs_context);
}

uint32_t dfs_idle_reclaim(void)
{
    return afs_idle_reclaim(dfs_context);
}

uint8_t dfs_idle_reclaim_needed(void)
{
    return afs_idle_reclaim_needed(dfs_context);
}

uint8_t dfs_get_idle_reclaim_enabled(void)
{
    return afs_get_idle_reclaim_enabled(dfs_context);
}

uint32_t dfs_set_idle_reclaim_enabled(void)
{
    afs_set_idle_reclaim_enabled(dfs_context);
    return afs_status::ok;
}

uint32_t dfs_set_page_size(uint32_t page_size)
{
    if (page_size == 0 || (dfs_context != nullptr && dfs_context->files == 0)) return afs_status::invalid;
    return afs_setcache(dfs_context, page_size, cache_bytes / page_size);
}
