#include "tests/ftl/short_memory.h"

#include "yfs/medium.h"

#include <cstdlib>
#include <cstring>

namespace {

std::uint64_t s_fail_in = 0;
bool s_failed = false;
std::int64_t s_held = 0;

bool runs_out()
{
    if (s_fail_in == 0 || --s_fail_in != 0) return false;
    return s_failed = true;
}

} // namespace

void yfs::test::fail_allocation(std::uint64_t n)
{
    s_fail_in = n;
    s_failed = false;
}

bool yfs::test::allocation_failed()
{
    return s_failed;
}

std::int64_t yfs::test::blocks_held()
{
    return s_held;
}

void* LtAllocateMemory(std::size_t size)
{
    if (runs_out()) return nullptr;
    ++s_held;
    return std::memset(std::malloc(size), 0xA7, size); // nobody may count on zeros here
}

void* LtAllocateZeroMemory(std::size_t count)
{
    if (runs_out()) return nullptr;
    ++s_held;
    return std::calloc(count, 1);
}

void LtFreeMemory(void* ptr)
{
    if (ptr != nullptr) --s_held;
    std::free(ptr);
}
