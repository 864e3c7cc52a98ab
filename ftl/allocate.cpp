// Free chunks. The cursor runs forward through one group; behind its end the next group comes from a reclaim. Before
// that the caller is asked once to flush, so that a reclaim finds everything allocated so far on flash.
#include "ftl/flash_io.h"
#include "ftl/group_table.h"
#include "ftl/next_slot.h"

namespace yfs::ftl {

// The open group is used up: ask for a flush, or open another. `ok` leaves the cursor in a group.
static std::uint32_t open_next_group(afs_context& ctx)
{
    ftl_context& ftl = *ctx.ftl;
    if (ftl.alloc_flush_asked == 0) {
        ftl.alloc_flush_asked = 1;
        return afs_status::flush_first;
    }
    const std::uint32_t status = reclaim_eu_wrapper(&ctx, kind_data);
    if (status != afs_status::ok) return status;
    // A volume without data EUs has reclaimed a log; it has no group to open.
    return ftl.alloc_next == none ? afs_status::no_space : afs_status::ok;
}

// `free` tells whether chunk `pos` can be handed out. 0 | 5.
static std::uint32_t look_at_slot(const afs_context& ctx, std::uint32_t pos, bool& free)
{
    free = false;
    if (ctx.alloc_map == nullptr || pos >= ctx.chunks || bit_is_set(ctx.alloc_map, pos)) return afs_status::ok;
    const std::uint32_t owner = owner_or_none(ctx, pos / data_slots);
    free = owner != none;
    if (!free || ctx.ftl->alloc_check_flash == 0) return afs_status::ok;

    // A trimmed page has a clear bit and a record that isn't blank: it is dead until its EU is reclaimed.
    std::uint8_t byte = data_rec_complete; // a read that brings nothing must not make the slot look free
    const std::uint8_t* const record =
        chip::look(eu_at(ctx, owner) + data_record_at(pos % data_slots), sizeof byte, &byte);
    if (record == nullptr) return afs_status::failed;
    free = *record == data_rec_free;
    return afs_status::ok;
}

std::uint32_t search_free_page(afs_context& ctx, std::uint16_t& cid)
{
    ftl_context& ftl = *ctx.ftl;
    if (ftl.alloc_next == none) {
        if (const std::uint32_t status = open_next_group(ctx); status != afs_status::ok) return status;
    }
    if (ctx.chunks == 0) return afs_status::no_space;

    std::uint32_t tried = 0;
    while (true) {
        if (ftl.alloc_next == ftl.alloc_end) {
            if (const std::uint32_t status = open_next_group(ctx); status != afs_status::ok) return status;
        }
        const std::uint32_t pos = ftl.alloc_next;
        const std::uint32_t used = in_use_ahead(ctx, pos, std::min(ftl.alloc_end - pos, ctx.chunks - tried));
        if (used != 0) {
            ftl.alloc_next = pos + used;
            tried += used;
            if (tried == ctx.chunks) return afs_status::no_space;
            continue;
        }
        bool free = false;
        if (const std::uint32_t status = look_at_slot(ctx, pos, free); status != afs_status::ok) return status;
        ftl.alloc_next = pos + 1;
        if (free) {
            cid = low16(ctx.files + pos);
            return afs_status::ok;
        }
        if (++tried == ctx.chunks) return afs_status::no_space;
    }
}

} // namespace yfs::ftl

uint32_t afs_physical_ftl_allocate_page(struct afs_context* ctx, uint16_t* cid)
{
    return yfs::ftl::allocate_page(*ctx, *cid);
}
