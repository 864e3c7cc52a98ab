// The chip, nothing else: a program that defines these three functions itself takes this file's place.
#include "frame/medium_bound.h"
#include "yfs/medium.h"

#include <cstring>

static constexpr uint32_t out_of_image = 1;
static constexpr uint32_t block_bytes = 4096;

static bool in_image(uint32_t addr, uint32_t len)
{
    if (gpBuffer == nullptr) return false;
    const bool bounded = yfs::gpBuffer_bound.image == gpBuffer;
    return !bounded || uint64_t{addr} + len <= yfs::gpBuffer_bound.bytes;
}

uint32_t SpiDrvRead(uint32_t addr, uint32_t len, void* buf)
{
    if (!in_image(addr, len)) return out_of_image;
    std::memcpy(buf, gpBuffer + addr, len);
    return 0;
}

uint32_t SpiDrvWrite(uint32_t addr, uint32_t len, const void* buf)
{
    if (!in_image(addr, len)) return out_of_image;
    std::memcpy(gpBuffer + addr, buf, len);
    return 0;
}

uint32_t SpiDrvEraseBlock(uint32_t addr)
{
    if (!in_image(addr, block_bytes)) return out_of_image;
    std::memset(gpBuffer + addr, 0xFF, block_bytes);
    return 0;
}
