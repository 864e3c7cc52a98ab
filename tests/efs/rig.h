// A mounted EFS image on a strict chip beside a map of what must be in it, and the operations on both.
#pragma once

#include "inspect/efs_picture.h"
#include "tests/support/efs_chip.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace yfs::test {

using efs_contents = std::map<unsigned, std::vector<std::uint8_t>>; // files that exist, by index

struct efs_operation {
    enum class kind { write, remove, idle } what;
    unsigned file = 0;
    std::vector<std::uint8_t> data = {};
};
std::string to_string(const efs_operation& op);

// The geometry, its files and the wear threshold, put into the library's globals while it lives.
struct efs_table {
    efs::geometry geo;
    std::vector<efs_file_t> files;

    efs_table(const efs::geometry& of, std::vector<efs_file_t> with, std::uint32_t threshold);
    efs_table(const efs_table&) = delete;
    efs_table& operator=(const efs_table&) = delete;
    ~efs_table();

    std::vector<std::uint8_t> fresh_image() const;
};

// Files for a geometry: several in the first block, one over three blocks where it has them, one in the last block.
std::vector<efs_file_t> usual_files(const efs::geometry& geo);

void apply(efs_contents& files, const efs_operation& op);
std::uint32_t run(const efs_operation& op);

// Whether the mounted image reads as `files`, through the library's own calls; the first that doesn't goes to `file`.
bool efs_reads_as(const efs_contents& files, unsigned& file);
bool efs_file_reads_as(const efs_contents& files, unsigned file);

// Nothing but information from the second reader, and the files are these.
testing::AssertionResult efs_clean(const std::vector<std::uint8_t>& image);
testing::AssertionResult efs_holds(const std::vector<std::uint8_t>& image, const efs_contents& files);

// An image on its chip. mount() puts the chip under the library.
struct efs_rig {
    std::vector<std::uint8_t> image;
    nor_chip chip;
    efs_contents files;

    explicit efs_rig(std::vector<std::uint8_t> start) : image(std::move(start)), chip(image) {}
    efs_rig(const efs_rig&) = delete;
    efs_rig& operator=(const efs_rig&) = delete;
    ~efs_rig() { use_efs_chip(nullptr); }

    std::uint32_t mount();
    // Runs it and keeps the map in step. 0, or the status of what failed.
    std::uint32_t perform(const efs_operation& op);
};

} // namespace yfs::test
