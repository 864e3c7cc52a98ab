// The end of a mount: what the file chains reach is known, so the slots of the data EUs can be told apart. Allocation
// starts in the newest data EU that has a free slot.
#include "ftl/flash_io.h"
#include "ftl/ftl_internal.h"

namespace yfs::ftl {

namespace {

struct open_group {
    std::uint32_t seq = 0; // of the newest EU with free slots so far
};

// A data EU whose group lies outside the volume speaks for pages that don't exist. The last group may reach beyond the
// last chunk; such slots are never handed out.
bool group_inside_volume(const afs_context& ctx, std::uint32_t eu)
{
    const std::uint32_t base_page = ctx.ftl->eu_table[eu].base_page;
    return base_page >= fat_pages(ctx) && base_page - fat_pages(ctx) <= ctx.chunks;
}

bool all_are(std::uint8_t record, const std::uint8_t* rec, std::uint32_t count)
{
    return count == 0 || (rec[0] == record && std::memcmp(rec, rec + 1, count - 1) == 0);
}

std::uint32_t count_slots(afs_context& ctx, std::uint32_t eu, open_group& newest)
{
    ftl_context& ftl = *ctx.ftl;
    ftl_eu_entry& entry = ftl.eu_table[eu];
    entry.dirty = low8(end_index(ctx, eu) - first_index(ctx, eu)); // slots behind the last chunk can't be gained
    entry.free = 0;
    std::uint8_t buf[data_slots];
    const std::uint8_t* const rec = chip::look(eu_at(ctx, eu) + data_record_at(0), sizeof buf, buf);
    if (rec == nullptr) return afs_status::failed;

    const std::uint32_t first = first_index(ctx, eu);
    std::uint32_t first_free = none;
    for (std::uint32_t k = 0, run = 0; k < data_slots; k += run) {
        run = in_use_ahead(ctx, first + k, data_slots - k);
        if (run != 0) {
            if (!all_are(data_rec_complete, rec + k, run)) return afs_status::failed;
            entry.dirty = low8(entry.dirty - run);
            continue;
        }
        run = unused_ahead(ctx, first + k, data_slots - k);
        // What isn't blank is dead until a reclaim, and what lies behind the last chunk is never handed out.
        const std::uint32_t usable = first + k < ctx.chunks ? std::min<std::uint32_t>(run, ctx.chunks - first - k) : 0;
        const bool blank = all_are(data_rec_free, rec + k, usable);
        for (std::uint32_t i = k; i < k + usable; ++i) {
            if (!blank && rec[i] != data_rec_free) continue;
            if (first_free == none) first_free = i;
            entry.free = low8(entry.free + (blank ? usable : 1));
            if (blank) break;
        }
    }
    if (entry.free != 0 && entry.seq > newest.seq) {
        newest.seq = entry.seq;
        ftl.alloc_next = first + first_free;
        ftl.alloc_end = end_index(ctx, eu);
    }
    return afs_status::ok;
}

} // namespace

} // namespace yfs::ftl

uint32_t afs_physical_ftl_set_allocation_map(struct afs_context* ctx)
{
    using namespace yfs::ftl;
    ftl_context& ftl = *ctx->ftl;
    ftl.alloc_flush_asked = 0;
    ftl.alloc_next = none;

    open_group newest;
    for (uint32_t eu = 0; eu < ftl.eu_count; ++eu) {
        if (!is_data_eu(ftl, eu)) continue;
        if (!group_inside_volume(*ctx, eu)) return afs_status::failed;
        if (const uint32_t status = count_slots(*ctx, eu, newest); status != afs_status::ok) return status;
    }
    ftl.alloc_check_flash = 1;
    return afs_status::ok;
}
