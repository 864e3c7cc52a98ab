#include "bench/scenario.h"

#include <cstdio>
#include <cstdlib>

namespace bench {

void expect(bool fine, const char* what)
{
    if (fine) return;
    std::fprintf(stderr, "bench: %s failed\n", what);
    std::exit(1);
}

std::uint32_t dice::below(std::uint32_t bound)
{
    state = state * 1664525U + 1013904223U;
    return static_cast<std::uint32_t>((std::uint64_t{state} * bound) >> 32);
}

std::vector<std::uint8_t> dice::bytes(std::size_t count)
{
    std::vector<std::uint8_t> some(count);
    for (std::uint8_t& byte : some) byte = static_cast<std::uint8_t>(below(256));
    return some;
}

} // namespace bench
