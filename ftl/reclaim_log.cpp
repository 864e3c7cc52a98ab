// Reclaim of a log EU: its live pages go to the end of the log, data first and records behind it, and often leave the
// spare blank. Until the hand-over the originals stand too; the copy in the EU with the higher sequence number wins.
#include "ftl/flash_io.h"
#include "ftl/ftl_internal.h"

#include <algorithm>
#include <array>

namespace yfs::ftl {

namespace {

constexpr std::uint16_t not_live = 0xFFFF;

// The working values of one log reclaim.
struct log_move {
    afs_context& ctx;
    ftl_context& ftl;
    std::uint32_t victim;
    std::uint32_t spare;
    std::uint32_t next_blank; // where the log goes on when its EU is full; none: in the spare
    std::uint32_t copied = 0; // live pages copied so far
    std::uint32_t live;       // live pages by the victim's count
    std::uint8_t* data;       // first half of the work area
    std::uint8_t* check;      // second half
    std::array<std::uint16_t, log_slots> page_at_slot{}; // live pages of the victim, by slot
};

// The oldest blank log EU beside spare, victim and the log itself.
std::uint32_t find_next_blank(const ftl_context& ftl, std::uint32_t victim)
{
    std::uint32_t found = none;
    for (std::uint32_t eu = 0; eu < ftl.eu_count; ++eu) {
        if (is_data_eu(ftl, eu) || eu == ftl.spare_eu || eu == ftl.log_eu || eu == victim) continue;
        if (ftl.eu_table[eu].free == 0) continue;
        if (found == none || ftl.eu_table[eu].seq < ftl.eu_table[found].seq) found = eu;
    }
    return found;
}

void begin_new_log(log_move& move)
{
    move.ftl.log_eu = move.next_blank != none ? move.next_blank : move.spare;
    move.ftl.log_slot = 0;
    move.ftl.last_page = 0;
}

void list_live_pages(log_move& move)
{
    move.page_at_slot.fill(not_live);
    for (std::uint32_t page = 0; page < mapped_pages(move.ctx); ++page) {
        const ftl_page_entry entry = move.ftl.page_map[page];
        if (entry.slot < log_slots && entry.eu == move.victim) move.page_at_slot[entry.slot] = low16(page);
    }
}

// Length of the run of live slots that begins at `slot` and fits both the work area and the rest of the log EU.
std::uint32_t run_length(const log_move& move, std::uint32_t slot)
{
    const std::uint32_t room = std::min(run_max, log_slots - move.ftl.log_slot);
    std::uint32_t count = 0;
    while (count < room && slot + count < log_slots && move.page_at_slot[slot + count] != not_live) ++count;
    return count;
}

std::uint32_t copy_run(log_move& move, std::uint32_t slot, std::uint32_t count)
{
    ftl_context& ftl = move.ftl;
    const std::uint16_t* page = &move.page_at_slot[slot];
    for (std::uint32_t i = 0; i < count; ++i) ftl.page_map[page[i]] = {low8(ftl.log_eu), low8(ftl.log_slot + i)};

    const std::uint32_t to = eu_at(move.ctx, ftl.log_eu);
    if (!read_checked_frames(eu_at(move.ctx, move.victim) + log_frame_at(slot), count, move.data,
                             [page](std::uint32_t i) { return page[i]; })) {
        return afs_status::failed;
    }
    if (!write_verified(to + log_frame_at(ftl.log_slot), count * frame_size, move.data, move.check)) {
        return afs_status::failed;
    }
    // The first record of a run clears the top bit that commits the slot before it, so runs need no commit between
    // them.
    for (std::uint32_t i = 0; i < count; ++i) {
        const le16 record = log_record(ftl.last_page, page[i]);
        store(move.data + 2 * i, record);
        ftl.last_page = page[i];
    }
    if (!write_verified(to + log_record_at(ftl.log_slot), 2 * count, move.data, move.check)) return afs_status::failed;

    ftl_eu_entry& log = ftl.eu_table[ftl.log_eu];
    log.free = 0;
    log.dirty = low8(log.dirty - count);
    ftl.log_slot += count;
    move.copied += count;
    return afs_status::ok;
}

// The last slot written has no record behind it that commits it: its commit byte goes by itself.
bool commit_last_slot(const log_move& move)
{
    return write_verified(eu_at(move.ctx, move.ftl.log_eu) + log_commit_at(move.ftl.log_slot - 1), log_commit_byte);
}

std::uint32_t copy_live_pages(log_move& move)
{
    std::uint32_t slot = 0;
    while (slot < log_slots) {
        const std::uint32_t count = run_length(move, slot);
        if (count == 0) {
            ++slot;
            continue;
        }
        if (const std::uint32_t status = copy_run(move, slot, count); status != afs_status::ok) return status;
        slot += count;
        if (move.copied >= move.live) break;
        if (move.ftl.log_slot == log_slots) {
            if (!commit_last_slot(move)) return afs_status::failed;
            begin_new_log(move);
        }
    }
    if (move.copied != 0 && move.ftl.log_slot != 0 && !commit_last_slot(move)) return afs_status::failed;
    return afs_status::ok;
}

} // namespace

std::uint32_t reclaim_log_eu(afs_context* ctx, std::uint32_t victim, std::uint8_t* work)
{
    ftl_context& ftl = *ctx->ftl;
    const std::uint32_t spare = ftl.spare_eu;
    const std::uint32_t victim_dirty = ftl.eu_table[victim].dirty;
    log_move move{.ctx = *ctx,
                  .ftl = ftl,
                  .victim = victim,
                  .spare = spare,
                  .next_blank = find_next_blank(ftl, victim),
                  .live = victim_dirty < log_slots ? log_slots - victim_dirty : 0,
                  .data = work,
                  .check = work + work_half};

    if (!erase_eu(eu_at(*ctx, spare))) return afs_status::failed;
    ftl.eu_table[spare].dirty = log_slots;
    ftl.eu_table[spare].free = 1;

    if (ftl.log_slot == log_slots || victim == ftl.log_eu || ftl.log_eu >= ftl.eu_count) begin_new_log(move);
    list_live_pages(move);
    if (const std::uint32_t status = copy_live_pages(move); status != afs_status::ok) return status;

    const std::uint32_t status = reclaim_eu_write_eu_header(ctx, spare, victim, eu_offset(spare), eu_offset(victim));
    if (status != afs_status::ok) return status;
    return victim_dirty == 0 ? afs_status::nothing_gained : afs_status::ok;
}

} // namespace yfs::ftl
