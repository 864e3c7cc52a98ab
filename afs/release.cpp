// Chunks taken and given back. Giving back is a change in memory only; what it frees counts as dead until a reclaim.
#include "afs/chain_step.h"
#include "ftl/next_slot.h"

namespace yfs::afs {

std::uint32_t trim_chunk(afs_context& ctx, std::uint16_t cid)
{
    if (ctx.shared_map != nullptr && bit_is_set(ctx.shared_map, chunk_index(ctx, cid))) return afs_status::ok;
    return ctx.handler->trim_page(&ctx, chunk_va(ctx, cid), line_bytes, ctx.flash_base);
}

// A run of neighbours at once. Their entries lie in one FAT page, so that a look at the first is one at all of them.
// Only pages that go to the translation layer of this library, and none that another file has too.
std::uint32_t release_neighbours(afs_context& ctx, std::uint16_t cid, std::uint32_t most)
{
    if (ctx.shared_map != nullptr || ctx.handler->trim_page != afs_physical_spi_handler.trim_page) return 0;
    const std::uint32_t count = neighbours_ahead(ctx, cid, most);
    if (count == 0) return 0;
    const std::uint32_t index = chunk_index(ctx, cid);
    ftl::trim_data_pages(ctx, index, count);
    afs_trim_fat_page_if_needed(&ctx, low16(index));
    std::uint16_t next = cid;
    step_to_neighbours(next, count);
    return count;
}

// Whether a chunk in use has its entry in the FAT page at `page_va`. Without a map nobody can tell, so it may have.
static bool describes_used_chunk(const afs_context& ctx, std::uint32_t page_va)
{
    const std::uint32_t first = (page_va - fat_entry_at(ctx.files)) / 2;
    if (ctx.alloc_map == nullptr) return true;
    if (first > ctx.chunks) return false;
    const std::uint32_t entries = std::min(line_bytes / 2, ctx.chunks + 1U - first);
    return clear_ahead(ctx.alloc_map, first, entries) != entries;
}

// The plain search, for a volume whose chunks don't come from the FTL.
static std::uint32_t search_alloc_map(afs_context& ctx, std::uint16_t& cid)
{
    if (ctx.alloc_map == nullptr) return afs_status::no_space;
    for (std::uint32_t tried = 0; tried < ctx.chunks; ++tried) {
        if (ctx.scan_next >= ctx.chunks) ctx.scan_next = 0;
        const std::uint32_t index = ctx.scan_next;
        ctx.scan_next = index + 1 == ctx.chunks ? 0 : index + 1;
        if (chunk_in_use(ctx, index)) continue;
        set_bit(ctx.alloc_map, index);
        cid = low16(ctx.files + index);
        return afs_status::ok;
    }
    return afs_status::no_space;
}

std::uint32_t allocate_chunk(afs_context& ctx, std::uint16_t& cid)
{
    if (ctx.files == 0) return afs_status::invalid; // no volume
    return ctx.ftl_allocator == 1 ? ftl::allocate_page(ctx, cid) : search_alloc_map(ctx, cid);
}

} // namespace yfs::afs

uint32_t afs_allocate_chunk(afs_context* ctx, uint16_t* cid)
{
    return yfs::afs::allocate_chunk(*ctx, *cid);
}

uint32_t afs_release_resources(afs_context* ctx, uint16_t first, uint32_t count, const uint16_t* list, bool invalidate)
{
    using namespace yfs::afs;
    if (ctx->files == 0) return afs_status::invalid; // no volume
    if (invalidate) cache_invalidate(ctx);
    begin_walk(); // a release counts its own steps, not those of the walk before it
    uint16_t cid = first;
    for (uint32_t i = 0; i < count && is_chunk(cid); ++i) {
        if (list == nullptr) {
            const uint32_t run = release_neighbours(*ctx, cid, count - i);
            cid = yfs::low16(cid + run);
            i += run;
            if (i == count) break;
        }
        if (const uint32_t status = trim_chunk(*ctx, cid); status != afs_status::ok) return status;
        uint16_t following = 0;
        if (list != nullptr) {
            following = list[i];
        } else if (const uint32_t status = step_chain(*ctx, cid, following); status != afs_status::ok) {
            return status;
        }
        afs_trim_fat_page_if_needed(ctx, yfs::low16(chunk_index(*ctx, cid)));
        cid = following;
    }
    afs_trim_fat_page_if_needed(ctx, ctx->chunks);
    return afs_status::ok;
}

void afs_trim_fat_page_if_needed(afs_context* ctx, uint16_t chunk)
{
    using namespace yfs::afs;
    const uint32_t entry_va = fat_entry_at(uint32_t{chunk} + ctx->files);
    const uint32_t page_va = entry_va & ~(line_bytes - 1);
    if (chunk > ctx->chunks || page_va == ctx->last_fat_page) return;

    // Judged only once the walk has left it: never a page with file heads, never the last one.
    const uint32_t left = ctx->last_fat_page;
    const bool behind_heads = left >= fat_entry_at(ctx->files);
    const bool before_last = left + line_bytes < ctx->fat_size;
    if (behind_heads && before_last && !describes_used_chunk(*ctx, left)) {
        ctx->handler->trim_page(ctx, left, line_bytes, ctx->flash_base);
    }
    ctx->last_fat_page = page_va;
}
