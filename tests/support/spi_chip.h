// Puts a nor_chip under SpiDrvRead, SpiDrvWrite and SpiDrvEraseBlock. A test program that links yfs_spi_chip has these
// three from spi_chip.cpp in place of the library's own; without a chip they copy to and from gpBuffer as those do.
#pragma once

#include "tests/support/nor_chip.h"

namespace yfs::test {

// The chip in use; none by default. Image addresses are the chip's: gpBuffer doesn't matter while one is attached.
void use_spi_chip(nor_chip* chip);

// For the length of a scope.
class spi_chip_guard {
public:
    explicit spi_chip_guard(nor_chip& chip) { use_spi_chip(&chip); }
    ~spi_chip_guard() { use_spi_chip(nullptr); }
    spi_chip_guard(const spi_chip_guard&) = delete;
    spi_chip_guard& operator=(const spi_chip_guard&) = delete;
};

} // namespace yfs::test
