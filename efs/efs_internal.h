// What the parts of EFS share: the geometry in force, the table of files behind its bounds, and the repeated read.
#pragma once

#include "efs/layout.h"
#include "yfs/efs.h"
#include "yfs/status.h"

#include <algorithm>
#include <cstdint>
#include <optional>

namespace yfs::efs {

// The geometry as the globals tell it now.
inline geometry current_geometry()
{
    return {g_efs_bm_num, g_efs_valid_block_num, g_efs_non_valid_block_num};
}

// Whether the tables in efs_ctx may be used: there is a mount, and the globals still tell the geometry that it was made
// for. Every operation on a mounted image tests this first.
bool mounted();

// A mount stands, but the globals tell another geometry by now: nothing may touch its image until the next mount.
inline bool mounted_otherwise()
{
    return efs_ctx.initialized != 0 && !mounted();
}

// Whether each data block stands exactly once in the two tables of a map entry.
bool each_block_once(const std::uint8_t* valid_table, const std::uint8_t* non_valid_table, const geometry& geo);

// The header of BM `bm` if it is sound; a blank or retired one isn't.
std::optional<efs_bm_header_t> read_bm_header(std::uint32_t bm);

// Entries that EFS_files really has: a load that failed half way has set g_efs_files_num for a table that never came
// to be.
std::uint32_t files_bound();

// The entry of `file`; null if there is none or it is not in use.
const efs_file_t* find_file(std::uint32_t file);

inline constexpr std::uint32_t read_tries = 7; // reads that a test gets in all

// Reads until `passes` is true, at most efs_ctx.read_retries times (before a first mount: read_tries): worn flash can
// give a bad read and then a good one.
// ok | integrity: no read passed, and then *gave_up is true | the status of a failed read.
template <typename Read, typename Passes>
std::uint32_t read_until(Read read, Passes passes, bool* gave_up = nullptr)
{
    if (gave_up != nullptr) *gave_up = false; // a medium may fail with the same number
    const std::uint32_t tries = efs_ctx.read_retries != 0 ? efs_ctx.read_retries : read_tries;
    for (std::uint32_t i = 0; i < tries; ++i) {
        if (const auto status = read(); status != efs_status::ok) return status;
        if (passes()) return efs_status::ok;
    }
    if (gave_up != nullptr) *gave_up = true;
    return efs_status::integrity;
}

// Whether the CRC at the end of a BM or block header vouches for the rest of it.
inline bool header_sound(const std::uint8_t* header)
{
    return EFS_crc32(0, header, header_crc_bytes) == load<le32>(header + header_crc_bytes);
}

} // namespace yfs::efs
