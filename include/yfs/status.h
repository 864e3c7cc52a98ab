/* The status values of the layers below the facade. They overlap between the families: a 5 is a flash failure in one
   and a short buffer in another, so each family has a namespace of its own. In C the numbers are in the comments. */
#pragma once

#include "yfs/export.h"

#ifdef __cplusplus

// FTL, AFS and dispatch.
namespace afs_status {
inline constexpr std::uint32_t ok = 0;
inline constexpr std::uint32_t not_found = 2;     // no such file, or no volume open
inline constexpr std::uint32_t failed = 5;        // medium error, a CRC still wrong after 7 reads, corrupt structure
inline constexpr std::uint32_t call_again = 11;   // a forced reclaim did one EU and more remain
inline constexpr std::uint32_t no_memory = 12;    //
inline constexpr std::uint32_t invalid = 22;      // argument out of range, or a number that selects no file system
inline constexpr std::uint32_t too_large = 27;    // the file would grow past 0x40000 bytes
inline constexpr std::uint32_t no_space = 28;     // no free chunk; also the EU asked for reclaim is the spare
inline constexpr std::uint32_t bad_state = 99;    // cache tables disagree; zombie mark on a number in use
inline constexpr std::uint32_t let_through = 562; // passes dfs_write unchanged; nothing here produces it
inline constexpr std::uint32_t nothing_gained = 38807;   // a reclaim went through to the end but gained no free slot
inline constexpr std::uint32_t flush_first = 65533;      // flush the cache, then ask for the chunk again
inline constexpr std::uint32_t no_context = 0xFFFFFFFFU; // dfs_init couldn't allocate the context
} // namespace afs_status

// EFS and load_autogen_data.
namespace efs_status {
inline constexpr std::uint32_t ok = 0;
inline constexpr std::uint32_t not_ready = 1;       // not mounted, autogen data not loaded, no image, or a bad table
inline constexpr std::uint32_t not_found = 2;       // the file doesn't exist
inline constexpr std::uint32_t sequence_used = 5;   // the sequence numbers of the block maps are used up
inline constexpr std::uint32_t try_pass_again = 11; // inside EFS_init only
inline constexpr std::uint32_t no_memory = 12;
inline constexpr std::uint32_t invalid = 22;    // index, offset, pointer or address out of range, or entry not in use
inline constexpr std::uint32_t too_large = 34;  // size above the file's largest, or read offset beyond the end
inline constexpr std::uint32_t integrity = 41;  // CRC or read-back still bad after 7 reads, no usable BM, bad geometry
inline constexpr std::uint32_t bad_offset = 99; // format: a file's offset above 4072
} // namespace efs_status

// The FCS handle API.
namespace fcs_status {
inline constexpr std::uint32_t ok = 0;
inline constexpr std::uint32_t null_pointer = 1;
inline constexpr std::uint32_t unknown_name = 2;  // fileno 0 and a name that the file table doesn't have
inline constexpr std::uint32_t no_more_files = 3; // the walk is at its end, or the tree is empty
inline constexpr std::uint32_t no_such_file = 4;  // the tree has no such file
inline constexpr std::uint32_t bad_length = 5;    // buffer too small, or an image shorter than its record
inline constexpr std::uint32_t null_handle = 6;
inline constexpr std::uint32_t not_in_table = 8; // no entry in the file table, or a node without a record
inline constexpr std::uint32_t no_memory = 9;
inline constexpr std::uint32_t refused = 10;    // the table was refused
inline constexpr std::uint32_t name_taken = 11; // the tree already holds a file of this name
inline constexpr std::uint32_t above_max_size = 12;
} // namespace fcs_status

#endif
