// The file scan of a mount: every chain is walked once, its chunks marked in use, its bytes counted. In a sound volume
// no two chains meet. Where they do, from damage or malice, the chunks from there on are remembered as shared: they are
// never given back while the volume is mounted, and what follows them is counted once, so the scan stays linear.
#include "afs/chain_step.h"
#include "frame/memory.h"

#include <algorithm>

namespace yfs::afs {

namespace {

// What a chain still has from a chunk on.
struct chain_tail {
    std::uint32_t bytes;
    std::uint32_t steps;
};

class file_scan {
public:
    explicit file_scan(afs_context& ctx) : ctx_(ctx), seen_(ctx.alloc_map)
    {
        if (seen_ != nullptr) return;
        own_map_ =
            lt_allocate_zero<std::uint32_t>(map_words(ctx)); // opened for reading; without memory it is only slower
        seen_ = own_map_.get();
    }

    std::uint32_t run();

private:
    std::uint32_t scan_file(std::uint16_t file, std::uint16_t& head);
    std::uint32_t check_rest(std::uint32_t file);
    std::uint32_t walk_chain(std::uint16_t head, std::uint32_t& size);
    std::uint32_t share_from(std::uint16_t first);
    std::uint32_t measure(std::uint16_t first, chain_tail& rest) const;

    bool is_shared(std::uint32_t index) const
    {
        return ctx_.shared_map != nullptr && bit_is_set(ctx_.shared_map, index);
    }
    // Whether another walk, or this one, has been at the chunk; from now on it counts as seen.
    bool seen_before(std::uint32_t index)
    {
        if (seen_ == nullptr) return false;
        const bool was = bit_is_set(seen_, index);
        set_bit(seen_, index);
        return was && !checked_;
    }

    // The same for a run of neighbours from `cid` on that nobody has been at, as long as there are no shared chunks.
    std::uint32_t see_neighbours(std::uint16_t cid, std::uint32_t index)
    {
        if (ctx_.shared_map != nullptr || seen_ == nullptr || index >= ctx_.chunks) return 0;
        std::uint32_t run = neighbours_ahead(ctx_, cid, ctx_.chunks - index);
        if (!checked_) run = clear_ahead(seen_, index, run);
        set_bits(seen_, index, run);
        return run;
    }

    afs_context& ctx_;
    lt_block<std::uint32_t> own_map_;
    std::uint32_t* seen_;
    lt_block<chain_tail> tails_; // of the shared chunks
    bool checked_ = false;       // all chains were walked already
};

// What follows from `first` on, up to a chunk whose tail is known.
std::uint32_t file_scan::measure(std::uint16_t first, chain_tail& rest) const
{
    begin_walk();
    rest = {};
    for (std::uint16_t cid = first, next = 0; is_chunk(cid); cid = next) {
        const std::uint32_t index = chunk_index(ctx_, cid);
        if (is_shared(index)) {
            rest.bytes += tails_[index].bytes;
            rest.steps += tails_[index].steps;
            break;
        }
        if (const auto status = step_chain(ctx_, cid, next); status != afs_status::ok) return status;
        rest.bytes += std::min<std::uint32_t>(next, chunk_bytes);
        ++rest.steps;
    }
    return afs_status::ok;
}

// A second chain has come to `first`. A chain that comes back to itself ends here: it has no end to measure.
std::uint32_t file_scan::share_from(std::uint16_t first)
{
    if (ctx_.shared_map == nullptr) {
        auto map = lt_allocate_zero<std::uint32_t>(map_words(ctx_));
        tails_ = lt_allocate_zero<chain_tail>(ctx_.chunks);
        if (!map || !tails_) return afs_status::no_memory;
        ctx_.shared_map = map.release();
    }
    chain_tail rest{};
    if (const auto status = measure(first, rest); status != afs_status::ok) return status;

    begin_walk();
    for (std::uint16_t cid = first, next = 0; is_chunk(cid); cid = next) {
        const std::uint32_t index = chunk_index(ctx_, cid);
        if (is_shared(index)) break;
        set_bit(ctx_.shared_map, index);
        tails_[index] = rest;
        if (const auto status = step_chain(ctx_, cid, next); status != afs_status::ok) return status;
        rest.bytes -= std::min<std::uint32_t>(next, chunk_bytes);
        --rest.steps;
    }
    return afs_status::ok;
}

// Marks the chunks of one chain and adds up their bytes.
std::uint32_t file_scan::walk_chain(std::uint16_t head, std::uint32_t& size)
{
    size = 0;
    std::uint32_t steps = 0;
    for (std::uint16_t cid = head, next = 0; is_chunk(cid); cid = next) {
        const std::uint32_t index = chunk_index(ctx_, cid);
        if (const std::uint32_t run = see_neighbours(cid, index); run != 0) {
            size += run * chunk_bytes;
            steps += run;
            next = cid;
            step_to_neighbours(next, run);
            continue;
        }
        if (!is_shared(index) && seen_before(index)) {
            if (const auto status = share_from(cid); status != afs_status::ok) return status;
        }
        if (is_shared(index)) {
            size += tails_[index].bytes;
            return steps + tails_[index].steps < ctx_.chunks ? afs_status::ok : afs_status::failed;
        }
        if (const auto status = step_chain(ctx_, cid, next); status != afs_status::ok) return status;
        size += std::min<std::uint32_t>(next, chunk_bytes);
        ++steps;
    }
    return afs_status::ok;
}

// One file and its size. `head` becomes what its entry holds; a zombie is left to the caller.
std::uint32_t file_scan::scan_file(std::uint16_t file, std::uint16_t& head)
{
    if (const auto status = step_chain(ctx_, file, head); status != afs_status::ok) return status;
    if (head == no_file || head == zombie) return afs_status::ok;

    std::uint32_t size = 0;
    if (head != empty_file) {
        if (const auto status = walk_chain(head, size); status != afs_status::ok) return status;
    }
    if (ctx_.file_sizes != nullptr) ctx_.file_sizes[file] = size;
    return afs_status::ok;
}

// Whether all files from `file` on are sound, and the flash agrees with them. Changes nothing that the mount doesn't
// set anew.
std::uint32_t file_scan::check_rest(std::uint32_t file)
{
    for (std::uint16_t head = 0; file < ctx_.files; ++file) {
        if (const auto status = scan_file(low16(file), head); status != afs_status::ok) return status;
    }
    checked_ = true;
    return ctx_.no_alloc_map == 0 ? afs_physical_ftl_set_allocation_map(&ctx_) : afs_status::ok;
}

// A zombie ends with the mount; its entry reaches flash with the next flush or eviction. An eviction can come while the
// scan goes on, so before the first entry is cleared the rest is checked: a mount that fails changes no byte.
std::uint32_t file_scan::run()
{
    for (std::uint32_t file = 0; file < ctx_.files; ++file) {
        std::uint16_t head = 0;
        if (const auto status = scan_file(low16(file), head); status != afs_status::ok) return status;
        if (head != zombie) continue;
        if (!checked_) {
            if (const auto status = check_rest(file + 1); status != afs_status::ok) return status;
        }
        if (const auto status = write_fat_entry(ctx_, low16(file), no_file); status != afs_status::ok) return status;
    }
    return afs_status::ok;
}

} // namespace

std::uint32_t scan_files(afs_context& ctx)
{
    return file_scan(ctx).run();
}

} // namespace yfs::afs
