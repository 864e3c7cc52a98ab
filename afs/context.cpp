// Ownership of a volume's memory, and the table of flash operations that AFS works through.
#include "afs/afs_internal.h"
#include "frame/memory.h"
#include "ftl/ftl_internal.h"

const afs_physical_handler afs_physical_spi_handler = {
    afs_physical_ftl_read_page,          afs_physical_ftl_write_page,        afs_physical_ftl_trim_page,
    afs_physical_ftl_force_full_reclaim, afs_physical_ftl_force_dirty_erase,
};

void afs_free_file_size_table(afs_context* ctx)
{
    if (ctx != nullptr) yfs::lt_release(ctx->file_sizes);
}

void afs_free_context(afs_context* ctx)
{
    if (ctx == nullptr) return;
    yfs::lt_release(ctx->alloc_map);
    yfs::lt_release(ctx->shared_map);
    yfs::lt_release(ctx->file_sizes);
    yfs::lt_release(ctx->line_table);
    yfs::lt_release(ctx->cache_data);
    yfs::ftl::release_ftl(ctx);
}
