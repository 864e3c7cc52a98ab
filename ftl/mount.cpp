// The mount: reads every EU's header, walks the logs, and settles a reclaim that a power cut interrupted. It writes
// nothing; what the headers say is the whole state.
#include "frame/blank.h"
#include "frame/medium_bound.h"
#include "frame/memory.h"
#include "ftl/flash_io.h"
#include "ftl/ftl_internal.h"
#include "yfs/medium.h"

#include <algorithm>

namespace yfs::ftl {

namespace {

// A header that was cut inside its erase count, or before it, can pass its 8-bit CRC by chance. The bytes that are
// missing read 0xFF, so the count is at least this, which no unit reaches by wear.
constexpr std::uint32_t torn_erase_count = 0xFF000000;

struct header_scan {
    std::uint32_t incomplete_eu = none; // valid header, commit byte still 0xFF
    std::uint32_t invalid_eu = none;    // no valid header: the spare, in the normal state
    std::uint16_t newest_src = 0;       // who became spare when the newest header was written
    std::uint16_t incomplete_src = 0;
    std::uint16_t incomplete_rec0 = 0;
    std::uint16_t log_last_page = 0;
    bool rebuild_erase = false; // the spare's erase count can't be trusted
};

// The 20 bytes that tell an EU's state: the header, and the first record if it is a log EU.
struct eu_start_t {
    eu_header_t header;
    le16 rec0;
};
static_assert(sizeof(eu_start_t) == 20 && flash_record<eu_start_t>);

bool crc_matches_with(const eu_header_t& header, std::uint32_t magic)
{
    eu_header_t as_if = header;
    as_if.magic = magic;
    return crc8(&as_if, header_crc_bytes) == header.crc;
}

bool is_valid(const eu_header_t& header)
{
    if (header.seq == 0 || header.erase_count == 0) return false;
    const std::uint32_t magic = header.magic;
    if (magic == eu_magic_old && crc_matches_with(header, eu_magic_old)) return true;
    const bool accepted = magic == eu_magic || magic == eu_magic_old || magic == eu_magic_alt;
    return accepted && crc_matches_with(header, eu_magic);
}

// A given-up header keeps its CRC, which was taken while its magic stood.
bool erase_count_trusted(const eu_header_t& header)
{
    return header.magic == eu_magic_given_up &&
           (crc_matches_with(header, eu_magic) || crc_matches_with(header, eu_magic_old));
}

void mark_blank_log(ftl_eu_entry& entry)
{
    entry.dirty = log_slots;
    entry.free = 1;
}

std::uint32_t allocate_tables(afs_context& ctx, std::uint32_t eus)
{
    release_ftl(&ctx);
    auto ftl = lt_allocate_zero<ftl_context>(1);
    auto eu_table = lt_allocate_zero<ftl_eu_entry>(std::max(eus, 1U));
    auto page_map = lt_allocate<ftl_page_entry>(std::max(fat_pages(ctx), 1U));
    if (!ftl || !eu_table || !page_map) return afs_status::no_memory;
    ftl[0].eu_table = eu_table.release();
    ftl[0].page_map = page_map.release();
    ftl[0].eu_entries = eus;
    ftl[0].page_entries = fat_pages(ctx);
    ctx.ftl = ftl.release();
    return afs_status::ok;
}

static_assert(not_mapped == 0xFF && sizeof(ftl_page_entry) == 2);

void reset(afs_context& ctx, std::uint32_t eus, std::uint32_t data_eus)
{
    ftl_context& ftl = *ctx.ftl;
    lay_erased(&ftl.page_map->eu, mapped_pages(ctx) * sizeof(ftl_page_entry)); // not_mapped in every byte
    std::fill_n(ftl.eu_table, eus, ftl_eu_entry{});
    ftl.seq = eus - 1;
    ftl.log_eu = none;
    ftl.log_slot = 0;
    ftl.alloc_next = 0;
    ftl.alloc_end = 0;
    ftl.spare_eu = 0x00FF;
    ftl.last_page = 0;
    ftl.alloc_check_flash = 0;
    ftl.alloc_flush_asked = 0;
    ftl.eu_count = low8(eus);
    ftl.log_eu_count = low8(eus - data_eus - 1);
    ftl.full_reclaim_next = 0;
    ftl.missing_commit = 0;
    ftl.missing_commit_eu = 0;
    forget_owners(ftl);
}

std::uint32_t take_invalid(ftl_context& ftl, header_scan& scan, std::uint32_t eu, const eu_header_t& header)
{
    if (scan.invalid_eu != none) return afs_status::failed;
    scan.invalid_eu = eu;
    ftl.spare_eu = low16(eu);
    if (!erase_count_trusted(header)) scan.rebuild_erase = true;
    return afs_status::ok;
}

std::uint32_t take_incomplete(ftl_context& ftl, header_scan& scan, std::uint32_t eu, const eu_start_t& start)
{
    if (scan.incomplete_eu != none) return afs_status::failed;
    scan.incomplete_eu = eu;
    scan.incomplete_src = start.header.src_eu;
    scan.incomplete_rec0 = start.rec0;
    ftl.eu_table[eu].base_page = start.header.base_page;
    return afs_status::ok;
}

std::uint32_t take_committed(afs_context& ctx, header_scan& scan, std::uint32_t eu, const eu_start_t& start)
{
    ftl_context& ftl = *ctx.ftl;
    ftl_eu_entry& entry = ftl.eu_table[eu];
    entry.base_page = start.header.base_page;
    if (entry.seq >= ftl.seq) {
        ftl.seq = entry.seq;
        scan.newest_src = start.header.src_eu;
    }
    if (entry.base_page != 0) return afs_status::ok;
    if (start.rec0 == log_rec_untouched) {
        mark_blank_log(entry);
        return afs_status::ok;
    }
    if (ftl.log_eu != none && entry.seq < ftl.eu_table[ftl.log_eu].seq) return ftl_process_pages(&ctx, eu, 0);

    ftl.log_eu = eu;
    const std::uint32_t status = ftl_process_pages(&ctx, eu, 1);
    scan.log_last_page = ftl.last_page;
    return status;
}

std::uint32_t scan_headers(afs_context& ctx, header_scan& scan)
{
    ftl_context& ftl = *ctx.ftl;
    for (std::uint32_t eu = 0; eu < ftl.eu_count; ++eu) {
        eu_start_t start;
        if (!read_flash(eu_at(ctx, eu), sizeof start, &start)) return afs_status::failed;
        ftl.eu_table[eu].seq = start.header.seq;
        ftl.eu_table[eu].erase_count = start.header.erase_count;

        std::uint32_t status;
        if (!is_valid(start.header)) {
            status = take_invalid(ftl, scan, eu, start.header);
        } else if (start.header.commit == not_committed) {
            status = take_incomplete(ftl, scan, eu, start);
        } else {
            status = take_committed(ctx, scan, eu, start);
        }
        if (status != afs_status::ok) return status;
    }
    return afs_status::ok;
}

// The cut fell between giving up the source and the commit byte: the new EU counts as done.
std::uint32_t adopt_incomplete(afs_context& ctx, const header_scan& scan)
{
    ftl_context& ftl = *ctx.ftl;
    const std::uint32_t eu = scan.incomplete_eu;
    if (scan.incomplete_src != scan.invalid_eu) return afs_status::failed;

    ftl_eu_entry& entry = ftl.eu_table[eu];
    ftl.seq = entry.seq;
    ftl.missing_commit = 1;
    ftl.missing_commit_eu = low8(eu);
    if (entry.base_page != 0) return afs_status::ok;
    if (scan.incomplete_rec0 == log_rec_untouched) {
        mark_blank_log(entry);
        return afs_status::ok;
    }
    ftl.log_eu = eu;
    return ftl_process_pages(&ctx, eu, 1); // without a committed record its chain begins at 0, as every walk takes it
}

std::uint32_t settle_interrupted_reclaim(afs_context& ctx, header_scan& scan)
{
    ftl_context& ftl = *ctx.ftl;
    const bool incomplete = scan.incomplete_eu != none;
    const bool invalid = scan.invalid_eu != none;
    if (incomplete && invalid) return adopt_incomplete(ctx, scan);
    if (invalid) return scan.invalid_eu == scan.newest_src ? afs_status::ok : afs_status::failed;
    if (!incomplete) return afs_status::failed; // no spare

    // The cut fell before the source was given up: the source still stands, the new EU is the spare again.
    ftl_eu_entry& entry = ftl.eu_table[scan.incomplete_eu];
    entry.base_page = 0;
    ftl.spare_eu = low16(scan.incomplete_eu);
    if (entry.erase_count >= torn_erase_count) scan.rebuild_erase = true;
    return afs_status::ok;
}

// All logs are blank, as after a format: writing starts in the oldest.
void choose_first_log(ftl_context& ftl)
{
    std::uint32_t lowest = none;
    for (std::uint32_t eu = 0; eu < ftl.eu_count; ++eu) {
        const ftl_eu_entry& entry = ftl.eu_table[eu];
        if (entry.base_page == 0 && entry.seq < lowest) {
            lowest = entry.seq;
            ftl.log_eu = eu;
        }
    }
}

void average_spare_erase_count(ftl_context& ftl)
{
    if (ftl.spare_eu >= ftl.eu_count || ftl.eu_count < 2) return;
    std::uint64_t sum = 0;
    for (std::uint32_t eu = 0; eu < ftl.eu_count; ++eu) {
        if (eu != ftl.spare_eu) sum += ftl.eu_table[eu].erase_count;
    }
    ftl.eu_table[ftl.spare_eu].erase_count = low32(sum / (ftl.eu_count - 1U));
}

} // namespace

std::uint32_t finish_interrupted_reclaim(afs_context* ctx)
{
    ftl_context& ftl = *ctx->ftl;
    if (ftl.missing_commit == 0) return afs_status::ok;
    const std::uint32_t at =
        eu_at(*ctx, ftl.missing_commit_eu) + static_cast<std::uint32_t>(offsetof(eu_header_t, commit));
    if (!write_verified(at, committed)) return afs_status::failed;
    ftl.missing_commit = 0;
    return afs_status::ok;
}

void release_ftl(afs_context* ctx)
{
    if (ctx->ftl == nullptr) return;
    lt_release(ctx->ftl->eu_table);
    lt_release(ctx->ftl->page_map);
    lt_release(ctx->ftl);
}

} // namespace yfs::ftl

uint32_t afs_physical_ftl_init(struct afs_context* ctx, uint32_t flash_size, uint32_t flags)
{
    using namespace yfs::ftl;
    if (ctx == nullptr) return afs_status::invalid;

    const uint32_t eus = flash_size / eu_size;
    const uint32_t data_eus = ctx->volume_size > ctx->fat_size ? (ctx->volume_size - ctx->fat_size) / group_bytes : 0;
    if ((flags & flag_allocate) != 0) {
        if (const uint32_t status = allocate_tables(*ctx, eus); status != afs_status::ok) return status;
    }
    if (ctx->ftl == nullptr || eus > ctx->ftl->eu_entries) return afs_status::invalid;
    reset(*ctx, eus, data_eus);
    if ((flags & flag_attach) != 0) {
        SpiFlashDrvInitialize(ctx->image);
        yfs::bound_medium(uint64_t{ctx->flash_base} + flash_size);
    }
    if (ctx->ftl->eu_count == 0) return afs_status::failed; // no EU, or 256, which the 8-bit count can't tell from none

    header_scan scan;
    if (const uint32_t status = scan_headers(*ctx, scan); status != afs_status::ok) return status;
    ctx->ftl->last_page = scan.log_last_page;
    if (const uint32_t status = settle_interrupted_reclaim(*ctx, scan); status != afs_status::ok) return status;
    if (ctx->ftl->log_eu == none) choose_first_log(*ctx->ftl);
    if (scan.rebuild_erase) average_spare_erase_count(*ctx->ftl);
    return afs_status::ok;
}

uint32_t afs_physical_ftl_get_data_vas(struct afs_context* ctx, uint32_t /*fat_bytes*/)
{
    using namespace yfs::ftl;
    const uint32_t eus = ctx->flash_size / eu_size;
    if (eus / 12 + 1 > eus) return 0;
    if (eus >= 2 && eus <= 11) return (eus - 2) * group_bytes;
    return (eus - 1 - eus / 12) * group_bytes;
}
