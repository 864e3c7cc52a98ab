#include "tests/support/counted_memory.h"

#include "yfs/medium.h"

#include <cstdlib>
#include <cstring>

using namespace yfs::test;

void* LtAllocateMemory(size_t size)
{
    allocation_failed = allocation_failed || fail_in == 1;
    if (fail_in != 0 && --fail_in == 0) return nullptr;
    ++live_blocks;
    return std::memset(std::malloc(size), 0xA7, size); // nobody may count on zeros here
}

void* LtAllocateZeroMemory(size_t size)
{
    void* block = LtAllocateMemory(size);
    return block == nullptr ? nullptr : std::memset(block, 0, size);
}

void LtFreeMemory(void* ptr)
{
    if (ptr != nullptr) --live_blocks;
    std::free(ptr);
}

// Here too, so that the library's own memory.cpp stays out of the link.
void* LtSetMemory(void* dst, int32_t value, size_t count)
{
    return count == 0 ? dst : std::memset(dst, value & 0xFF, count);
}
