// Reclaim of a data EU: live pages move to the same slots of the spare. What it gains is that the dead slots are blank
// again.
#include "ftl/flash_io.h"
#include "ftl/ftl_internal.h"

namespace yfs::ftl {

namespace {

// The allocator's place, which a reclaim moves and a failed one puts back.
struct cursor {
    explicit cursor(const ftl_context& ftl) : next(ftl.alloc_next), end(ftl.alloc_end), asked(ftl.alloc_flush_asked) {}
    void put_back(ftl_context& ftl) const
    {
        ftl.alloc_next = next;
        ftl.alloc_end = end;
        ftl.alloc_flush_asked = asked;
    }
    std::uint32_t next, end;
    std::uint8_t asked;
};

// A page that can't be read is found out before the spare is erased.
bool all_live_pages_readable(const afs_context& ctx, std::uint32_t victim, std::uint8_t* buf)
{
    const std::uint32_t base_page = ctx.ftl->eu_table[victim].base_page;
    const std::uint32_t first = first_index(ctx, victim);
    for (std::uint32_t slot = 0; slot < data_slots;) {
        const std::uint32_t left = data_slots - slot;
        const std::uint32_t count = in_use_ahead(ctx, first + slot, std::min(left, run_max));
        const auto page_of = [=](std::uint32_t i) { return base_page + slot + i; };
        if (count != 0 &&
            look_at_checked_frames(eu_at(ctx, victim) + data_frame_at(slot), count, buf, page_of) == nullptr) {
            return false;
        }
        slot += count != 0 ? count : unused_ahead(ctx, first + slot, left);
    }
    return true;
}

// The copies of a run. On the library's own chip its frames are as all_live_pages_readable has found them: nothing but
// the spare was changed since.
std::uint32_t copy_run(afs_context* ctx, std::uint32_t victim, std::uint32_t slot, std::uint32_t count,
                       std::uint8_t* work)
{
    const std::uint32_t spare = ctx->ftl->spare_eu;
    const std::uint8_t* const seen = chip::in_place(eu_at(*ctx, victim) + data_frame_at(slot), count * frame_size);
    if (seen != nullptr) return put_copies(eu_at(*ctx, spare), slot, count, seen, work, work + work_half);
    return ftl_copy_pages(ctx, eu_offset(victim), eu_offset(spare), slot, count, work, work + work_half,
                          ctx->ftl->eu_table[victim].base_page + slot);
}

std::uint32_t move_group(afs_context* ctx, std::uint32_t victim, std::uint8_t* work)
{
    ftl_context& ftl = *ctx->ftl;
    const std::uint32_t spare = ftl.spare_eu;
    ftl_eu_entry& to = ftl.eu_table[spare];
    const std::uint32_t first = first_index(*ctx, victim);

    ftl.alloc_flush_asked = 0;
    if (!erase_eu(eu_at(*ctx, spare))) return afs_status::failed;
    // Slots behind the last chunk hold nothing and can't be gained.
    to.dirty = low8(end_index(*ctx, victim) - first);
    to.free = to.dirty;

    // Without an open group the allocator goes on in this one.
    const bool track = ftl.alloc_next == ftl.alloc_end || ftl.alloc_next == none;
    if (track) {
        ftl.alloc_next = none;
        ftl.alloc_end = end_index(*ctx, victim);
    }

    // Downwards, so that the cursor ends at the lowest free slot.
    for (std::uint32_t slot = data_slots; slot != 0;) {
        const std::uint32_t run = in_use_down(*ctx, first + slot - 1, std::min(slot, run_max));
        if (run == 0) {
            slot -= unused_down(*ctx, first + slot - 1, slot);
            if (track && first + slot < ctx->chunks) ftl.alloc_next = first + slot;
            continue;
        }
        slot -= run;
        to.dirty = low8(to.dirty - run);
        if (const std::uint32_t status = copy_run(ctx, victim, slot, run, work); status != afs_status::ok)
            return status;
        to.free = low8(to.free - run);
    }

    return reclaim_eu_write_eu_header(ctx, spare, victim, eu_offset(spare), eu_offset(victim));
}

} // namespace

std::uint32_t reclaim_data_eu(afs_context* ctx, std::uint32_t victim, std::uint8_t* work)
{
    if (!all_live_pages_readable(*ctx, victim, work)) return afs_status::failed;
    const cursor before(*ctx->ftl);
    const std::uint32_t status = move_group(ctx, victim, work);
    if (status != afs_status::ok) {
        before.put_back(*ctx->ftl);
        return status;
    }
    return ctx->ftl->alloc_next == none ? afs_status::nothing_gained : afs_status::ok;
}

} // namespace yfs::ftl
