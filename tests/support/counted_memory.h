// The memory primitives, counted and failing at will. A test program that links yfs_counted_memory has them in place of
// the library's own.
#pragma once

#include <cstdint>

namespace yfs::test {

inline std::int64_t live_blocks = 0;   // allocated and not released
inline std::uint64_t fail_in = 0;      // that allocation from now on, counting from 1, gives null; 0 for none
inline bool allocation_failed = false; // whether it has come

inline void fail_allocation(std::uint64_t n)
{
    fail_in = n;
    allocation_failed = false;
}

} // namespace yfs::test
