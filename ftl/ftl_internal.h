// What the files of this folder share. The operations with arguments of their own names are what reclaim, mount and
// allocation are made of; tests call them directly.
#pragma once

#include "ftl/chunk_bits.h"
#include "ftl/eu_layout.h"
#include "yfs/afs.h"
#include "yfs/ftl.h"
#include "yfs/status.h"

#include <algorithm>

namespace yfs::ftl {

inline constexpr std::uint32_t none = 0xFFFFFFFF;       // no EU, no cursor
inline constexpr std::uint8_t not_mapped = 0xFF;        // in both bytes of a page_map entry
inline constexpr std::uint32_t flag_allocate = 0x10000; // of afs_physical_ftl_init
inline constexpr std::uint32_t flag_attach = 0x20000;

// What a writer needs room in, and what choose_eu_to_reclaim is asked for.
inline constexpr std::uint32_t kind_log = 0;
inline constexpr std::uint32_t kind_data = 1;
inline constexpr std::uint32_t kind_any = 2; // in idle time: whatever is worth while

// What is to be done with the EU chosen.
inline constexpr std::uint32_t mode_open = 0;    // it has room as it is: write there
inline constexpr std::uint32_t mode_reclaim = 1; // move its live pages away

// Flash address of an EU, and its offset from the volume's start.
constexpr std::uint32_t eu_offset(std::uint32_t eu)
{
    return eu * eu_size;
}
inline std::uint32_t eu_at(const afs_context& ctx, std::uint32_t eu)
{
    return ctx.flash_base + eu_offset(eu);
}

inline std::uint32_t fat_pages(const afs_context& ctx)
{
    return ctx.fat_size / page_bytes;
}
inline bool is_fat_page(const afs_context& ctx, std::uint32_t va)
{
    return va < ctx.fat_size;
}
// Pages that page_map can hold an entry for: all of the FAT area, unless its tables were made for a smaller one.
inline std::uint32_t mapped_pages(const afs_context& ctx)
{
    return std::min(fat_pages(ctx), ctx.ftl->page_entries);
}

// A page of the data area, as an index into it.
inline std::uint32_t index_of(const afs_context& ctx, std::uint32_t va)
{
    return (va - ctx.fat_size) / page_bytes;
}

inline bool is_data_eu(const ftl_context& ftl, std::uint32_t eu)
{
    return ftl.eu_table[eu].base_page != 0;
}
// A data EU's first page, as an index into the data area.
inline std::uint32_t first_index(const afs_context& ctx, std::uint32_t eu)
{
    return (ctx.ftl->eu_table[eu].base_page * page_bytes - ctx.fat_size) / page_bytes;
}

// The index behind an EU's last page that can be handed out: the last group may reach beyond the last chunk.
inline std::uint32_t end_index(const afs_context& ctx, std::uint32_t eu)
{
    const std::uint32_t first = first_index(ctx, eu);
    return std::max(first, std::min<std::uint32_t>(first + data_slots, ctx.chunks));
}

// Where a data page lives: its EU by the headers, its slot by arithmetic.
struct data_place {
    std::uint32_t eu;
    std::uint32_t slot;
};
data_place find_data_page(const afs_context& ctx, std::uint32_t index);
// To be called wherever the table's base_page changes. Where an EU hands its group over to another, renew_owner is
// enough: only that group has a claimant more, and a claim that is gone shows in the table itself.
void forget_owners(ftl_context& ftl);
void renew_owner(const afs_context& ctx, std::uint16_t base_page);

// The record of a page that follows `last_page` in a log.
std::uint16_t log_record(std::uint16_t last_page, std::uint16_t page);

// Header number `eu` of a fresh format: a log EU, or with `base_page` a data EU, or with `spare` the given-up one.
eu_header_t format_header(std::uint32_t eu, std::uint16_t base_page, bool spare);
std::uint8_t header_crc(eu_header_t header);

// Walks the records of one log EU into page_map. `is_log_eu`: it is the one that takes writes, so log_slot follows.
std::uint32_t ftl_process_pages(afs_context* ctx, std::uint32_t eu, std::uint32_t is_log_eu);

// Cuts `count` to the blank frames that follow the end of the log. `buf` holds count * 66 bytes. False if the chip
// failed.
[[nodiscard]] bool count_blank_frames(const afs_context& ctx, std::uint32_t& count, std::uint8_t* buf);

// Makes the slot at the end of the log a torn one and goes on behind the pair that a mount then skips. ok | failed.
std::uint32_t give_up_slot(afs_context& ctx);

// Whether the slot at the end of the log is in force, though its commit was told as failed.
bool is_committed(const afs_context& ctx);

// After a write at the end of the log has failed: goes on where a mount of this flash would.
void pass_damaged_slot(afs_context& ctx);

// Reads `count` frames from `slot` on and packs their data at 64-byte spacing. `buf` holds count * 66 bytes.
std::uint32_t read_ftl_data_pages(afs_context* ctx, std::uint32_t eu, std::uint32_t slot, std::uint32_t count,
                                  std::uint32_t first_page, void* buf);

// Where the bytes of pages go: behind `skip` bytes that are passed over, as many as `left`.
struct page_window {
    std::uint8_t* to;
    std::uint32_t skip;
    std::uint32_t left;

    void take(const std::uint8_t* frames, std::uint32_t count);
};

// Reads `count` data pages from `va` on, as afs_physical_ftl_read_data_pages does, straight into the window. `scratch`
// holds count * 66 bytes; the window may begin there.
std::uint32_t read_data_run(const afs_context& ctx, std::uint32_t va, std::uint32_t count, std::uint8_t* scratch,
                            page_window out);

// The free chunk from the cursor on: the whole of afs_physical_ftl_allocate_page, of which allocate_page in next_slot.h
// is the short way.
std::uint32_t search_free_page(afs_context& ctx, std::uint16_t& cid);

// Gives up `count` data pages from the one with `index` on: a change in memory only.
void trim_data_pages(afs_context& ctx, std::uint32_t index, std::uint32_t count);

// Copies a run of data pages between two EUs at the same slots; records go straight to complete. Both buffers hold
// count * 66 bytes.
std::uint32_t ftl_copy_pages(afs_context* ctx, std::uint32_t src_off, std::uint32_t dst_off, std::uint32_t slot,
                             std::uint32_t count, void* buf, void* check_buf, std::uint32_t first_page);
// The second half of it: `frames` are the sound frames, in `buf` or where they stand on the flash, `to` is the flash
// address of the EU.
std::uint32_t put_copies(std::uint32_t to, std::uint32_t slot, std::uint32_t count, const std::uint8_t* frames,
                         std::uint8_t* buf, void* check_buf);

std::uint32_t reclaim_eu_wrapper(afs_context* ctx, std::uint32_t kind);
std::uint32_t choose_eu_to_reclaim(afs_context* ctx, std::uint32_t kind, bool allow_wear, std::uint32_t* mode,
                                   bool idle);
std::uint32_t reclaim_eu(afs_context* ctx, std::uint32_t eu, std::uint32_t mode);
std::uint32_t reclaim_eu_write_eu_header(afs_context* ctx, std::uint32_t dst, std::uint32_t src, std::uint32_t dst_off,
                                         std::uint32_t src_off);

// The work area of a reclaim: two halves of one block, the second for read-backs. A run fills at most one half.
inline constexpr std::uint32_t work_half = 4096;
inline constexpr std::uint32_t run_max = work_half / frame_size;
static_assert(run_max == 62);

// The two kinds of reclaim up to and including the hand-over; `work` is the work area of two halves.
std::uint32_t reclaim_data_eu(afs_context* ctx, std::uint32_t victim, std::uint8_t* work);
std::uint32_t reclaim_log_eu(afs_context* ctx, std::uint32_t victim, std::uint8_t* work);

// Writes the commit byte that a cut reclaim left missing, if the mount found one. 0 | 5.
std::uint32_t finish_interrupted_reclaim(afs_context* ctx);

// Releases ctx->ftl with its tables.
void release_ftl(afs_context* ctx);

} // namespace yfs::ftl
