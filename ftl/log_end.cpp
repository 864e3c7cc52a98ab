// The end of the log where something went wrong: a cut reclaim that left programmed frames without records, a write
// that failed. What a mount does there is done here too, so that memory and flash go on agreeing.
#include "frame/blank.h"
#include "ftl/flash_io.h"
#include "ftl/ftl_internal.h"

namespace yfs::ftl {

namespace {

// Behind a torn slot the next one is lost too, since its record may be half programmed.
void skip_pair(ftl_context& ftl)
{
    ftl.log_slot = std::min(ftl.log_slot + 2, log_slots);
}

// The record of `slot`, tried several times: false if the chip never answers.
bool read_record(const afs_context& ctx, std::uint32_t slot, le16& record)
{
    for (int t = 0; t < tries; ++t) {
        if (read_flash(eu_at(ctx, ctx.ftl->log_eu) + log_record_at(slot), sizeof record, &record)) return true;
    }
    return false;
}

} // namespace

bool count_blank_frames(const afs_context& ctx, std::uint32_t& count, std::uint8_t* buf)
{
    const std::uint32_t at = eu_at(ctx, ctx.ftl->log_eu) + log_frame_at(ctx.ftl->log_slot);
    std::uint32_t blank = 0;
    for (int t = 0; t < tries && blank < count; ++t) {
        const std::uint8_t* const frames = chip::look(at, count * frame_size, buf);
        if (frames == nullptr) return false;
        std::uint32_t now = 0;
        while (now < count && is_blank<frame_size>(frames + now * frame_size)) ++now;
        blank = std::max(blank, now);
    }
    count = blank;
    return true;
}

std::uint32_t give_up_slot(afs_context& ctx)
{
    ftl_context& ftl = *ctx.ftl;
    const le16 torn = 0; // without a top bit: the slot before keeps its commit, this one never gets one
    ftl.eu_table[ftl.log_eu].free = 0;
    if (!write_verified(eu_at(ctx, ftl.log_eu) + log_record_at(ftl.log_slot), torn)) {
        pass_damaged_slot(ctx);
        return afs_status::failed;
    }
    skip_pair(ftl);
    return afs_status::ok;
}

bool is_committed(const afs_context& ctx)
{
    le16 next;
    return read_record(ctx, ctx.ftl->log_slot + 1, next) && commits_slot_before(next);
}

void pass_damaged_slot(afs_context& ctx)
{
    ftl_context& ftl = *ctx.ftl;
    le16 record;
    le16 next;
    const bool known = read_record(ctx, ftl.log_slot, record) && read_record(ctx, ftl.log_slot + 1, next);
    if (!known || commits_slot_before(next)) {
        ftl.log_slot = log_slots; // whether the slot counts isn't sure: nothing more is chained to it
        return;
    }
    const bool begun = record != log_rec_untouched && record != log_rec_end;
    if (begun) skip_pair(ftl);
}

} // namespace yfs::ftl
