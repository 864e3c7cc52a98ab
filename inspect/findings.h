// What a reader of an image can find. Every kind of finding has a stable id, a severity and its meaning in one table;
// a finding itself is numbers only, so that reading thousands of images costs no texts. Ids never change their meaning;
// tools and their users rely on them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace yfs::inspect {

enum class severity : std::uint8_t {
    info,    // what an orderly history or a power cut leaves; nothing is lost
    warning, // the volume opens and reads well, but no orderly history makes this, or a later write may suffer from it
    fault    // the volume doesn't open, or something in use is lost or wrong
};

enum class finding_id : std::uint8_t {
    image_size,
    image_tail,
    eu_two_invalid,
    eu_two_incomplete,
    eu_no_spare,
    eu_spare_not_named,
    eu_incomplete_source,
    eu_incomplete_discarded,
    eu_commit_missing,
    eu_commit_odd,
    eu_magic_old,
    eu_spare_untrusted,
    eu_seq_twice,
    eu_erase_count_odd,
    eu_erase_spread,
    eu_no_log,
    group_off_grid,
    group_outside,
    group_two_owners,
    group_no_owner,
    group_unowned,
    log_record_range,
    log_slot_torn,
    log_behind_end,
    log_tail_written,
    frame_unrecorded,
    frame_unrecorded_idle,
    volume_header_missing,
    volume_header_files,
    volume_header_size,
    volume_header_bytes,
    fat_page_crc,
    fat_head_range,
    fat_entry_range,
    fat_free_entry,
    chain_loop,
    chain_cross,
    chain_too_long,
    chain_entry_zero,
    file_too_large,
    file_zombie,
    chunk_record,
    chunk_crc,
    data_slots_begun,
    data_slots_dead,
    data_record_odd,
    efs_image_size,
    efs_file_place,
    efs_file_beyond,
    efs_file_above_spares,
    efs_file_overlap,
    bm_none,
    bm_foreign,
    bm_unsound,
    bm_marked,
    bm_superseded,
    bm_prepared,
    bm_same_sequence,
    bme_none,
    bme_torn,
    bme_old_unsound,
    bme_behind_end,
    bme_tables,
    block_header,
    block_footer,
    spare_header,
    spare_headers,
    efs_erase_spread,
    efs_chunk_crc,
    efs_file_size,
    table_unreadable,
    file_over_limit,
    count // not a finding
};

inline constexpr std::uint32_t none = 0xFFFFFFFF;

struct finding {
    finding_id id;
    std::uint32_t address = none; // byte offset in the image
    std::uint32_t eu = none, slot = none;
    std::uint32_t page = none;  // VA / 64
    std::uint32_t file = none;  // file number
    std::uint32_t chunk = none; // chunk id
    std::uint32_t block = none; // EFS: physical data block
    std::uint32_t bm = none;    // EFS: block map
    std::uint32_t value = none; // what was found; the table names it
};

struct finding_kind {
    finding_id id;
    severity level;
    std::string_view name;        // the stable id as text: "eu-two-invalid"
    std::string_view meaning;     // one line
    std::string_view explanation; // what it does to the volume, where it comes from, what helps
    std::string_view value_name;  // what `value` is; empty where it isn't set
};

// All kinds, in the order of the enumeration.
std::span<const finding_kind> finding_kinds();
const finding_kind& kind_of(finding_id id);
// The kind with this textual id; null if there is none.
const finding_kind* kind_named(std::string_view name);

inline severity severity_of(const finding& f)
{
    return kind_of(f.id).level;
}

// One line: id, place, meaning.
std::string describe(const finding& f);
std::string_view to_string(severity level);

} // namespace yfs::inspect
