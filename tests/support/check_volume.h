// What must hold of an AFS image at any moment, as the second reader sees it, and of the volume that is mounted.
#pragma once

#include "inspect/picture.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <span>
#include <vector>

namespace yfs::test {

// Contents of a volume: file number and bytes. Numbers not in it are free or zombies.
using contents = std::map<unsigned, std::vector<std::uint8_t>>;

// No fault and no warning; else the findings, one a line. `but_for` are kinds that may be there all the same.
using finding_ids = std::initializer_list<inspect::finding_id>;
testing::AssertionResult clean(const inspect::picture& picture, finding_ids but_for = {});
inline testing::AssertionResult clean(std::span<const std::uint8_t> image, finding_ids but_for = {})
{
    return clean(inspect::inspect_image(image), but_for);
}

// The files of the image are these and no others, byte for byte.
testing::AssertionResult holds(const inspect::picture& picture, const contents& expected);
inline testing::AssertionResult holds(std::span<const std::uint8_t> image, const contents& expected)
{
    return holds(inspect::inspect_image(image), expected);
}

// All files of the image.
contents contents_of(const inspect::picture& picture);

// Whether the mounted volume reads a file as `files` has it; absent where that doesn't have it.
bool file_reads_as(const contents& files, unsigned number);
// The same of all in `files`.
testing::AssertionResult reads_as(const contents& files);

} // namespace yfs::test
