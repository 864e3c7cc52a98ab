// What the counting media and the counting memory have seen since they were last set to zero.
#pragma once

#include <cstdint>

namespace bench {

struct flash_tally {
    std::uint64_t programmed = 0; // bytes
    std::uint64_t programs = 0;   // calls that program
    std::uint64_t read = 0;       // bytes, with those that verify what was just programmed
    std::uint64_t erases = 0;     // blocks of 4096 bytes
};

struct memory_tally {
    std::uint64_t held = 0; // bytes that the storage layers hold now
    std::uint64_t most = 0; // and at most held at a time
};

extern flash_tally flash;
extern memory_tally memory;

} // namespace bench
