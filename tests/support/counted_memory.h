// The memory primitives, counted and failing at will. A test program that links yfs_counted_memory has them in place of
// the library's own.
#pragma once

#include <cstdint>

namespace yfs::test {

// Blocks that were allocated and not released.
std::int64_t live_blocks();
// The n-th allocation from now on, counting from 1, gives null; 0 for none.
void fail_allocation(std::uint64_t n);
// Whether the allocation that was to fail has come.
bool allocation_failed();

} // namespace yfs::test
