// FAT entries: reading one and telling whether it is a value that may stand there, writing one in the cache.
#include "afs/chain_step.h"
#include "afs/line_order.h"

namespace yfs::afs {

std::uint32_t chunk_cntr = 0;

void begin_walk()
{
    chunk_cntr = 0;
}

std::uint32_t write_fat_entry_anywhere(afs_context& ctx, std::uint16_t entry, std::uint16_t value)
{
    std::uint8_t* at = nullptr;
    const std::uint32_t status = cache_at(ctx, fat_entry_at(entry), at);
    if (status != afs_status::ok) return status;
    store(at, le16(value));
    line_was_written(ctx, at);
    return afs_status::ok;
}

} // namespace yfs::afs

uint32_t afs_get_next_cid(afs_context* ctx, uint16_t cid, uint16_t* next)
{
    if (ctx->files == 0) return afs_status::invalid; // no volume
    return yfs::afs::step_chain(*ctx, cid, *next);
}
