// The files of a table in the order of their names, and those of one name in the order of their records. Names mostly
// share their beginning, a path; the 16 bytes behind it, held as two numbers, tell nearly all of them apart.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace yfs::cfgtable {

// A file that the table holds and the file table knows.
struct found_file {
    std::string_view name; // holds no zero
    std::uint32_t record;
};

void sort_by_name(std::vector<found_file>& files);

} // namespace yfs::cfgtable
