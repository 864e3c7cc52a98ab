// Puts a nor_chip under EFS_physical_read, EFS_physical_write and EFS_physical_erase. A test program that links
// yfs_efs_chip has these three in place of the library's own; without a chip they work on efs_image.
#pragma once

#include "efs/medium_access.h"
#include "tests/support/nor_chip.h"

namespace yfs::test {

// For the length of a scope the library takes the medium for its own and looks at efs_image in place of reading.
class as_built_in_efs {
public:
    as_built_in_efs() { efs::medium_built_in = true; }
    ~as_built_in_efs() { efs::medium_built_in = false; }
    as_built_in_efs(const as_built_in_efs&) = delete;
};

// The chip in use; none by default. Image addresses are the chip's.
inline nor_chip* efs_chip = nullptr;
inline const auto use_efs_chip = [](nor_chip* chip) { efs_chip = chip; };

} // namespace yfs::test
