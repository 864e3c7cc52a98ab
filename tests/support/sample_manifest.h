// What the maker of a sample set says about it, as plain records.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace yfs::test {

struct sample_value {
    std::uint32_t size;
    std::string sha256;
};

struct sample_file {
    std::uint32_t fileno, dfs_number, max_size, attributes;
    std::optional<sample_value> value; // none: not in the current values, or not available
};

struct sample_manifest {
    std::uint32_t sku;
    bool deployed;
    std::map<std::string, sample_file> files;                             // by path, right after the start of a run
    std::vector<std::pair<std::string, std::vector<std::uint8_t>>> edits; // path and new value
    std::map<std::string, std::optional<sample_value>> after;             // the current values after the edits
};

// Reads manifest.json and edit.json of a set. Throws on anything that isn't as described there.
sample_manifest read_manifest(const std::string& set);

} // namespace yfs::test
