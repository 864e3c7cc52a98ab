// Reclaim of a log EU: its live pages go to the end of the log, data first and records behind it, and often leave the
// spare blank. Until the hand-over the originals stand too; the copy in the EU with the higher sequence number wins.
#include "ftl/flash_io.h"
#include "ftl/ftl_internal.h"

#include <algorithm>
#include <array>

namespace yfs::ftl {

namespace {

constexpr std::uint16_t not_live = 0xFFFF;

// Where the log stood before the reclaim moved it on.
struct log_end {
    std::uint32_t eu;
    std::uint32_t slot;
    std::uint16_t last_page;
    std::uint8_t dirty; // of that EU
};

// The working values of one log reclaim.
struct log_move {
    afs_context& ctx;
    ftl_context& ftl;
    std::uint32_t victim;
    std::uint32_t spare;
    std::uint32_t next_blank; // where the log goes on when its EU is full; none: in the spare
    std::uint32_t live;       // live pages by the victim's count
    std::uint8_t* data;       // first half of the work area
    std::uint8_t* check;      // second half
    log_end before;
    std::uint32_t begun = none;                          // the blank EU that the log went on in
    bool before_touched = false;                         // something was programmed behind the former end of the log,
    bool begun_touched = false;                          // in the blank EU
    std::uint32_t copied = 0;                            // live pages copied so far
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

// False if the log stands in the spare already.
bool begin_new_log(log_move& move)
{
    if (move.ftl.log_eu == move.spare) return false;
    const bool in_spare = move.next_blank == none;
    move.ftl.log_eu = in_spare ? move.spare : move.next_blank;
    if (!in_spare) move.begun = move.next_blank;
    move.next_blank = none;
    move.ftl.log_slot = 0;
    move.ftl.last_page = 0;
    return true;
}

void list_live_pages(log_move& move)
{
    move.page_at_slot.fill(not_live);
    for (std::uint32_t page = 0; page < mapped_pages(move.ctx); ++page) {
        const ftl_page_entry entry = move.ftl.page_map[page];
        if (entry.slot < log_slots && entry.eu == move.victim) move.page_at_slot[entry.slot] = low16(page);
    }
}

// Length of the run of live slots that begins at `slot`, at most `room`.
std::uint32_t run_length(const log_move& move, std::uint32_t slot, std::uint32_t room)
{
    std::uint32_t count = 0;
    while (count < room && slot + count < log_slots && move.page_at_slot[slot + count] != not_live) ++count;
    return count;
}

// Live frames of the victim, perhaps in the work area. Null: they can't be read.
const std::uint8_t* look_at_run(const log_move& move, std::uint32_t slot, std::uint32_t count)
{
    const std::uint16_t* page = &move.page_at_slot[slot];
    return look_at_checked_frames(eu_at(move.ctx, move.victim) + log_frame_at(slot), count, move.data,
                                  [page](std::uint32_t i) { return page[i]; });
}

// A page that can't be read is found out before anything moves.
bool all_live_pages_readable(const log_move& move)
{
    for (std::uint32_t slot = 0; slot < log_slots;) {
        const std::uint32_t count = run_length(move, slot, run_max);
        if (count != 0 && look_at_run(move, slot, count) == nullptr) return false;
        slot += std::max(count, 1U);
    }
    return true;
}

void note_touched(log_move& move)
{
    if (move.ftl.log_eu == move.before.eu) move.before_touched = true;
    if (move.ftl.log_eu == move.begun) move.begun_touched = true;
}

// Cuts `count` to the blank frames at the end of the log. 0: that slot was given up, or the EU is full, and the caller
// tries again.
std::uint32_t find_blank_frames(log_move& move, std::uint32_t& count)
{
    ftl_context& ftl = move.ftl;
    count = std::min(count, log_slots - ftl.log_slot);
    if (!count_blank_frames(move.ctx, count, move.check)) return afs_status::failed;
    if (count != 0) return afs_status::ok;
    if (ftl.log_slot < log_slots) {
        note_touched(move);
        if (const std::uint32_t status = give_up_slot(move.ctx); status != afs_status::ok) return status;
    }
    if (ftl.log_slot == log_slots && !begin_new_log(move)) return afs_status::failed;
    return afs_status::ok;
}

std::uint32_t copy_run(log_move& move, std::uint32_t slot, std::uint32_t count)
{
    ftl_context& ftl = move.ftl;
    const std::uint16_t* page = &move.page_at_slot[slot];
    for (std::uint32_t i = 0; i < count; ++i) ftl.page_map[page[i]] = {low8(ftl.log_eu), low8(ftl.log_slot + i)};

    const std::uint32_t to = eu_at(move.ctx, ftl.log_eu);
    const std::uint8_t* const frames = look_at_run(move, slot, count);
    if (frames == nullptr) return afs_status::failed;
    note_touched(move);
    if (!write_verified(to + log_frame_at(ftl.log_slot), count * frame_size, frames, move.check)) {
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
        std::uint32_t count = run_length(move, slot, run_max);
        if (count == 0) {
            ++slot;
            continue;
        }
        if (const std::uint32_t status = find_blank_frames(move, count); status != afs_status::ok) return status;
        if (count == 0) continue;
        if (const std::uint32_t status = copy_run(move, slot, count); status != afs_status::ok) return status;
        slot += count;
        if (move.copied >= move.live) break;
        if (move.ftl.log_slot == log_slots && (!commit_last_slot(move) || !begin_new_log(move))) {
            return afs_status::failed;
        }
    }
    if (move.copied != 0 && move.ftl.log_slot != 0 && !commit_last_slot(move)) return afs_status::failed;
    return afs_status::ok;
}

// The originals are in force as before. What was programmed elsewhere than in the spare stays, so the log EUs that got
// copies take no more writes; a mount that finds the copies finds the same contents. Where a newer EU than the log's
// got some, the log is over too: a page written behind its former end would give way to its old copy in the newer EU.
void put_back(const log_move& move)
{
    ftl_context& ftl = move.ftl;
    for (std::uint32_t slot = 0; slot < log_slots; ++slot) {
        const std::uint16_t page = move.page_at_slot[slot];
        if (page != not_live) ftl.page_map[page] = {low8(move.victim), low8(slot)};
    }
    ftl.log_eu = move.before.eu;
    ftl.log_slot = move.before_touched || move.begun_touched ? log_slots : move.before.slot;
    ftl.last_page = move.before.last_page;
    if (move.before_touched) ftl.eu_table[move.before.eu].dirty = move.before.dirty;
    if (move.begun_touched) {
        ftl.eu_table[move.begun].dirty = log_slots;
        ftl.eu_table[move.begun].free = 0;
    }
}

std::uint32_t move_log(log_move& move)
{
    ftl_context& ftl = move.ftl;
    if (!erase_eu(eu_at(move.ctx, move.spare))) return afs_status::failed;
    ftl.eu_table[move.spare].dirty = log_slots;
    ftl.eu_table[move.spare].free = 1;

    const bool log_is_over = ftl.log_slot == log_slots || move.victim == ftl.log_eu || ftl.log_eu >= ftl.eu_count;
    if (log_is_over && !begin_new_log(move)) return afs_status::failed;
    if (const std::uint32_t status = copy_live_pages(move); status != afs_status::ok) return status;
    return reclaim_eu_write_eu_header(&move.ctx, move.spare, move.victim, eu_offset(move.spare),
                                      eu_offset(move.victim));
}

} // namespace

std::uint32_t reclaim_log_eu(afs_context* ctx, std::uint32_t victim, std::uint8_t* work)
{
    ftl_context& ftl = *ctx->ftl;
    const std::uint32_t victim_dirty = ftl.eu_table[victim].dirty;
    const bool has_log = ftl.log_eu < ftl.eu_count;
    log_move move{.ctx = *ctx,
                  .ftl = ftl,
                  .victim = victim,
                  .spare = ftl.spare_eu,
                  .next_blank = find_next_blank(ftl, victim),
                  .live = victim_dirty < log_slots ? log_slots - victim_dirty : 0,
                  .data = work,
                  .check = work + work_half,
                  .before = {ftl.log_eu, ftl.log_slot, ftl.last_page,
                             has_log ? ftl.eu_table[ftl.log_eu].dirty : std::uint8_t{0}}};
    list_live_pages(move);
    if (!all_live_pages_readable(move)) return afs_status::failed;

    const std::uint32_t status = move_log(move);
    if (status != afs_status::ok) {
        put_back(move);
        return status;
    }
    return victim_dirty == 0 ? afs_status::nothing_gained : afs_status::ok;
}

} // namespace yfs::ftl
