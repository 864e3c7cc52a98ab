// Changing a file. No chunk of the old chain and no FAT entry that it depends on is touched until the new chunks stand
// on flash; the switch is the one FAT page with the entry that points at them. Chunks are never rewritten: each chunk
// with a changed byte is replaced by a new one.
#include "afs/cache_miss.h"
#include "afs/chain_step.h"
#include "frame/memory.h"

#include <algorithm>

namespace yfs::afs {

namespace {

// The working values of one write. `links[0]` is the chain position whose entry gets changed; the new chunks follow in
// file order, and at the end a terminal value.
struct rewrite {
    afs_context& ctx;
    std::uint16_t file;
    std::uint32_t offset;
    std::uint32_t len;
    std::uint32_t end;
    const std::uint8_t* source;
    bool trunc;          // the file ends at `end`
    bool fresh_is_zeros; // a new chunk reads as zeros: its line needs no read

    lt_block<std::uint16_t> links;
    std::uint32_t nlinks = 0;
    std::uint16_t cur = 0;       // the old chain's value at this position: a chunk, or what ended the chain
    std::uint16_t next = 0;      // FAT entry of `cur` while it is a chunk, else 0
    std::uint16_t prev = 0;      // the position before it
    std::uint16_t old_first = 0; // first chunk of the old chain that the new chunks replace
    std::uint16_t terminal = 0;  // what the last new entry holds
    std::uint32_t pos = 0;       // file position of `cur`
    std::uint32_t consumed = 0;  // source bytes used

    std::uint32_t new_chunks() const { return nlinks == 0 ? 0 : nlinks - 1; }
};

// What the walk along the old chain ends in.
enum class outcome { relink, make_empty, keep };

std::uint32_t begin(rewrite& job)
{
    // A write of nothing changes no chain; its offset isn't bounded.
    const std::uint32_t reach = job.len != 0 || job.trunc ? job.end : 0;
    job.links = lt_allocate_zero<std::uint16_t>((reach + chunk_bytes - 1) / chunk_bytes + 2);
    if (!job.links) return afs_status::no_memory;

    std::uint16_t head = 0;
    if (const auto status = step_chain(job.ctx, job.file, head); status != afs_status::ok) return status;
    job.cur = head == zombie || head == empty_file ? no_file : head;
    job.prev = job.file;
    job.old_first = job.trunc ? job.cur : no_file;
    return afs_status::ok;
}

void step_on(rewrite& job)
{
    job.prev = job.cur;
    job.pos += chunk_bytes;
    job.cur = job.next;
}

// Passes over chunks that end before the change begins and are followed by their neighbours.
void pass_neighbours(rewrite& job)
{
    if (!is_chunk(job.cur) || job.offset < job.pos) return;
    const std::uint32_t ahead = neighbours_ahead(job.ctx, job.cur, (job.offset - job.pos) / chunk_bytes);
    if (ahead == 0) return;
    step_to_neighbours(job.cur, ahead);
    job.prev = low16(job.cur - 1);
    job.pos += ahead * chunk_bytes;
}

// The chunk ends before the change begins, and the chain goes on or the change begins right behind it.
bool unchanged(const rewrite& job)
{
    return is_chunk(job.cur) && job.offset >= job.pos + chunk_bytes &&
           (is_chunk(job.next) || job.offset <= job.pos + job.next);
}

bool ends_on_this_boundary(const rewrite& job)
{
    return job.consumed == job.len && job.offset == job.pos && job.trunc;
}

// A chunk that is only partly new: source bytes, old bytes around them, zeros where neither reaches.
std::uint32_t fill_partly(rewrite& job, std::uint8_t* line)
{
    const std::uint32_t from = std::min(job.offset > job.pos ? job.offset - job.pos : 0, chunk_bytes);
    const std::uint32_t bytes = std::min(job.len - job.consumed, chunk_bytes - from);
    const bool keeps_old = job.end > job.pos || !job.trunc;
    const std::uint32_t old_bytes = keeps_old ? std::min<std::uint32_t>(job.next, chunk_bytes) : 0;

    // A look at the old chunk is a use of its line, so it is not taken without need.
    const bool old_shows = old_bytes != 0 && (bytes == 0 || from != 0 || old_bytes > from + bytes);
    if (old_shows) {
        std::uint8_t* old = nullptr;
        const auto status = cache_at(job.ctx, chunk_va(job.ctx, job.cur), old);
        if (status != afs_status::ok) return status;
        std::memmove(line, old, old_bytes); // a chain that a program made may hold the new chunk
        std::memset(line + old_bytes, 0, chunk_bytes - old_bytes);
    } else {
        std::memset(line, 0, chunk_bytes);
    }
    if (bytes != 0) std::memcpy(line + from, job.source + job.consumed, bytes);
    job.consumed += bytes;
    return afs_status::ok;
}

// The entry that switches is that of the position before the first new chunk.
void begin_change(rewrite& job)
{
    if (job.nlinks != 0) return;
    job.links[job.nlinks++] = job.prev;
    job.old_first = job.cur;
}

// Takes a new chunk for the position in hand, whose line the caller fills. It reaches flash by eviction or with the
// flush.
template <fill how>
std::uint32_t take_line(rewrite& job, std::uint16_t& line)
{
    std::uint16_t fresh = 0;
    if (const auto status = take_chunk(job.ctx, fresh); status != afs_status::ok) return status;
    job.links[job.nlinks++] = fresh;
    const std::uint16_t page = low16(chunk_va(job.ctx, fresh) / line_bytes); // the walk has shown that there is a cache
    return line_for_fresh_chunk<how>(job.ctx, page, job.fresh_is_zeros, line);
}

std::uint32_t replace_partly(rewrite& job)
{
    std::uint16_t line = 0;
    if (const auto status = take_line<fill::partly>(job, line); status != afs_status::ok) return status;
    const auto status = fill_partly(job, bytes_of(job.ctx, line));
    if (status != afs_status::ok) return status;
    line_was_written(job.ctx, line);
    step_on(job);
    return afs_status::ok;
}

// How many positions from the one in hand on get whole new chunks and need no look at an entry: those behind the end of
// the old chain, or those of a run of neighbours in it. The line used last holds the entry of the first.
std::uint32_t whole_run(const rewrite& job)
{
    if (job.offset > job.pos) return 0;
    const std::uint32_t whole = (job.len - job.consumed) / chunk_bytes;
    if (job.cur == 0) return whole;
    return std::min(whole, std::max(neighbours_ahead(job.ctx, job.cur, whole), 1U));
}

// Replaces the chunks of such a run. The step from the first of them is taken already; a step from another is a use of
// the line with the entries, as any step is. That line stays: a cache has two lines at least, and a miss never takes
// the one used last.
std::uint32_t replace_wholly(rewrite& job, std::uint32_t count)
{
    const std::uint16_t line_of_entries = job.ctx.cache_head;
    while (true) {
        std::uint16_t line = 0;
        if (const auto status = take_line<fill::wholly>(job, line); status != afs_status::ok) return status;
        std::memcpy(bytes_of(job.ctx, line), job.source + job.consumed, chunk_bytes);
        job.consumed += chunk_bytes;
        line_was_written(job.ctx, line);
        step_on(job);
        if (--count == 0) return afs_status::ok;
        if (!is_chunk(job.cur)) continue;
        job.next = job.cur;
        step_to_neighbours(job.next, 1);
        use_line(job.ctx, line_of_entries);
    }
}

std::uint16_t bytes_in_last_chunk(std::uint32_t end)
{
    const std::uint32_t rest = end % chunk_bytes;
    return low16(rest == 0 ? chunk_bytes : rest);
}

// The new chunks point on to the old rest of the chain, or to the larger of the two byte counts.
outcome end_overwrite(rewrite& job)
{
    if (job.len == 0) return job.cur != 0 ? outcome::keep : outcome::make_empty;
    job.terminal = std::max(job.next, bytes_in_last_chunk(job.end));
    return outcome::relink;
}

outcome end_truncation(rewrite& job)
{
    if (job.offset == 0 && job.len == 0) return outcome::make_empty;
    job.terminal = bytes_in_last_chunk(job.end);
    return outcome::relink;
}

// Goes through the chain position by position: passes over what stays, puts new chunks where bytes change.
std::uint32_t build_new_chunks(rewrite& job, outcome& result)
{
    while (true) {
        if (job.consumed == job.len) {
            if (!job.trunc) { // `next` still is the entry of the last chunk replaced
                result = end_overwrite(job);
                return afs_status::ok;
            }
            if (job.offset < job.pos) {
                result = end_truncation(job);
                return afs_status::ok;
            }
        }
        pass_neighbours(job);
        job.next = 0;
        if (is_chunk(job.cur)) {
            const auto status = step_chain(job.ctx, job.cur, job.next);
            if (status != afs_status::ok) return status;
        }
        if (unchanged(job)) {
            step_on(job);
            continue;
        }
        begin_change(job);
        if (ends_on_this_boundary(job)) {
            result = end_truncation(job);
            return afs_status::ok;
        }
        const std::uint32_t run = whole_run(job);
        const auto status = run != 0 ? replace_wholly(job, run) : replace_partly(job);
        if (status != afs_status::ok) return status;
    }
}

// From the last new chunk back to the entry that switches, so that this one is the most recently used line and the last
// to be flushed. In the cache only.
std::uint32_t link_last_to_first(rewrite& job)
{
    job.links[job.nlinks] = job.terminal;
    return write_links_down(job.ctx, job.links.get(), job.nlinks++);
}

// Every cached line is dropped, FAT edits with them, and the new chunks are given back: the old chain is as it was.
void undo(rewrite& job, std::uint32_t new_chunks, outcome result)
{
    if (new_chunks != 0) {
        static_cast<void>(afs_release_resources(&job.ctx, job.links[1], new_chunks, job.links.get() + 2, true));
    } else if (result != outcome::keep) {
        cache_invalidate(&job.ctx);
    }
}

// On a damaged volume the change may hang on a chunk of several chains; then the new chunks do too, and the file that
// is deleted first must not give them back.
void share_new_chunks(const rewrite& job, std::uint32_t new_chunks)
{
    const afs_context& ctx = job.ctx;
    if (ctx.shared_map == nullptr || new_chunks == 0 || job.links[0] < ctx.files) return;
    if (!bit_is_set(ctx.shared_map, chunk_index(ctx, job.links[0]))) return;
    for (std::uint32_t i = 1; i <= new_chunks; ++i) set_bit(ctx.shared_map, chunk_index(ctx, job.links[i]));
}

// The new state is on flash: sizes and old chunks follow, in memory only.
std::uint32_t settle(rewrite& job, outcome result, std::uint32_t new_chunks)
{
    share_new_chunks(job, new_chunks);
    std::uint32_t* size = job.ctx.file_sizes != nullptr ? &job.ctx.file_sizes[job.file] : nullptr;
    if (job.len == 0 && !job.trunc) {
        if (size != nullptr && result == outcome::make_empty) *size = 0;
        return afs_status::ok;
    }
    if (size != nullptr) {
        const bool ends_here = job.trunc || *size == no_size;
        *size = ends_here ? job.end : std::max(job.end, *size);
    }
    const std::uint32_t count = job.trunc ? UINT32_MAX : new_chunks;
    return afs_release_resources(&job.ctx, job.old_first, count, nullptr, false);
}

std::uint32_t rewrite_file(rewrite& job)
{
    if (const auto status = begin(job); status != afs_status::ok) return status;

    outcome result = outcome::keep;
    auto status = build_new_chunks(job, result); // the old chain stays untouched
    const std::uint32_t new_chunks = job.new_chunks();
    if (status == afs_status::ok && result == outcome::relink) status = link_last_to_first(job);
    if (status == afs_status::ok && result == outcome::make_empty) {
        status = write_fat_entry(job.ctx, job.file, empty_file);
    }
    if (status == afs_status::ok) status = cache_flush(&job.ctx); // COMMIT: the page with the switching entry goes last
    if (status != afs_status::ok) {
        undo(job, new_chunks, result);
        return status;
    }
    return settle(job, result, new_chunks);
}

} // namespace

std::uint32_t take_chunk(afs_context& ctx, std::uint16_t& cid)
{
    for (std::uint32_t round = 0;; ++round) {
        const std::uint32_t status = allocate_chunk(ctx, cid);
        if (status != afs_status::flush_first) return status;
        if (const std::uint32_t flushed = cache_flush(&ctx); flushed != afs_status::ok) return flushed;
        // Each round opens another group, so a healthy volume needs at most one for each EU.
        const std::uint32_t rounds = ctx.ftl != nullptr ? ctx.ftl->eu_count + 1U : 1U;
        if (round == rounds) return afs_status::no_space;
    }
}

} // namespace yfs::afs

uint32_t afs_writefile(afs_context* ctx, int32_t file, uint32_t offset, uint32_t len, const void* buf, uint32_t flags)
{
    using namespace yfs::afs;
    if (!is_file_number(ctx, file)) return afs_status::invalid;
    const bool trunc = (flags & write_truncates) != 0;
    const uint32_t end = offset + len;
    if ((end > max_file_bytes || len > max_file_bytes || offset > max_file_bytes) && (trunc || len != 0)) {
        return afs_status::too_large;
    }
    if ((buf == nullptr && len != 0) || ctx->staging == nullptr) return afs_status::invalid;
    // A chain over all chunks would count as a loop: no read and no mount could take it.
    const uint32_t chunks_wanted = (end + chunk_bytes - 1) / chunk_bytes;
    if (chunks_wanted != 0 && chunks_wanted == ctx->chunks && (trunc || len != 0)) return afs_status::no_space;

    rewrite job{.ctx = *ctx,
                .file = static_cast<uint16_t>(file),
                .offset = offset,
                .len = len,
                .end = end,
                .source = static_cast<const uint8_t*>(buf),
                .trunc = trunc,
                .fresh_is_zeros = fresh_chunks_read_as_zeros(*ctx),
                .links = {}};
    return rewrite_file(job);
}
