// Puts a nor_chip under SpiDrvRead, SpiDrvWrite and SpiDrvEraseBlock. A test program that links yfs_spi_chip has these
// three from spi_chip.cpp in place of the library's own; without a chip they fail.
#pragma once

#include "frame/chip.h"
#include "tests/support/nor_chip.h"

namespace yfs::test {

// For the length of a scope the library takes the chip for its own and reaches the mounted image in memory. Erases,
// which are a call in any case, go to the nor_chip over the same bytes.
class as_built_in {
public:
    as_built_in() { chip::built_in = true; }
    ~as_built_in() { chip::built_in = false; }
    as_built_in(const as_built_in&) = delete;
};

// For the length of a scope. Image addresses are the chip's: gpBuffer doesn't matter.
class spi_chip_guard {
public:
    explicit spi_chip_guard(nor_chip& chip) { in_use = &chip; }
    ~spi_chip_guard() { in_use = nullptr; }
    spi_chip_guard(const spi_chip_guard&) = delete;

    static inline nor_chip* in_use = nullptr;
};

} // namespace yfs::test
