// One set in memory: private copies of its files, with the library's file table active over them. Nothing on disk
// changes unless a verb puts a changed copy on a save_list.
#pragma once

#include "tool/file_table.h"
#include "tool/files.h"
#include "tool/set_file.h"

#include <optional>

namespace yfs::tool {

// A file of the set as it was read, and as it stands now.
struct working_copy {
    std::filesystem::path path;
    bytes before;
    bytes now;

    bool changed() const { return now != before; }
    std::string name() const { return path.string(); }
};

struct session {
    explicit session(const std::string& named);
    session(const session&) = delete; // the library points into the copies
    session& operator=(const session&) = delete;

    const set_file set;
    working_copy ftbl;
    working_copy velor;
    std::optional<working_copy> zonc; // nothing if the set names none, or the file isn't there yet
    std::optional<working_copy> yfs;
    std::optional<working_copy> efs;
    const file_table table;
};

} // namespace yfs::tool
