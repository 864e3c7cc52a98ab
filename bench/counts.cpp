// The flash counts of every scenario, one run each, and the memory of a mounted volume, as lines of
// "name | programmed | read | erases" and a last one "memory | held | most".
#include "bench/counting_medium.h"
#include "bench/scenario.h"

#include "yfs/dfs.h"
#include "yfs/make_volume.h"

#include <cinttypes>
#include <cstdio>

static void count(bench::scenario& one)
{
    one.prepare();
    bench::flash = {};
    one.run();
    std::printf("%s|%" PRIu64 "|%" PRIu64 "|%" PRIu64 "\n", one.name.c_str(), bench::flash.programmed,
                bench::flash.read, bench::flash.erases);
}

// A volume of the 2 MiB class with 1,024 file heads, all in use.
static void count_memory()
{
    constexpr std::uint32_t files = 1024;
    std::vector<std::uint8_t> image(0x1FE000);
    const auto size = static_cast<std::uint32_t>(image.size());
    const auto content = bench::dice(1).bytes(1000);
    bench::expect(yfs_make_volume(image.data(), size, files) == 0, "yfs_make_volume");
    bench::expect(dfs_init(image.data(), size) == 0, "dfs_init");
    for (std::uint32_t i = 0; i < files; ++i) {
        bench::expect(dfs_write(i, 0, 1000, content.data(), 1) == 0, "dfs_write");
    }
    bench::memory.most = 0;
    bench::expect(dfs_init(image.data(), size) == 0, "dfs_init");
    for (std::uint32_t i = 0; i < files; ++i) {
        bench::expect(dfs_write(i, 0, 1000, content.data(), 1) == 0, "dfs_write");
    }
    std::printf("memory|%" PRIu64 "|%" PRIu64 "|0\n", bench::memory.held, bench::memory.most);
}

int main()
{
    for (auto& one : bench::all_scenarios()) count(one);
    count_memory();
    return 0;
}
