// How a change comes into force: new contents go to spare blocks, which the block map in force doesn't name as holding
// anything, and one entry appended to the map decides between the old state and the new.
#include "efs/write_internal.h"
#include "frame/blank.h"
#include "yfs/efs.h"
#include "yfs/medium.h"

#include <cstring>

namespace yfs::efs {

bool working_bme::allocate(const geometry& geo)
{
    valid_ = lt_allocate_zero<std::uint8_t>(std::max(geo.valid_block_num, 1U));
    non_valid_ = lt_allocate_zero<std::uint8_t>(std::max(geo.non_valid_block_num, 1U));
    bme_.valid_table = valid_.get();
    bme_.non_valid_table = non_valid_.get();
    return valid_ && non_valid_;
}

static void copy_bme(efs_bme_t& to, const efs_bme_t& from, const geometry& geo)
{
    std::memcpy(to.valid_table, from.valid_table, geo.valid_block_num);
    std::memcpy(to.non_valid_table, from.non_valid_table, geo.non_valid_block_num);
    to.reserved0 = from.reserved0;
    to.reserved1 = from.reserved1;
    to.crc = from.crc;
}

void working_bme::copy_current(const geometry& geo)
{
    copy_bme(bme_, efs_ctx.current_bme, geo);
}

void seal_bme(efs_bme_t& bme, const geometry& geo, std::uint8_t* slot)
{
    std::memcpy(slot, bme.valid_table, geo.valid_block_num);
    std::memcpy(slot + geo.valid_block_num, bme.non_valid_table, geo.non_valid_block_num);
    bme_tail_t tail{};
    tail.reserved0 = bme.reserved0;
    tail.reserved1 = bme.reserved1;
    std::uint8_t* const tail_at = slot + geo.data_blocks();
    store(tail_at, tail);
    bme.crc = EFS_crc32(0, slot, geo.bme_bytes() - static_cast<std::uint32_t>(sizeof(le32)));
    tail.crc = bme.crc;
    store(tail_at, tail);
}

efs_bm_header_t make_bm_header(const geometry& geo, std::uint32_t sequence)
{
    efs_bm_header_t header{};
    header.version = bm_version;
    header.sku_id = g_efs_sku_id;
    header.sequence = sequence;
    header.bm_num = low8(geo.bm_num);
    header.valid_block_num = low8(geo.valid_block_num);
    header.non_valid_block_num = low8(geo.non_valid_block_num);
    header.layout_id = g_efs_layout_id;
    std::uint8_t covered[header_crc_bytes];
    std::memcpy(covered, &header, sizeof covered);
    header.crc = EFS_crc32(0, covered, sizeof covered);
    return header;
}

std::uint32_t erase_bm(std::uint32_t bm)
{
    if (const auto status = settle_undecided(); status != efs_status::ok) return status;
    efs_ctx.next_bm_state = next_bm_unknown;
    const auto crc_at = geometry::bm_at(bm) + static_cast<std::uint32_t>(offsetof(efs_bm_header_t, crc));
    const le32 no_crc = 0;
    const auto status = EFS_physical_write(crc_at, sizeof no_crc, &no_crc);
    return status != efs_status::ok ? status : EFS_physical_erase(geometry::bm_at(bm), block_bytes);
}

namespace {

// No image mounts with an entry that breaks the rule of its tables, so none is written.
bool sound_tables(const efs_bme_t& bme, const geometry& geo)
{
    return bme.valid_table != nullptr && bme.non_valid_table != nullptr &&
           each_block_once(bme.valid_table, bme.non_valid_table, geo);
}

// A free spare with the lowest erase count, the lower position on a tie. ok | integrity: none is free.
std::uint32_t select_free(const geometry& geo, std::uint32_t& position)
{
    std::uint32_t lowest = UINT32_MAX;
    bool found = false;
    for (std::uint32_t i = 0; i < geo.non_valid_block_num; ++i) {
        if (efs_ctx.block_status[i] != spare_free) continue;
        const std::uint32_t ec = efs_ctx.block_ec[efs_ctx.current_bme.non_valid_table[i]];
        if (found && ec >= lowest) continue;
        lowest = ec;
        position = i;
        found = true;
    }
    return found ? efs_status::ok : efs_status::integrity;
}

// Makes sure that the BM the switch goes to is erased.
std::uint32_t settle_next_bm(std::uint32_t next)
{
    if (efs_ctx.next_bm_state == next_bm_unknown) {
        if (const auto status = EFS_check_next_BM_state(next); status != efs_status::ok) return status;
    }
    const bool erased = efs_ctx.next_bm_state == next_bm_erased;
    efs_ctx.next_bm_state = next_bm_unknown;
    return erased ? efs_status::ok : erase_bm(next);
}

// The switch has happened on the medium; memory follows.
void adopt(const efs_bme_t& bme, const geometry& geo, std::uint32_t bm)
{
    efs_ctx.bme_offset = first_slot_at;
    ++efs_ctx.bm_sequence;
    efs_ctx.current_bm = bm;
    copy_bme(efs_ctx.current_bme, bme, geo);
}

std::uint32_t append(efs_bme_t& bme, const geometry& geo, const std::uint8_t* slot)
{
    if (const auto status = settle_undecided(); status != efs_status::ok) return status;
    const std::uint32_t at = efs_ctx.bme_offset + geo.bme_bytes();
    // COMMIT: with the last byte of the slot the new state holds; a torn slot gives way to the one before it.
    const std::uint32_t slot_at = geometry::bm_at(efs_ctx.current_bm) + at;
    const auto status = EFS_write_with_read_check(slot_at, geo.bme_bytes(), slot, 1);
    if (status != efs_status::ok) {
        efs_ctx.force_bm_switch = 1; // the slot is not written again
        void_commit(slot_at, geo.bme_bytes());
        return status;
    }
    efs_ctx.bme_offset = at;
    copy_bme(efs_ctx.current_bme, bme, geo);
    return efs_status::ok;
}

} // namespace
} // namespace yfs::efs

uint32_t EFS_select_free_page_for_write(uint32_t* position)
{
    using namespace yfs::efs;
    if (!mounted()) return efs_status::not_ready;
    if (position == nullptr) return efs_status::invalid;
    if (const auto status = need_scan(); status != efs_status::ok) return status;
    return select_free(current_geometry(), *position);
}

uint32_t EFS_bme_swap_and_write_new_block(efs_bme_t* bme, uint32_t logical_block, const void* data_area)
{
    using namespace yfs::efs;
    if (!mounted()) return efs_status::not_ready;
    const geometry geo = current_geometry();
    if (bme == nullptr || data_area == nullptr || logical_block >= geo.valid_block_num) return efs_status::invalid;
    if (!sound_tables(*bme, geo)) return efs_status::invalid;

    std::uint8_t kept[data_area_bytes];
    if (efs_ctx.scan_done == 0) { // the scan takes page_buf, where the data area may lie
        std::memcpy(kept, data_area, sizeof kept);
        data_area = kept;
        if (const auto status = need_scan(); status != efs_status::ok) return status;
    }
    std::uint32_t position = 0;
    if (const auto status = select_free(geo, position); status != efs_status::ok) return status;
    const std::uint8_t fresh = bme->non_valid_table[position];
    efs_ctx.block_status[position] = spare_dirty; // whatever follows
    --efs_ctx.free_block_count;

    if (const auto status = EFS_write_data_block(fresh, data_area); status != efs_status::ok) return status;
    bme->non_valid_table[position] = bme->valid_table[logical_block];
    bme->valid_table[logical_block] = fresh;
    return efs_status::ok;
}

uint32_t EFS_commit_BME(efs_bme_t* bme, uint32_t reserved0, uint32_t reserved1)
{
    using namespace yfs::efs;
    if (!mounted()) return efs_status::not_ready;
    const geometry geo = current_geometry();
    if (bme == nullptr || !sound_tables(*bme, geo)) return efs_status::invalid;
    const auto slot = yfs::lt_allocate<std::uint8_t>(geo.bme_bytes());
    if (!slot) return efs_status::no_memory;

    bme->reserved0 = reserved0;
    bme->reserved1 = reserved1;
    seal_bme(*bme, geo, slot.get());
    const bool room = geo.slot_fits(efs_ctx.bme_offset + geo.bme_bytes());
    if (room && efs_ctx.force_bm_switch == 0) return append(*bme, geo, slot.get());

    const auto status = EFS_switch_BM(bme);
    if (status == efs_status::ok) efs_ctx.force_bm_switch = 0;
    return status;
}

uint32_t EFS_switch_BM(efs_bme_t* bme)
{
    using namespace yfs::efs;
    if (!mounted()) return efs_status::not_ready;
    const geometry geo = current_geometry();
    if (bme == nullptr || !sound_tables(*bme, geo)) return efs_status::invalid;
    const std::uint32_t old = efs_ctx.current_bm;
    const auto slot = yfs::lt_allocate<std::uint8_t>(geo.bme_bytes());
    if (!slot) return efs_status::no_memory;
    if (efs_ctx.bm_sequence == UINT32_MAX) return efs_status::sequence_used;
    if (geo.bm_num < 2) return efs_status::integrity; // it would erase the only map
    if (const auto status = settle_undecided(); status != efs_status::ok) return status;
    const std::uint32_t next = next_bm(geo);

    if (const auto status = settle_next_bm(next); status != efs_status::ok) return status;
    seal_bme(*bme, geo, slot.get());
    auto status = EFS_write_with_read_check(geometry::bm_at(next) + first_slot_at, geo.bme_bytes(), slot.get(), 1);
    if (status != efs_status::ok) return status;

    // COMMIT: without a sound header the new BM is skipped; with it, its higher sequence wins.
    const efs_bm_header_t header = make_bm_header(geo, efs_ctx.bm_sequence + 1);
    status = EFS_write_with_read_check(geometry::bm_at(next), sizeof header, &header, 1);
    if (status != efs_status::ok) {
        void_commit(geometry::bm_at(next), sizeof header);
        return status;
    }
    adopt(*bme, geo, next);

    // The old BM retires. If that fails, two sound headers stand, and the higher sequence counts; the next change tries
    // again.
    const efs_bm_header_t retired{};
    const auto retiring = EFS_write_with_read_check(geometry::bm_at(old), sizeof retired, &retired, 0);
    if (retiring != efs_status::ok) efs_ctx.older_maps = 1;
    return efs_status::ok;
}

uint32_t EFS_check_next_BM_state(uint32_t bm)
{
    using namespace yfs::efs;
    if (mounted_otherwise()) return efs_status::not_ready;
    if (bm >= g_efs_bm_num || !current_geometry().representable()) return efs_status::invalid;
    bool dirty = false;
    const auto status =
        read_until([&] { return EFS_physical_read(geometry::bm_at(bm), block_bytes, efs_ctx.page_buf); },
                   [] { return yfs::is_blank(efs_ctx.page_buf, block_bytes); }, &dirty);
    if (status == efs_status::ok) {
        efs_ctx.next_bm_state = next_bm_erased;
        return efs_status::ok;
    }
    if (!dirty) return status;
    efs_ctx.next_bm_state = next_bm_dirty;
    return efs_status::ok;
}
