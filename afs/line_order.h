// The lines of the page cache by page and in order of use, so that neither a hit nor a miss nor a flush walks over
// them. The order itself stays in the links of line_table, from the most to the least recently used; beside it stand
// the links back, and for each page the lines that may hold it. Which line is evicted, and in what order dirty lines
// are written, decides what the flash looks like: every operation here leaves exactly the order that a walk along the
// links would.
#pragma once

#include "afs/afs_internal.h"

namespace yfs::afs {

inline constexpr std::uint16_t line_dirty = 0x2; // in the link of a line, beside line_valid
inline constexpr std::uint16_t line_flags = line_valid | line_dirty;
inline constexpr std::uint16_t no_line = 0xFFF; // ends the list

inline bool is_dirty(const cache_line_entry& line)
{
    return (line.link & line_flags) == line_flags;
}

// Entries of line_table that make room for `lines` lines and for what is kept beside them.
std::size_t line_table_entries(std::uint32_t lines);
// A fresh line_table: all lines in the list in the order of their numbers, none valid. ctx.line_count is set.
void begin_order(afs_context& ctx);

// The valid line with `page`, or no_line.
std::uint16_t find_line(const afs_context& ctx, std::uint16_t page);
std::uint16_t least_recent_line(const afs_context& ctx);
// The line used next after this one was; no_line for the most recent.
std::uint16_t more_recent_line(const afs_context& ctx, std::uint16_t line);

// Makes it the most recently used.
void use_line(afs_context& ctx, std::uint16_t line);
// Makes it a valid, clean line that holds `page`.
void give_line(afs_context& ctx, std::uint16_t line, std::uint16_t page);

} // namespace yfs::afs
