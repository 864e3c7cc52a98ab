#include "tests/support/spi_chip.h"

#include "yfs/medium.h"

#include <cstring>

namespace {
yfs::test::nor_chip* s_chip = nullptr;
}

void yfs::test::use_spi_chip(nor_chip* chip)
{
    s_chip = chip;
}

std::uint32_t SpiDrvRead(std::uint32_t addr, std::uint32_t len, void* buf)
{
    if (s_chip != nullptr) return s_chip->read(addr, len, buf);
    std::memcpy(buf, gpBuffer + addr, len);
    return 0;
}

std::uint32_t SpiDrvWrite(std::uint32_t addr, std::uint32_t len, const void* buf)
{
    if (s_chip != nullptr) return s_chip->write(addr, len, buf);
    std::memcpy(gpBuffer + addr, buf, len);
    return 0;
}

std::uint32_t SpiDrvEraseBlock(std::uint32_t addr)
{
    if (s_chip != nullptr) return s_chip->erase(addr);
    std::memset(gpBuffer + addr, 0xFF, yfs::test::nor_chip::block);
    return 0;
}
