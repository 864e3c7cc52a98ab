#include "tests/support/spi_chip.h"

#include "yfs/medium.h"

using chip = yfs::test::spi_chip_guard;

std::uint32_t SpiDrvRead(std::uint32_t addr, std::uint32_t len, void* buf)
{
    return chip::in_use == nullptr ? 1 : chip::in_use->read(addr, len, buf);
}

std::uint32_t SpiDrvWrite(std::uint32_t addr, std::uint32_t len, const void* buf)
{
    return chip::in_use == nullptr ? 1 : chip::in_use->write(addr, len, buf);
}

std::uint32_t SpiDrvEraseBlock(std::uint32_t addr)
{
    return chip::in_use == nullptr ? 1 : chip::in_use->erase(addr);
}
