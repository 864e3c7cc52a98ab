// The files that the set's SKU knows: one row for each path of ftbl.bin that a lookup can reach.
#pragma once

#include "tool/set_file.h"
#include "tool/text.h"

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace yfs::tool {

enum class file_system : std::uint8_t { none, afs, efs }; // none: a selector that no file system answers to

struct file_row {
    std::string path;
    std::uint32_t fileno = 0;     // the key in cfg tables
    std::uint32_t number = 0;     // the DFS file number
    std::uint32_t limit = 0;      // bytes of the largest value
    std::uint16_t attributes = 0; //
    std::uint16_t index = 0;      // in its file system
    file_system where = file_system::none;

    // Bytes that follow the value in the stored file of a deployed volume.
    std::uint32_t tail() const;
    // "afs#17": the file by its place, whatever its name.
    std::string place() const;
};

// Attribute bits that the system tests.
inline constexpr std::uint16_t attribute_tail = 0x0001;      // a tail of 40 bytes; such a value isn't written back
inline constexpr std::uint16_t attribute_unread = 0x0002;    // the value isn't taken from the volume
inline constexpr std::uint16_t attribute_long_tail = 0x0040; // with attribute_tail: 56 bytes

// The row of a file that no path names: all it has is its place, and no limit is known.
inline constexpr std::uint32_t no_limit = UINT32_MAX;
file_row row_of_place(file_system where, std::uint16_t index);

// The SKUs that a file table has. Fails with table_damaged.
std::vector<std::uint32_t> skus_in(const bytes& ftbl, const std::string& name);

class file_table {
public:
    // Knows no name; files are reached by their places.
    file_table() = default;
    // Makes `ftbl` the library's active table; the buffer has to outlive that. Fails with table_damaged, or set_invalid
    // for a SKU that the table doesn't have.
    file_table(const set_file& set, const bytes& ftbl);

    const std::vector<file_row>& rows() const { return rows_; } // in order of their paths
    const std::vector<std::uint32_t>& skus() const { return skus_; }
    // The row that a record of a cfg table is read as; null if the table drops such a record.
    const file_row* by_fileno(std::uint32_t fileno) const;

    // The row of a path given with or without "/home/". A path of 49 characters or more has none: names end at 48, and
    // a lookup that cuts it would answer for another file.
    const file_row* find(std::string_view path) const;
    // As find, or the file behind "afs#N" or "efs#N", which may have no name. Fails with unknown_path.
    file_row resolve(const std::string& path) const;

private:
    std::vector<file_row> rows_;
    std::vector<std::uint32_t> skus_;
    std::unordered_map<std::string, std::size_t> by_path_;
    std::unordered_map<std::uint32_t, std::string> by_fileno_; // the first entry of a number counts, as for the library
    std::string origin_;                                       // for messages
};

} // namespace yfs::tool
