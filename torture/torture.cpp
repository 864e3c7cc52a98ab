// yfs_torture: cuts by the million. Prints the counts and where to go on.
//   yfs_torture afs|efs|headers FIRST COUNT
// runs COUNT seeds from FIRST on (headers: sequence numbers).
#include "torture/torture.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace torture {

void report_loss(totals& all, std::uint64_t seed, const std::string& what)
{
    if (++all.lost <= 20) std::printf("LOST: seed %llu: %s\n", static_cast<unsigned long long>(seed), what.c_str());
}

std::vector<std::uint32_t> places(const yfs::test::chip_change& change, std::uint32_t step)
{
    if (change.kind == yfs::test::chip_call::erase) return {0, 1, 4, 8, 12, 17, 18, 140, 2048, 4095};
    std::vector<std::uint32_t> out;
    const std::uint32_t stride = change.len > 20 ? step : 1;
    for (std::uint32_t at = 0; at < change.len; at += stride) out.push_back(at);
    return out;
}

void scratch::restore(const std::vector<std::uint8_t>& base, const yfs::test::chip_change& change)
{
    const auto put_back = [&](const yfs::test::chip_change& c) {
        std::copy_n(base.begin() + c.addr, c.len, image_.begin() + c.addr);
    };
    put_back(change);
    for (const auto& c : chip.journal()) put_back(c);
}

} // namespace torture

int main(int argc, char** argv)
{
    using namespace torture;
    if (argc != 4) {
        std::fprintf(stderr, "usage: yfs_torture afs|efs|headers FIRST COUNT\n");
        return 16;
    }
    const std::string what = argv[1];
    const std::uint64_t first = std::strtoull(argv[2], nullptr, 0), count = std::strtoull(argv[3], nullptr, 0);
    totals all;
    for (std::uint64_t seed = first; seed < first + count; ++seed) {
        if (what == "afs") cut_afs(seed, all);
        if (what == "efs") cut_efs(seed, all);
        if (what == "headers")
            sweep_headers(static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed) + 1, all);
        if (isatty(STDERR_FILENO) != 0) {
            std::fprintf(stderr, "\r%s seed %llu: %llu cuts, %llu pairs, %llu lost ", what.c_str(),
                         static_cast<unsigned long long>(seed), static_cast<unsigned long long>(all.cuts),
                         static_cast<unsigned long long>(all.pairs), static_cast<unsigned long long>(all.lost));
        }
    }
    std::printf("%s: seeds %llu to %llu: %llu operations, %llu cuts, %llu pairs of cuts, %llu lost; go on with %llu\n",
                what.c_str(), static_cast<unsigned long long>(first),
                static_cast<unsigned long long>(first + count - 1), static_cast<unsigned long long>(all.operations),
                static_cast<unsigned long long>(all.cuts), static_cast<unsigned long long>(all.pairs),
                static_cast<unsigned long long>(all.lost), static_cast<unsigned long long>(first + count));
    return all.lost == 0 ? 0 : 1;
}
