// Media and memory of a program's own. The chip keeps every byte inverted, so that a volume is readable only if each
// access of the library comes this way; the rest counts, and memory can run out at will.
#include "tests/project/replacement.h"

#include "yfs/efs.h"
#include "yfs/medium.h"

#include <cstdlib>
#include <cstring>

YFS_API replacement_state replacement{};

uint32_t SpiDrvRead(uint32_t addr, uint32_t len, void* buf)
{
    ++replacement.chip_calls;
    auto* to = static_cast<uint8_t*>(buf);
    for (uint32_t i = 0; i < len; ++i) to[i] = static_cast<uint8_t>(~gpBuffer[addr + i]);
    return 0;
}

uint32_t SpiDrvWrite(uint32_t addr, uint32_t len, const void* buf)
{
    ++replacement.chip_calls;
    const auto* from = static_cast<const uint8_t*>(buf);
    for (uint32_t i = 0; i < len; ++i) gpBuffer[addr + i] = static_cast<uint8_t>(~from[i]);
    return 0;
}

uint32_t SpiDrvEraseBlock(uint32_t addr)
{
    ++replacement.chip_calls;
    for (uint32_t i = 0; i < 4096; ++i) gpBuffer[addr + i] = 0;
    return 0;
}

uint32_t EFS_physical_read(uint32_t, uint32_t, void*)
{
    ++replacement.efs_calls;
    return 41;
}

uint32_t EFS_physical_write(uint32_t, uint32_t, const void*)
{
    ++replacement.efs_calls;
    return 41;
}

uint32_t EFS_physical_erase(uint32_t, uint32_t)
{
    ++replacement.efs_calls;
    return 41;
}

void* LtAllocateMemory(size_t size)
{
    return replacement.out_of_memory != 0 ? nullptr : std::malloc(size);
}

void* LtAllocateZeroMemory(size_t count)
{
    return replacement.out_of_memory != 0 ? nullptr : std::calloc(count, 1);
}

void LtFreeMemory(void* ptr)
{
    std::free(ptr);
}

void* LtSetMemory(void* dst, int32_t value, size_t count)
{
    return count == 0 ? dst : std::memset(dst, value, count);
}

int64_t LtCompareMemory(const void* lhs, const void* rhs, size_t len)
{
    return len == 0 ? 0 : std::memcmp(lhs, rhs, len);
}
