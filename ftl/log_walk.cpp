// The walk over a log EU's records. Slot i is committed when record i + 1 has its top bit clear; a slot that was begun
// and never committed is torn, and the slot behind it is lost too, since its record may be half programmed.
#include "ftl/flash_io.h"
#include "ftl/ftl_internal.h"

namespace yfs::ftl {

std::uint16_t log_record(std::uint16_t last_page, std::uint16_t page)
{
    return low16(crc14_of_pair(last_page) ^ page);
}

// Of two copies in different EUs the newer EU's counts; in one EU the later slot.
static void map_page(ftl_context& ftl, std::uint32_t page, std::uint32_t eu, std::uint32_t slot)
{
    ftl_page_entry& entry = ftl.page_map[page];
    if (entry.slot != not_mapped) {
        ftl_eu_entry& holder = ftl.eu_table[entry.eu];
        if (holder.seq > ftl.eu_table[eu].seq) {
            ++ftl.eu_table[eu].dirty;
            return;
        }
        ++holder.dirty;
    }
    entry = {low8(eu), low8(slot)};
}

std::uint32_t ftl_process_pages(afs_context* ctx, std::uint32_t eu, std::uint32_t is_log_eu)
{
    ftl_context& ftl = *ctx->ftl;
    ftl_eu_entry& entry = ftl.eu_table[eu];
    ftl.last_page = 0;

    le16 rec[log_slots + 1];
    if (!read_flash(eu_at(*ctx, eu) + log_record_at(0), sizeof rec, rec)) return afs_status::failed;

    std::uint32_t i = 0;
    while (i < log_slots) {
        const std::uint32_t j = i + 1;
        if (!commits_slot_before(rec[j])) {
            ++entry.dirty;
            if (rec[i] == log_rec_untouched) {
                i = j;
                continue;
            }
            if (is_log_eu != 0) ftl.log_slot = j;
            if (j == log_slots) break;
            ++entry.dirty;
            i = j + 1;
            if (is_log_eu != 0) ftl.log_slot = i;
            continue;
        }
        const std::uint16_t page = log_record(ftl.last_page, rec[i]);
        ftl.last_page = page;
        if (page >= mapped_pages(*ctx)) return afs_status::failed;
        map_page(ftl, page, eu, i);
        if (rec[j] == log_rec_end) {
            if (is_log_eu != 0) ftl.log_slot = j;
            entry.dirty = low8(entry.dirty + (log_slots - 1 - i));
            break;
        }
        i = j;
        // The last slot's commit byte has more bits cleared than a write clears: the EU is full all the same.
        if (j == log_slots && is_log_eu != 0) ftl.log_slot = j;
    }
    return afs_status::ok;
}

} // namespace yfs::ftl
