// Where the sample sets stand that another tool made. A clone without them skips the tests that read them.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace yfs::test {

// The folder of one set; empty if it isn't there.
std::filesystem::path sample_set(const std::string& name);

// The whole file as bytes; empty if it isn't there.
std::vector<unsigned char> read_file(const std::filesystem::path& path);

} // namespace yfs::test
