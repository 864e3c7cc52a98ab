// The step that the allocator mostly takes: the slot at its cursor is free, and its unit stands in the group table. On
// the library's own chip that is seen without a call. In any other case nothing has happened, and the allocator looks
// itself: its answer is the same, and so are the accesses to a chip of a program's own, which is never looked at here.
#pragma once

#include "frame/chip.h"
#include "ftl/group_table.h"

namespace yfs::ftl {

inline bool next_slot_is_free(const afs_context& ctx)
{
    const ftl_context& ftl = *ctx.ftl;
    const std::uint32_t pos = ftl.alloc_next;
    if (pos == ftl.alloc_end || ctx.alloc_map == nullptr || pos >= ctx.chunks) return false;
    if (bit_is_set(ctx.alloc_map, pos)) return false;
    const std::uint32_t group = pos / data_slots;
    const std::uint32_t owner = listed_owner(ctx, group);
    if (owner == none) return false;
    const std::uint32_t record_at = eu_at(ctx, owner) + data_record_at(pos - group * data_slots);
    const std::uint8_t* const record = chip::in_place(record_at, 1);
    return record != nullptr && *record == data_rec_free;
}

// As afs_physical_ftl_allocate_page.
inline std::uint32_t allocate_page(afs_context& ctx, std::uint16_t& cid)
{
    if (!next_slot_is_free(ctx)) return search_free_page(ctx, cid);
    cid = low16(ctx.files + ctx.ftl->alloc_next++);
    return afs_status::ok;
}

} // namespace yfs::ftl
