// The page cache: write-back, one list of lines from the most to the least recently used. Dirty lines reach flash in
// order of last use, oldest first; a file's commit rests on that order.
#include "afs/line_order.h"
#include "frame/memory.h"

#include <cstring>

namespace yfs::afs {

namespace {

std::uint8_t* bytes_of(const afs_context& ctx, std::uint16_t line)
{
    return ctx.cache_data + std::size_t{line} * line_bytes;
}

// A chunk that the allocator of the translation layer has just given is in no file yet. Such a page reads as zeros, for
// which that layer looks at no flash; unless a program has made another thing of the map.
bool fresh_is_zeros(const afs_context& ctx, std::uint16_t page)
{
    return ctx.ftl_allocator == 1 && ctx.no_alloc_map == 0 &&
           ctx.handler->read_page == afs_physical_spi_handler.read_page &&
           !chunk_in_use(ctx, (page * line_bytes - ctx.fat_size) / line_bytes);
}

std::uint32_t write_line(afs_context& ctx, std::uint16_t line)
{
    const std::uint32_t va = ctx.line_table[line].page * line_bytes;
    return ctx.handler->write_page(&ctx, va, line_bytes, bytes_of(ctx, line), ctx.flash_base);
}

} // namespace

// A miss goes into the least recently used line, which is the most recent from then on, whatever comes of it.
std::uint32_t fetch_line(afs_context& ctx, std::uint16_t page, std::uint8_t*& bytes, line_use use)
{
    const std::uint16_t hit = find_line(ctx, page);
    if (hit != no_line) {
        use_line(ctx, hit);
        bytes = bytes_of(ctx, hit);
        return afs_status::ok;
    }
    const std::uint16_t line = least_recent_line(ctx);
    use_least_recent(ctx, line);
    if (is_dirty(ctx.line_table[line])) {
        if (const std::uint32_t status = write_line(ctx, line); status != afs_status::ok) return status;
    }
    std::uint8_t* const at = bytes_of(ctx, line);
    if (use == line_use::fresh_chunk && fresh_is_zeros(ctx, page)) {
        std::memset(at, 0, line_bytes);
    } else {
        const std::uint32_t status = ctx.handler->read_page(&ctx, page * line_bytes, line_bytes, at, ctx.flash_base);
        if (status != afs_status::ok) return status;
    }
    give_line(ctx, line, page);
    bytes = at;
    return afs_status::ok;
}

} // namespace yfs::afs

uint32_t cache_init(afs_context* ctx, uint32_t page_size, uint32_t line_count)
{
    using namespace yfs::afs;
    if (ctx == nullptr || !cache_size_allowed(page_size, line_count)) return afs_status::invalid;
    if ((ctx->line_table == nullptr) != (ctx->cache_data == nullptr)) return afs_status::bad_state;
    if (ctx->line_table != nullptr) {
        if (const uint32_t status = cache_flush(ctx); status != afs_status::ok) return status;
    }

    auto table = yfs::lt_allocate_zero<cache_line_entry>(line_table_entries(line_count));
    auto data = yfs::lt_allocate_zero<uint8_t>(size_t{line_bytes} * line_count);
    if (!table || !data) return afs_status::no_memory; // a cache that was there stays, flushed
    yfs::lt_release(ctx->line_table);
    yfs::lt_release(ctx->cache_data);
    ctx->line_table = table.release();
    ctx->cache_data = data.release();
    ctx->line_count = yfs::low16(line_count);
    begin_order(*ctx);
    return afs_status::ok;
}

uint32_t cache_ptr(afs_context* ctx, uint16_t page, void** out)
{
    using namespace yfs::afs;
    if (ctx->line_table == nullptr || ctx->cache_data == nullptr) return afs_status::bad_state;
    if (ctx->handler == nullptr) return afs_status::invalid; // no volume, and never one tried

    uint8_t* bytes = nullptr;
    const uint32_t status = fetch_line(*ctx, page, bytes);
    if (status == afs_status::ok) *out = bytes;
    return status;
}

void cache_line_written(afs_context* ctx, const void* ptr)
{
    yfs::afs::line_was_written(*ctx, static_cast<const uint8_t*>(ptr));
}

uint32_t cache_flush(afs_context* ctx)
{
    using namespace yfs::afs;
    if (ctx->line_table == nullptr || ctx->cache_data == nullptr) return afs_status::bad_state;
    for (uint16_t line = least_recent_line(*ctx); line != no_line; line = more_recent_line(*ctx, line)) {
        if (!is_dirty(ctx->line_table[line])) continue;
        if (const uint32_t status = write_line(*ctx, line); status != afs_status::ok) return status;
        ctx->line_table[line].link &= yfs::low16(~line_dirty);
    }
    return afs_status::ok;
}

void cache_invalidate(afs_context* ctx)
{
    using namespace yfs::afs;
    for (uint32_t i = 0; i < ctx->line_count && ctx->line_table != nullptr; ++i) {
        ctx->line_table[i].link &= yfs::low16(~line_valid);
    }
}
