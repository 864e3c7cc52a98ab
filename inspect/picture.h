// The picture of one AFS image: what every byte of it is for, as a mount would take it, and what is odd about it. It is
// made by reading alone, with the layout headers and none of the code that reads or writes volumes.
#pragma once

#include "afs/volume_layout.h"
#include "ftl/eu_layout.h"
#include "inspect/findings.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace yfs::inspect {

enum class eu_role : std::uint8_t {
    log,
    data,
    spare,
    unknown // no valid header, and another unit is the spare; or a second uncommitted one
};

enum class slot_state : std::uint8_t {
    blank,      // free: no record (a frame without one counts as blank too, and is a finding)
    live,       // log: the newest copy of its page; data: complete and in use by a file
    stale,      // log: an older copy, or one whose record is out of range; data: complete, no file names it
    torn,       // begun and not finished; data: any record but 0xFF and 0x00 outside files
    lost,       // log: behind a torn slot, passed over with it
    unreachable // log: behind the end of the log in a unit that takes no more writes; data: behind the last chunk
};

struct slot_view {
    slot_state state = slot_state::blank;
    std::uint32_t page = none; // log: what the record names; data: base_page + slot
};

struct erase_unit {
    ftl::eu_header_t header{}; // as stored
    eu_role role = eu_role::unknown;
    bool valid = false;          // magic, checksum and counts are in order
    bool commit_missing = false; // uncommitted, but counts as done
    std::uint32_t group = none;  // data unit: its group, if that lies in the volume
    std::uint32_t log_end = 0;   // log unit: the slot that its next write would take
    std::uint32_t live = 0, stale = 0, torn = 0, free = 0;
    std::vector<slot_view> slots; // 120 or 122; empty for the spare and unknown units
};

struct page_place {
    std::uint32_t eu = none, slot = none;
};

enum class file_state : std::uint8_t { absent, zombie, empty, present };

struct file_view {
    file_state state = file_state::absent;
    bool damaged = false; // the chain or a page of it isn't in order
    std::uint32_t size = 0;
    std::uint32_t first = 0, count = 0; // its chunks in picture::chain
};

struct free_space {
    std::uint32_t chunks_now = 0;           // can be written without a reclaim
    std::uint32_t chunks_after_reclaim = 0; // in all; contains the former
    std::uint32_t log_slots_now = 0;
    std::uint32_t log_slots_after_reclaim = 0;
};

struct erase_counts {
    std::uint32_t lowest = 0, highest = 0;
};

struct picture {
    std::span<const std::uint8_t> image; // the caller's, valid as long as the picture is used

    // Erase units.
    std::vector<erase_unit> eus;
    std::uint32_t spare = none, log_eu = none, highest_seq = 0;
    erase_counts erases;

    // The volume; without one (`has_volume` false) what follows is empty.
    bool has_volume = false;
    afs::volume_header_t header{};
    std::uint32_t files = 0, chunks = 0, groups = 0;
    std::uint32_t fat_size = 0, volume_size = 0;
    std::vector<page_place> fat_pages;      // where the newest copy stands, by page
    std::vector<std::uint8_t> fat;          // fat_size bytes: header and chain table as they read
    std::vector<std::uint32_t> group_owner; // by group
    std::vector<std::uint32_t> chunk_file;  // by data-area index: the file that it belongs to
    std::vector<std::uint16_t> chain;       // chunk ids of all files, file by file
    std::vector<file_view> file;            // by file number
    free_space space;

    std::vector<finding> findings;

    bool has(finding_id id) const;
    // The worst severity found; nothing at all counts as info.
    severity worst() const;
    // No fault and no warning.
    bool clean() const { return worst() == severity::info; }

    std::span<const std::uint16_t> chunks_of(std::uint32_t file_number) const;
    // FAT entry (a file number or a chunk id).
    std::uint16_t entry(std::uint32_t index) const;
    // Where a chunk's frame stands in the image; none if its group has no owner.
    std::uint32_t frame_address(std::uint32_t chunk_id) const;
};

// Reads an image; accepts any bytes of any length, in time linear in it. Only the first 0x200000 bytes are looked at.
picture inspect_image(std::span<const std::uint8_t> image);

// A file's bytes as the chain gives them, damaged pages as they lie, unreachable ones as zeros. Nothing if the picture
// has no such file.
std::optional<std::vector<std::uint8_t>> read_file(const picture& from, std::uint32_t file_number);

} // namespace yfs::inspect
