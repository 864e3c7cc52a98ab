// The memory primitives: thin wrappers, one translation unit, so that a program can put its own in their place.
#include "yfs/medium.h"

#include <cstdlib>
#include <cstring>

void* LtAllocateMemory(size_t size)
{
    return std::malloc(size);
}

void* LtAllocateZeroMemory(size_t count)
{
    return std::calloc(count, 1);
}

void LtFreeMemory(void* ptr)
{
    std::free(ptr);
}

void* LtSetMemory(void* dst, int32_t value, size_t count)
{
    if (count != 0) std::memset(dst, value & 0xFF, count);
    return dst;
}

int64_t LtCompareMemory(const void* lhs, const void* rhs, size_t len)
{
    return len == 0 ? 0 : std::memcmp(lhs, rhs, len);
}
