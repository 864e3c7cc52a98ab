// What the changing side of EFS shares: the working copy of the block tables, the records as a fresh image bears them,
// and the steps that several operations take.
#pragma once

#include "efs/efs_internal.h"
#include "frame/memory.h"

namespace yfs::efs {

// States of a spare, by its position in the non-valid table.
inline constexpr std::uint8_t spare_dirty = 1;
inline constexpr std::uint8_t spare_free = 2;

// What is known of the BM that the next switch goes to.
inline constexpr std::uint8_t next_bm_unknown = 0;
inline constexpr std::uint8_t next_bm_erased = 1;
inline constexpr std::uint8_t next_bm_dirty = 2;

// A block map entry under change. current_bme changes only when a commit of this one has succeeded.
class working_bme {
public:
    // False without memory for its tables.
    [[nodiscard]] bool allocate(const geometry& geo);
    void copy_current(const geometry& geo);
    efs_bme_t* get() { return &bme_; }
    efs_bme_t* operator->() { return &bme_; }

private:
    efs_bme_t bme_{};
    lt_block<std::uint8_t> valid_;
    lt_block<std::uint8_t> non_valid_;
};

// Lays out `bme` in `slot`, geo.bme_bytes() bytes, and puts its CRC into both.
void seal_bme(efs_bme_t& bme, const geometry& geo, std::uint8_t* slot);

// Records of the medium, CRC included.
efs_bm_header_t make_bm_header(const geometry& geo, std::uint32_t sequence);
efs_block_header_t make_block_header(std::uint32_t erase_count);

// Fills `data_area` as a format leaves it: 0xFF, and the first chunk of each file of `logical_block`, not existing.
// ok | bad_offset: a file's chunk header doesn't fit.
std::uint32_t fill_fresh_data_area(std::uint32_t logical_block, std::uint8_t* data_area);
// The CRC of a first chunk without a file.
std::uint16_t no_file_crc(std::uint32_t logical_block);

// Zeroes the header's crc, so that a cut can't leave a BM that looks sound, and erases the block. Leaves next_bm_state
// unknown. ok | a medium's failure.
std::uint32_t erase_bm(std::uint32_t bm);

// The BM that a switch goes to.
inline std::uint32_t next_bm(const geometry& geo)
{
    return (efs_ctx.current_bm + 1) % geo.bm_num;
}

// ---- What a cut or a failed commit left (leftover.cpp) ----

// A commit at `at` was told as failed, but its bytes may have landed, and a mount would then take it: it is made void.
// Until that has worked nothing may be erased, since the flash may name what memory takes for dirty, and no other
// commit begins: only one can be undecided, and a map that landed would stand before an entry behind the one in force.
void void_commit(std::uint32_t at, std::uint32_t length);
// Tries again if it hasn't worked so far. ok | the medium still doesn't do it.
std::uint32_t settle_undecided();
// Retires maps that a cut left sound beside the one in force.
void retire_older_maps(const geometry& geo);

// Runs the scan unless what it finds out is known. ok | its status.
std::uint32_t need_scan();

} // namespace yfs::efs
