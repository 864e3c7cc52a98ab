// The format of ftbl.bin: header, one row a SKU, the record of EFS, and each SKU's file entries where its row says.
// The records themselves are public (yfs/vfs.h); here are their checks, their places and what their fields mean.
#pragma once

#include "yfs/vfs.h"

#include <cstddef>
#include <cstring>
#include <string_view>

namespace yfs::vfs {

inline constexpr std::uint32_t ftbl_magic = 0x4C425446; // "FTBL"
inline constexpr std::uint32_t min_table_bytes = YFS_FTBL_MIN_BYTES;
inline constexpr std::uint32_t max_skus = YFS_FTBL_MAX_SKUS;

static_assert(offsetof(ftbl_header_t, sku_count) == 12);
static_assert(offsetof(ftbl_sku_entry_t, table_offset) == 4 && offsetof(ftbl_sku_entry_t, num_files) == 8);
static_assert(offsetof(ftbl_file_entry_t, fileno) == 48 && offsetof(ftbl_file_entry_t, attributes) == 52);
static_assert(offsetof(ftbl_file_entry_t, file_index) == 58 && offsetof(ftbl_file_entry_t, fs_selector) == 63);
static_assert(offsetof(ftbl_file_entry_t, maxSize) == 64);

constexpr std::uint32_t sku_row_at(std::uint32_t row)
{
    return low32(sizeof(ftbl_header_t) + std::size_t{row} * sizeof(ftbl_sku_entry_t));
}
// All rows lie inside the smallest table, so that their number is the only thing to check before they are read.
static_assert(sku_row_at(max_skus) <= min_table_bytes);

// A name as the table compares it: up to its terminator, at most 48 characters.
inline std::string_view table_name(const char* name)
{
    return {name, strnlen(name, YFS_FTBL_NAME_LENGTH)};
}

// Whether the field holds such a name.
inline bool is_table_name(const char* field, std::string_view name)
{
    if (std::memcmp(field, name.data(), name.size()) != 0) return false;
    return name.size() == YFS_FTBL_NAME_LENGTH || field[name.size()] == '\0';
}

// The number by which dispatch routes the file. Selector 1 means AFS, as 0 does, and adds nothing.
constexpr std::uint32_t dfs_number(const ftbl_file_entry_t& entry)
{
    const std::uint32_t selector = entry.fs_selector == 1 ? 0U : std::uint32_t{entry.fs_selector} << 11;
    return (entry.fileno & 0xF0000000U) | selector | (entry.file_index & 0x7FFU);
}

} // namespace yfs::vfs
