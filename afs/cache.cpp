// The page cache: write-back, one list of lines from the most to the least recently used. Dirty lines reach flash in
// order of last use, oldest first; a file's commit rests on that order.
#include "afs/cache_miss.h"
#include "frame/memory.h"

namespace yfs::afs {

std::uint32_t fetch_line(afs_context& ctx, std::uint16_t page, std::uint8_t*& bytes)
{
    std::uint16_t line = find_line(ctx, page);
    if (line != no_line) {
        use_line(ctx, line);
        bytes = bytes_of(ctx, line);
        return afs_status::ok;
    }
    if (const std::uint32_t status = make_room(ctx, line); status != afs_status::ok) return status;
    std::uint8_t* const at = bytes_of(ctx, line);
    const std::uint32_t status = ctx.handler->read_page(&ctx, page * line_bytes, line_bytes, at, ctx.flash_base);
    if (status != afs_status::ok) return status;
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
