// Apart from the code that it serves: a compiler that sees both takes the free for a mismatch.
#include "tests/cfgtable/failing_new.h"

#include <cstdlib>
#include <new>

std::uint64_t allocation_fails_at = 0;
std::int64_t live_allocations = 0;

namespace {

void* allocate(std::size_t size)
{
    if (allocation_fails_at != 0 && --allocation_fails_at == 0) return nullptr;
    void* ptr = std::malloc(size);
    if (ptr) ++live_allocations;
    return ptr;
}

} // namespace

void* operator new(std::size_t size)
{
    if (void* ptr = allocate(size)) return ptr;
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size);
}
void operator delete(void* ptr) noexcept
{
    if (ptr) --live_allocations;
    std::free(ptr);
}
void operator delete(void* ptr, std::size_t) noexcept
{
    operator delete(ptr);
}
