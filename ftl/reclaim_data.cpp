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
        std::uint32_t count = 0;
        while (count < run_max && slot + count < data_slots && chunk_in_use(ctx, first + slot + count)) ++count;
        const auto page_of = [=](std::uint32_t i) { return base_page + slot + i; };
        if (count != 0 &&
            look_at_checked_frames(eu_at(ctx, victim) + data_frame_at(slot), count, buf, page_of) == nullptr) {
            return false;
        }
        slot += std::max(count, 1U);
    }
    return true;
}

std::uint32_t move_group(afs_context* ctx, std::uint32_t victim, std::uint8_t* work)
{
    ftl_context& ftl = *ctx->ftl;
    const std::uint32_t spare = ftl.spare_eu;
    ftl_eu_entry& to = ftl.eu_table[spare];
    const std::uint32_t base_page = ftl.eu_table[victim].base_page;
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

    // Downwards, so that the cursor ends at the lowest free slot. `run` live pages begin behind `slot`.
    std::uint32_t run = 0;
    for (std::uint32_t slot = data_slots; slot-- > 0;) {
        const bool live = chunk_in_use(*ctx, first + slot);
        if (live) {
            --to.dirty;
            ++run;
        } else if (track && first + slot < ctx->chunks) {
            ftl.alloc_next = first + slot;
        }
        if (run == 0 || (live && run < run_max && slot != 0)) continue;

        const std::uint32_t run_at = live ? slot : slot + 1;
        const std::uint32_t status = ftl_copy_pages(ctx, eu_offset(victim), eu_offset(spare), run_at, run, work,
                                                    work + work_half, base_page + run_at);
        if (status != afs_status::ok) return status;
        to.free = low8(to.free - run);
        run = 0;
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
