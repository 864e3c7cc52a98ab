// The chip, nothing else: a program that defines these three functions itself takes this file's place.
#include "frame/blank.h"
#include "frame/chip.h"
#include "yfs/medium.h"

#include <cstring>

static constexpr uint32_t out_of_image = 1;
static constexpr uint32_t block_bytes = 4096;

uint32_t SpiDrvRead(uint32_t addr, uint32_t len, void* buf)
{
    if (!yfs::chip::in_image(addr, len)) return out_of_image;
    std::memcpy(buf, gpBuffer + addr, len);
    return 0;
}

uint32_t SpiDrvWrite(uint32_t addr, uint32_t len, const void* buf)
{
    if (!yfs::chip::in_image(addr, len)) return out_of_image;
    std::memcpy(gpBuffer + addr, buf, len);
    return 0;
}

uint32_t SpiDrvEraseBlock(uint32_t addr)
{
    if (!yfs::chip::in_image(addr, block_bytes)) return out_of_image;
    yfs::lay_erased(gpBuffer + addr, block_bytes);
    return 0;
}

// These names always mean the functions above; the exported ones mean a program's own where it has put them before. An
// exported name is bound before the library's first statement runs, so it is enough to compare them once.
static uint32_t own_read(uint32_t, uint32_t, void*) __attribute__((alias("SpiDrvRead")));
static uint32_t own_write(uint32_t, uint32_t, const void*) __attribute__((alias("SpiDrvWrite")));
static uint32_t own_erase(uint32_t) __attribute__((alias("SpiDrvEraseBlock")));

[[maybe_unused]] static const bool told = yfs::chip::built_in =
    SpiDrvRead == own_read && SpiDrvWrite == own_write && SpiDrvEraseBlock == own_erase;
