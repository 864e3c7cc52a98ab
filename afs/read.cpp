// Sizes and contents. Chunks that are neighbours on flash are read in one run and go to the caller from where they are
// checked: the flash itself, or the staging buffer, 66 bytes a page with their CRCs. How far a run goes follows from a
// staging buffer that is filled run by run, 64 bytes a page, and emptied when it is nearly full.
#include "afs/chain_step.h"
#include "ftl/ftl_internal.h"

#include <algorithm>

namespace yfs::afs {

namespace {

// A run that has reached this many raw bytes in staging can still take the page in hand.
constexpr std::uint32_t page_raw_bytes = 66;
constexpr std::uint32_t run_limit = staging_bytes - page_raw_bytes;
// Beyond this fill the buffer counts as emptied.
constexpr std::uint32_t fill_limit = staging_bytes - 5 * page_raw_bytes;
static_assert(run_limit == 0xFBE && fill_limit == 0xEB6);

struct reading {
    afs_context& ctx;
    std::uint32_t offset;
    std::uint32_t wanted;
    std::uint8_t* buf;
    std::uint16_t cid = 0;  // chunk in hand
    std::uint16_t next = 0; // its FAT entry
    std::uint32_t pos = 0;  // file position of the chunk in hand
    std::uint32_t delivered = 0;
    std::uint32_t pending = 0; // bytes delivered since staging was last emptied
    std::uint32_t fill = 0;    // bytes of pages read since then

    bool at_last_chunk() const { return !is_chunk(next); }
};

// Neighbouring chunks that are read at once.
struct chunk_run {
    std::uint16_t first;
    std::uint32_t count;
    std::uint32_t skip; // bytes passed over in the first chunk
    std::uint32_t tail; // bytes used in the last chunk
};

std::uint32_t step_to(reading& job, std::uint16_t cid)
{
    job.cid = cid;
    return step_chain(job.ctx, cid, job.next);
}

// Passes over the chunks that end at or before the offset; only their FAT entries are touched.
std::uint32_t skip_to_offset(reading& job, std::uint16_t head, bool& past_end)
{
    std::uint32_t status = step_to(job, head);
    while (status == afs_status::ok && job.pos + chunk_bytes <= job.offset) {
        if (job.at_last_chunk()) {
            past_end = true;
            return afs_status::ok;
        }
        const std::uint32_t ahead = neighbours_ahead(job.ctx, job.next, (job.offset - job.pos) / chunk_bytes);
        if (ahead != 0) {
            job.pos += ahead * chunk_bytes;
            step_to_neighbours(job.next, ahead);
            job.cid = low16(job.next - 1);
            continue;
        }
        job.pos += chunk_bytes;
        status = step_to(job, job.next);
    }
    return status;
}

// The most chunks that a run can have: as many as the buffer still takes, and as there are bytes wanted for.
std::uint32_t longest_run(const reading& job, std::uint32_t skip)
{
    const std::uint32_t in_buffer = job.fill > run_limit ? 0 : (run_limit - job.fill) / page_raw_bytes;
    const std::uint32_t wanted = job.wanted - job.delivered;
    return std::min(in_buffer + 1, (wanted + skip + chunk_bytes - 1) / chunk_bytes);
}

// A run goes on along neighbours; where the map of chunks is known, as long as they are in use.
std::uint32_t gather_run(reading& job, chunk_run& run)
{
    const bool first = job.delivered == 0 && job.pending == 0 && job.fill == 0;
    run = {job.cid, 1, first ? job.offset % chunk_bytes : 0, 0};
    const std::uint32_t index = chunk_index(job.ctx, job.cid);
    std::uint32_t most = longest_run(job, run.skip);
    if (job.ctx.no_alloc_map == 0) most = std::min(most, in_use_ahead(job.ctx, index, most));
    while (run.count < most && job.next == job.cid + 1) {
        const std::uint32_t ahead = neighbours_ahead(job.ctx, job.next, most - run.count);
        if (ahead != 0) {
            run.count += ahead;
            step_to_neighbours(job.next, ahead);
            job.cid = low16(job.next - 1);
            continue;
        }
        if (const std::uint32_t status = step_to(job, job.next); status != afs_status::ok) return status;
        ++run.count;
    }
    run.tail = std::min<std::uint32_t>(job.next, chunk_bytes);
    return afs_status::ok;
}

std::uint32_t read_run(reading& job, const chunk_run& run)
{
    const std::uint32_t in_run = (run.count - 1) * chunk_bytes + run.tail;
    const std::uint32_t taken = std::min(in_run > run.skip ? in_run - run.skip : 0, job.wanted - job.delivered);
    const std::uint32_t status =
        ftl::read_data_run(job.ctx, chunk_va(job.ctx, run.first), run.count, job.ctx.staging + job.fill,
                           {job.buf + job.delivered, run.skip, taken});
    if (status != afs_status::ok) return status;
    job.delivered += taken;
    job.pending += taken;
    job.fill += run.count * chunk_bytes;
    return afs_status::ok;
}

std::uint32_t read_chain(reading& job, std::uint16_t head)
{
    bool past_end = false;
    std::uint32_t status = skip_to_offset(job, head, past_end);
    while (status == afs_status::ok && !past_end && job.delivered < job.wanted) {
        chunk_run run{};
        status = gather_run(job, run);
        if (status != afs_status::ok) return status;
        if (run.count == 1 && run.tail <= run.skip && job.pending == 0) break; // the offset lies behind the end

        status = read_run(job, run);
        if (status != afs_status::ok) return status;
        if (job.delivered == job.wanted || job.at_last_chunk()) break;
        if (job.fill > fill_limit) job.pending = job.fill = 0;
        status = step_to(job, job.next);
    }
    return status;
}

} // namespace

} // namespace yfs::afs

uint32_t afs_getfilesize(afs_context* ctx, int32_t file, uint32_t* size)
{
    using namespace yfs::afs;
    if (!is_file_number(ctx, file) || size == nullptr) return afs_status::invalid;
    if (ctx->file_sizes != nullptr) {
        if (ctx->file_sizes[file] == no_size) return afs_status::not_found;
        *size = ctx->file_sizes[file];
        return afs_status::ok;
    }

    uint16_t cid = 0;
    uint32_t status = step_chain(*ctx, static_cast<uint16_t>(file), cid);
    if (status != afs_status::ok) return status;
    if (cid == no_file || cid == zombie) return afs_status::not_found;
    uint32_t sum = 0;
    if (cid != empty_file) {
        while (is_chunk(cid)) {
            status = step_chain(*ctx, cid, cid);
            if (status != afs_status::ok) return status;
            sum += std::min<uint32_t>(cid, chunk_bytes);
        }
    }
    *size = sum;
    return afs_status::ok;
}

uint32_t afs_readfile(afs_context* ctx, int32_t file, uint32_t offset, uint32_t* len, void* buf)
{
    using namespace yfs::afs;
    if (!is_file_number(ctx, file) || len == nullptr || *len > INT32_MAX) return afs_status::invalid;
    uint16_t head = 0;
    uint32_t status = step_chain(*ctx, static_cast<uint16_t>(file), head);
    if (status != afs_status::ok) return status;
    if (head == no_file || head == zombie) return afs_status::not_found;
    if (head == empty_file || *len == 0) {
        *len = 0;
        return afs_status::ok;
    }
    if (buf == nullptr || ctx->staging == nullptr) return afs_status::invalid;

    reading job{.ctx = *ctx, .offset = offset, .wanted = *len, .buf = static_cast<uint8_t*>(buf)};
    status = read_chain(job, head);
    if (status == afs_status::ok) *len = job.delivered;
    return status;
}
