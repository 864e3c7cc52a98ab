// FAT entries: reading one and telling whether it is a value that may stand there, writing one in the cache.
#include "afs/afs_internal.h"

namespace yfs::afs {

namespace {

// Steps of the present chain walk. A file head starts it anew; a loop is told by a walk of `chunks` steps.
std::uint32_t chunk_cntr = 0;

bool is_allowed(const afs_context& ctx, std::uint16_t entry, std::uint16_t value)
{
    const bool is_head = entry < ctx.files;
    if (value == no_file) return true;
    if (value <= last_chunk_max) return !is_head;
    if (value == zombie || value == empty_file) return is_head;
    return value >= ctx.files && value < std::uint32_t{ctx.files} + ctx.chunks;
}

} // namespace

void begin_walk()
{
    chunk_cntr = 0;
}

std::uint32_t write_fat_entry(afs_context& ctx, std::uint16_t entry, std::uint16_t value)
{
    std::uint8_t* at = nullptr;
    if (const std::uint32_t status = cache_at(ctx, fat_entry_at(entry), at); status != afs_status::ok) return status;
    store(at, le16(value));
    cache_line_written(&ctx, at);
    return afs_status::ok;
}

} // namespace yfs::afs

uint32_t afs_get_next_cid(afs_context* ctx, uint16_t cid, uint16_t* next)
{
    using namespace yfs::afs;
    if (cid < ctx->files) {
        chunk_cntr = 0;
    } else {
        ++chunk_cntr;
    }
    uint8_t* at = nullptr;
    if (const uint32_t status = cache_at(*ctx, fat_entry_at(cid), at); status != afs_status::ok) return status;
    *next = yfs::load<yfs::le16>(at);
    if (!is_allowed(*ctx, cid, *next)) return afs_status::failed;
    return chunk_cntr >= ctx->chunks ? afs_status::failed : afs_status::ok;
}
