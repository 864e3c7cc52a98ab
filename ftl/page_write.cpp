// Writing and giving up pages. A page is in force with one byte, written last: for a FAT page the top bit of the next
// record, for a data page its record 0x00. The tables in memory change only after that.
#include "ftl/flash_io.h"
#include "ftl/group_table.h"

namespace yfs::ftl {

// A slot of the log whose frame is blank: the end of the log, or one behind it.
static std::uint32_t find_log_slot(afs_context& ctx)
{
    ftl_context& ftl = *ctx.ftl;
    for (std::uint32_t round = 0; round <= ftl.eu_count; ++round) {
        if (ftl.log_slot == log_slots) {
            const std::uint32_t status = reclaim_eu_wrapper(&ctx, kind_log);
            if (status != afs_status::ok) return status;
        }
        if (ftl.log_eu >= ftl.eu_count) return afs_status::failed; // no log to write to
        while (ftl.log_slot < log_slots) {
            std::uint8_t frame[frame_size];
            std::uint32_t blank = 1;
            if (!count_blank_frames(ctx, blank, frame)) return afs_status::failed;
            if (blank != 0) return afs_status::ok;
            if (const std::uint32_t status = give_up_slot(ctx); status != afs_status::ok) return status;
        }
    }
    return afs_status::failed;
}

// A cut before the commit leaves a torn slot, and the older copy stays in force; after it the new copy is.
static std::uint32_t write_log_page(afs_context& ctx, std::uint16_t page, const std::uint8_t* data)
{
    ftl_context& ftl = *ctx.ftl;
    const le16 crc = page_crc(data, page);
    if (page >= mapped_pages(ctx)) return afs_status::failed;
    if (const std::uint32_t status = find_log_slot(ctx); status != afs_status::ok) return status;

    ftl_eu_entry& log = ftl.eu_table[ftl.log_eu];
    const unit_access eu(eu_at(ctx, ftl.log_eu));
    const le16 record = log_record(ftl.last_page, page);
    log.free = 0;
    if (!eu.write_verified(log_record_at(ftl.log_slot), record) ||
        !eu.write_frame(log_frame_at(ftl.log_slot), data, crc) ||
        // COMMIT: before this byte the slot doesn't exist for a mount, after it the slot is in force.
        (!eu.write_verified(log_commit_at(ftl.log_slot), log_commit_byte) && !is_committed(ctx))) {
        pass_damaged_slot(ctx);
        return afs_status::failed;
    }

    ftl_page_entry& entry = ftl.page_map[page];
    if (entry.slot != not_mapped) ++ftl.eu_table[entry.eu].dirty;
    entry = {low8(ftl.log_eu), low8(ftl.log_slot)};
    ++ftl.log_slot;
    ftl.last_page = page;
    --log.dirty;
    return afs_status::ok;
}

// A data slot is written once between two reclaims. A cut leaves a dead slot; the FAT decides whether a complete page
// counts, so nothing is lost by it.
static std::uint32_t write_data_page(afs_context& ctx, std::uint32_t va, const std::uint8_t* data)
{
    ftl_context& ftl = *ctx.ftl;
    const le16 crc = page_crc(data, va / page_bytes);
    const std::uint32_t index = index_of(ctx, va);
    if (ctx.alloc_map == nullptr || index >= ctx.chunks) return afs_status::failed;
    const std::uint32_t owner = owner_or_none(ctx, index / data_slots);
    if (owner == none) return afs_status::failed;
    ftl_eu_entry& entry = ftl.eu_table[owner];
    const std::uint32_t slot = index % data_slots;
    const unit_access eu(eu_at(ctx, owner));
    std::uint8_t record = data_rec_complete; // a read that brings nothing must not make the slot look free
    if (!eu.read(data_record_at(slot), record) || record != data_rec_free) return afs_status::failed;

    if (!eu.write_verified(data_record_at(slot), data_rec_begun)) {
        // It may have landed all the same. A slot that isn't free must not count as one, or this EU would be taken for
        // one with room until the next mount.
        ftl.alloc_check_flash = 1;
        record = data_rec_begun;
        if (!eu.read(data_record_at(slot), record) || record != data_rec_free) --entry.free;
        return afs_status::failed;
    }
    --entry.free;
    if (!eu.write_frame(data_frame_at(slot), data, crc)) return afs_status::failed;
    if (!eu.write_verified(data_record_at(slot), data_rec_complete)) return afs_status::failed;

    set_bit(ctx.alloc_map, index);
    --entry.dirty;
    return afs_status::ok;
}

static void trim_fat_page(const afs_context& ctx, std::uint32_t page)
{
    ftl_context& ftl = *ctx.ftl;
    if (page >= mapped_pages(ctx)) return;
    ftl_page_entry& entry = ftl.page_map[page];
    if (entry.eu == not_mapped || entry.slot == not_mapped) return;
    ++ftl.eu_table[entry.eu].dirty;
    entry = {not_mapped, not_mapped};
}

// A group's chunks at a time.
void trim_data_pages(afs_context& ctx, std::uint32_t index, std::uint32_t count)
{
    ftl_context& ftl = *ctx.ftl;
    const std::uint32_t open_group = ftl.alloc_next / data_slots;
    for (std::uint32_t here = 0; count != 0; index += here, count -= here) {
        const std::uint32_t group = index / data_slots;
        here = std::min(count, data_slots - index % data_slots);
        if (group == open_group) ftl.alloc_check_flash = 1;
        const std::uint32_t trimmed = clear_in_use(ctx, index, here);
        if (trimmed == 0) continue;
        const std::uint32_t owner = owner_or_none(ctx, group);
        if (owner != none) ftl.eu_table[owner].dirty = low8(ftl.eu_table[owner].dirty + trimmed);
    }
}

std::uint32_t put_copies(std::uint32_t to, std::uint32_t slot, std::uint32_t count, const std::uint8_t* frames,
                         std::uint8_t* buf, void* check_buf)
{
    if (!write_verified(to + data_frame_at(slot), count * frame_size, frames, check_buf)) return afs_status::failed;
    // Nothing refers to the copies before the hand-over, so their records go straight to complete.
    std::memset(buf, data_rec_complete, count);
    if (!write_verified(to + data_record_at(slot), count, buf, check_buf)) return afs_status::failed;
    return afs_status::ok;
}

std::uint32_t ftl_copy_pages(afs_context* ctx, std::uint32_t src_off, std::uint32_t dst_off, std::uint32_t slot,
                             std::uint32_t count, void* buf, void* check_buf, std::uint32_t first_page)
{
    auto* bytes = static_cast<std::uint8_t*>(buf);
    const std::uint32_t from = ctx->flash_base + src_off;
    const std::uint8_t* const frames = look_at_checked_frames(from + data_frame_at(slot), count, bytes,
                                                              [first_page](std::uint32_t i) { return first_page + i; });
    if (frames == nullptr) return afs_status::failed;
    return put_copies(ctx->flash_base + dst_off, slot, count, frames, bytes, check_buf);
}

} // namespace yfs::ftl

uint32_t afs_physical_ftl_write_page(struct afs_context* ctx, uint32_t va, uint32_t /*len*/, const void* buf,
                                     uint32_t /*flash_base*/)
{
    using namespace yfs::ftl;
    if (ctx->ftl == nullptr) return afs_status::invalid; // not mounted
    const auto* const data = static_cast<const std::uint8_t*>(buf);
    if (is_fat_page(*ctx, va)) return write_log_page(*ctx, yfs::low16(va / page_bytes), data);
    return write_data_page(*ctx, va, data);
}

uint32_t afs_physical_ftl_trim_page(struct afs_context* ctx, uint32_t va, uint32_t /*len*/, uint32_t /*flash_base*/)
{
    using namespace yfs::ftl;
    if (ctx->ftl == nullptr) return afs_status::invalid; // not mounted
    if (is_fat_page(*ctx, va)) {
        trim_fat_page(*ctx, va / page_bytes);
    } else {
        trim_data_pages(*ctx, index_of(*ctx, va), 1);
    }
    return afs_status::ok;
}
