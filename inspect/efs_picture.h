// The picture of one EFS image: block maps, data blocks and the files that a table places on them, as a mount would
// take it, and what is odd about it. Made by reading alone, with the layout header and none of the code that mounts or
// writes.
#pragma once

#include "efs/layout.h"
#include "inspect/findings.h"
#include "yfs/efs.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace yfs::inspect {

// What the medium doesn't tell: the geometry it was made for, and the table of files.
struct efs_plan {
    efs::geometry geo{};
    std::uint8_t layout_id = 0;
    std::uint32_t wear_threshold = 0;
    std::vector<efs_file_t> files; // by file index; an entry not in use is no file
};

// The plan that load_autogen_data took last.
efs_plan loaded_efs_plan();

enum class bm_state : std::uint8_t {
    blank,
    prepared,   // blank header, entries behind it: a switch that was cut
    current,    // in force
    superseded, // a sound header with a lower sequence
    retired,    // header overwritten with zeros
    marked,     // the marker stands over its header
    unsound,    // a header that fails its checksum
    foreign     // sound, but for another geometry or layout
};

struct bm_view {
    bm_state state = bm_state::blank;
    efs::efs_bm_header_t header{};
    std::uint32_t slots_written = 0; // entries up to the first blank one
    std::uint32_t slots = 0;         // entries that fit
};

enum class block_role : std::uint8_t { in_use, spare_free, spare_dirty, unknown };

struct block_view {
    block_role role = block_role::unknown;
    std::uint32_t logical = none; // in use: the logical block that it holds
    bool header_sound = false;
    std::uint32_t erase_count = 0; // counts with a sound header
};

enum class efs_file_state : std::uint8_t { not_in_use, absent, present, damaged };

struct efs_file_view {
    efs_file_state state = efs_file_state::not_in_use;
    std::uint32_t size = 0;
    std::uint32_t blocks = 0; // logical blocks that it takes
};

struct efs_picture {
    std::span<const std::uint8_t> image; // the caller's, valid as long as the picture is used
    efs_plan plan;

    std::vector<bm_view> bms;
    std::uint32_t current_bm = none, sequence = 0;
    std::uint32_t current_slot = none; // the entry in force
    bool has_map = false;              // without one what follows is empty
    std::vector<std::uint8_t> valid_table, non_valid_table;
    std::vector<block_view> blocks; // by physical block
    std::uint32_t free_spares = 0, dirty_spares = 0;
    std::uint32_t lowest_count = 0, highest_count = 0; // of sound headers
    std::vector<efs_file_view> files;                  // by file index

    std::vector<finding> findings;

    bool has(finding_id id) const;
    severity worst() const;
    // No fault and no warning.
    bool clean() const { return worst() == severity::info; }
    // Byte address of a logical block's data area in the image.
    std::uint32_t data_area_at(std::uint32_t logical_block) const;
};

// Reads an image; accepts any bytes of any length and any plan, in time linear in both.
efs_picture inspect_efs(std::span<const std::uint8_t> image, efs_plan plan);

// A file's bytes as they lie. Nothing if the picture has no such file, or its size can't be told.
std::optional<std::vector<std::uint8_t>> read_file(const efs_picture& from, std::uint32_t file_index);

} // namespace yfs::inspect
