// Puts a nor_chip under EFS_physical_read, EFS_physical_write and EFS_physical_erase. A test program that links
// yfs_efs_chip has these three in place of the library's own; without a chip they work on efs_image.
#pragma once

#include "tests/support/nor_chip.h"

namespace yfs::test {

// The chip in use; none by default. Image addresses are the chip's.
void use_efs_chip(nor_chip* chip);

// For the length of a scope.
class efs_chip_guard {
public:
    explicit efs_chip_guard(nor_chip& chip) { use_efs_chip(&chip); }
    ~efs_chip_guard() { use_efs_chip(nullptr); }
    efs_chip_guard(const efs_chip_guard&) = delete;
    efs_chip_guard& operator=(const efs_chip_guard&) = delete;
};

} // namespace yfs::test
