// A global operator new that fails when it is told to, for the program that it is linked into.
#pragma once

#include <cstdint>

extern std::uint64_t allocation_fails_at; // counts down to the allocation that fails; 0: none does
extern std::int64_t live_allocations;
