// The set file, yfs.json: which tables and images belong together, and for which SKU.
#pragma once

#include "tool/json.h"

#include <filesystem>
#include <optional>
#include <string>

namespace yfs::tool {

inline constexpr const char* set_file_name = "yfs.json";

struct set_file {
    std::filesystem::path path; // of the set file itself
    // Paths as the file gives them, relative to its folder.
    std::string ftbl;
    std::string velor;
    std::optional<std::string> zonc;
    std::optional<std::string> yfs;
    std::optional<std::string> efs;
    std::uint32_t sku = 0;

    json document; // all of it, in its order, for writing it again

    std::filesystem::path locate(const std::string& name) const { return path.parent_path() / name; }
};

// `named` is a set file or a folder that holds one; empty: the working directory. Fails with set_missing, or with
// set_invalid on what isn't JSON, lacks a key, has an unknown one or a value of the wrong kind.
set_file read_set_file(const std::string& named);

// The text of the set file with `zonc` naming `name`.
std::string set_file_with_zonc(const set_file& set, const std::string& name);

} // namespace yfs::tool
