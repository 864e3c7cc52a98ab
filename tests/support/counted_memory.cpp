#include "tests/support/counted_memory.h"

#include "yfs/medium.h"

#include <cstdlib>
#include <cstring>

namespace yfs::test {

static std::int64_t s_live = 0;
static std::uint64_t s_fail_in = 0;
static bool s_failed = false;

std::int64_t live_blocks()
{
    return s_live;
}

void fail_allocation(std::uint64_t n)
{
    s_fail_in = n;
    s_failed = false;
}

bool allocation_failed()
{
    return s_failed;
}

} // namespace yfs::test

void* LtAllocateMemory(size_t size)
{
    using namespace yfs::test;
    s_failed = s_failed || s_fail_in == 1;
    if (s_fail_in != 0 && --s_fail_in == 0) return nullptr;
    ++s_live;
    return std::memset(std::malloc(size), 0xA7, size); // nobody may count on zeros here
}

void* LtAllocateZeroMemory(size_t size)
{
    void* block = LtAllocateMemory(size);
    return block == nullptr ? nullptr : std::memset(block, 0, size);
}

void LtFreeMemory(void* ptr)
{
    if (ptr != nullptr) --yfs::test::s_live;
    std::free(ptr);
}

// Here too, so that the library's own memory.cpp stays out of the link.
void* LtSetMemory(void* dst, int32_t value, size_t count)
{
    return count == 0 ? dst : std::memset(dst, value & 0xFF, count);
}
