#include "tests/support/counted_memory.h"

#include "yfs/medium.h"

#include <cstdlib>
#include <cstring>

namespace {

std::int64_t s_live = 0;
std::uint64_t s_fail_in = 0;
bool s_failed = false;

void* count(void* (*allocate)(std::size_t), std::size_t size)
{
    if (s_fail_in != 0 && --s_fail_in == 0) {
        s_failed = true;
        return nullptr;
    }
    ++s_live;
    return allocate(size);
}

} // namespace

std::int64_t yfs::test::live_blocks()
{
    return s_live;
}

void yfs::test::fail_allocation(std::uint64_t n)
{
    s_fail_in = n;
    s_failed = false;
}

bool yfs::test::allocation_failed()
{
    return s_failed;
}

void* LtAllocateMemory(size_t size)
{
    return count(std::malloc, size);
}

void* LtAllocateZeroMemory(size_t size)
{
    return count([](std::size_t n) { return std::calloc(n, 1); }, size);
}

void LtFreeMemory(void* ptr)
{
    if (ptr != nullptr) --s_live;
    std::free(ptr);
}

// The rest of that family, so that the library's own memory.cpp stays out of the link.

void* LtSetMemory(void* dst, int32_t value, size_t count)
{
    return count == 0 ? dst : std::memset(dst, value & 0xFF, count);
}

int64_t LtCompareMemory(const void* lhs, const void* rhs, size_t len)
{
    return len == 0 ? 0 : std::memcmp(lhs, rhs, len);
}

uint32_t ByteCopy(void* dst, size_t, const void* src, size_t count)
{
    std::memmove(dst, src, count);
    return 0;
}

uint32_t mg_copyfrom(uint32_t, uint32_t, uint32_t, void*, uint32_t, uint32_t)
{
    return 0;
}

uint32_t mg_copyto(uint32_t, uint32_t, uint32_t, const void*, uint32_t, uint32_t)
{
    return 0;
}
