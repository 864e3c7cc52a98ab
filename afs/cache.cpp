// The page cache: write-back, one list of lines from the most to the least recently used. Dirty lines reach flash in
// order of last use, oldest first; a file's commit rests on that order.
#include "afs/afs_internal.h"
#include "frame/memory.h"

namespace yfs::afs {

namespace {

constexpr std::uint16_t valid = line_valid;
constexpr std::uint16_t dirty = 0x2;
constexpr std::uint16_t flags = valid | dirty;
constexpr std::uint16_t end_of_list = 0xFFF;

std::uint16_t next_of(const cache_line_entry& line)
{
    return line.link >> 2;
}

void set_next(cache_line_entry& line, std::uint16_t next)
{
    line.link = low16((line.link & flags) | (next << 2));
}

std::uint8_t* bytes_of(const afs_context& ctx, std::uint16_t line)
{
    return ctx.cache_data + std::size_t{line} * line_bytes;
}

std::uint32_t write_line(afs_context& ctx, std::uint16_t line)
{
    const std::uint32_t va = ctx.line_table[line].page * line_bytes;
    return ctx.handler->write_page(&ctx, va, line_bytes, bytes_of(ctx, line), ctx.flash_base);
}

// Where a walk of the list ended: the line, and the one before it.
struct found_line {
    std::uint16_t line;
    std::uint16_t before;
    bool hit;
};

template <typename Wanted>
found_line walk_list(const afs_context& ctx, Wanted wanted)
{
    found_line at{ctx.cache_head, end_of_list, false};
    for (std::uint32_t step = 0; step <= ctx.line_count; ++step) {
        const cache_line_entry& entry = ctx.line_table[at.line];
        if (wanted(at.line, entry)) {
            at.hit = true;
            break;
        }
        if (next_of(entry) == end_of_list) break;
        at.before = at.line;
        at.line = next_of(entry);
    }
    return at;
}

void move_to_head(afs_context& ctx, const found_line& at)
{
    if (at.before == end_of_list) return; // it is the head
    set_next(ctx.line_table[at.before], next_of(ctx.line_table[at.line]));
    set_next(ctx.line_table[at.line], ctx.cache_head);
    ctx.cache_head = at.line;
}

// The least recently used line that is valid and dirty; end_of_list if none is.
std::uint16_t oldest_dirty_line(const afs_context& ctx)
{
    std::uint16_t found = end_of_list;
    walk_list(ctx, [&found](std::uint16_t line, const cache_line_entry& entry) {
        if ((entry.link & flags) == flags) found = line;
        return false;
    });
    return found;
}

} // namespace

std::uint32_t cache_at(afs_context& ctx, std::uint32_t va, std::uint8_t*& byte)
{
    if (ctx.line_table == nullptr || ctx.page_size == 0) return afs_status::bad_state;
    void* line = nullptr;
    const std::uint32_t status = cache_ptr(&ctx, low16(va / line_bytes), &line);
    if (status == afs_status::ok) byte = static_cast<std::uint8_t*>(line) + (va & (line_bytes - 1));
    return status;
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

    auto table = yfs::lt_allocate_zero<cache_line_entry>(line_count);
    auto data = yfs::lt_allocate_zero<uint8_t>(size_t{line_bytes} * line_count);
    if (!table || !data) return afs_status::no_memory; // a cache that was there stays, flushed
    yfs::lt_release(ctx->line_table);
    yfs::lt_release(ctx->cache_data);
    ctx->line_table = table.release();
    ctx->cache_data = data.release();
    ctx->line_count = yfs::low16(line_count);
    ctx->cache_head = 0;
    for (uint32_t i = 0; i < line_count; ++i) {
        set_next(ctx->line_table[i], yfs::low16(i + 1 < line_count ? i + 1 : end_of_list));
    }
    return afs_status::ok;
}

uint32_t cache_ptr(afs_context* ctx, uint16_t page, void** out)
{
    using namespace yfs::afs;
    if (ctx->line_table == nullptr || ctx->cache_data == nullptr) return afs_status::bad_state;

    const found_line at = walk_list(*ctx, [page](uint16_t, const cache_line_entry& entry) {
        return (entry.link & valid) != 0 && entry.page == page;
    });
    move_to_head(*ctx, at);
    cache_line_entry& line = ctx->line_table[at.line];
    uint8_t* bytes = bytes_of(*ctx, at.line);
    if (!at.hit) {
        if ((line.link & flags) == flags) {
            if (const uint32_t status = write_line(*ctx, at.line); status != afs_status::ok) return status;
        }
        const uint32_t va = page * line_bytes;
        const uint32_t status = ctx->handler->read_page(ctx, va, line_bytes, bytes, ctx->flash_base);
        if (status != afs_status::ok) return status;
        line.page = page;
        line.link = yfs::low16((line.link & ~flags) | valid);
    }
    *out = bytes;
    return afs_status::ok;
}

void cache_line_written(afs_context* ctx, const void* ptr)
{
    using namespace yfs::afs;
    const auto distance = static_cast<const uint8_t*>(ptr) - ctx->cache_data;
    const auto wanted = static_cast<uint32_t>(distance / line_bytes);
    const found_line at = walk_list(*ctx, [wanted](uint16_t line, const cache_line_entry&) { return line == wanted; });
    if (!at.hit) return;
    move_to_head(*ctx, at);
    ctx->line_table[at.line].link |= dirty;
}

uint32_t cache_flush(afs_context* ctx)
{
    using namespace yfs::afs;
    if (ctx->line_table == nullptr || ctx->cache_data == nullptr) return afs_status::bad_state;
    while (true) {
        const uint16_t line = oldest_dirty_line(*ctx);
        if (line == end_of_list) return afs_status::ok;
        if (const uint32_t status = write_line(*ctx, line); status != afs_status::ok) return status;
        ctx->line_table[line].link &= yfs::low16(~dirty);
    }
}

void cache_invalidate(afs_context* ctx)
{
    using namespace yfs::afs;
    for (uint32_t i = 0; i < ctx->line_count && ctx->line_table != nullptr; ++i) {
        ctx->line_table[i].link &= yfs::low16(~valid);
    }
}
