// Memory primitives that fail on demand and count what is held. A program that links yfs_short_memory has them in place
// of the library's own.
#pragma once

#include <cstdint>

namespace yfs::test {

// The n-th allocation from now on fails, counting from 1; 0: none does.
void fail_allocation(std::uint64_t n);
// Whether one has failed since fail_allocation.
bool allocation_failed();
// Blocks allocated and not yet freed.
std::int64_t blocks_held();

} // namespace yfs::test
