#include "tests/support/spi_chip.h"

#include "yfs/medium.h"

static yfs::test::nor_chip* s_chip = nullptr;

yfs::test::spi_chip_guard::spi_chip_guard(nor_chip& chip)
{
    s_chip = &chip;
}

yfs::test::spi_chip_guard::~spi_chip_guard()
{
    s_chip = nullptr;
}

std::uint32_t SpiDrvRead(std::uint32_t addr, std::uint32_t len, void* buf)
{
    return s_chip == nullptr ? 1 : s_chip->read(addr, len, buf);
}

std::uint32_t SpiDrvWrite(std::uint32_t addr, std::uint32_t len, const void* buf)
{
    return s_chip == nullptr ? 1 : s_chip->write(addr, len, buf);
}

std::uint32_t SpiDrvEraseBlock(std::uint32_t addr)
{
    return s_chip == nullptr ? 1 : s_chip->erase(addr);
}
