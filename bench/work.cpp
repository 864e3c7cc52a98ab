// yfs_work ID runs one workload; its measured stretch is the function bench_measured and all that it calls, which is
// where a profiler switches its counting on. yfs_work list tells of all of them. Built a second time on the counting
// media (YFS_WORK_ON_FLASH_COUNTS), the program prints what the stretch did to the flash instead.
#include "bench/workload.h"
#ifdef YFS_WORK_ON_FLASH_COUNTS
#include "bench/counting_medium.h"
#endif

#include <cinttypes>
#include <cstdio>
#include <cstring>

extern "C" [[gnu::noinline]] void bench_measured(const std::function<void()>* stretch);

extern "C" void bench_measured(const std::function<void()>* stretch)
{
    (*stretch)();
}

static void run(const bench::workload& one)
{
    const std::function<void()> stretch = one.make();
#ifdef YFS_WORK_ON_FLASH_COUNTS
    bench::flash = {};
#endif
    bench_measured(&stretch);
#ifdef YFS_WORK_ON_FLASH_COUNTS
    std::printf("%" PRIu64 " %" PRIu64 " %" PRIu64 " %" PRIu64 "\n", bench::flash.programmed, bench::flash.programs,
                bench::flash.read, bench::flash.erases);
#endif
}

int main(int argc, char** argv)
{
    const char* const wanted = argc == 2 ? argv[1] : "list";
    const bool list = std::strcmp(wanted, "list") == 0;
    for (auto family :
         {bench::volume_workloads, bench::host_workloads, bench::efs_workloads, bench::growth_workloads}) {
        for (const bench::workload& one : family()) {
            if (list) {
                std::printf("%s|%s|%" PRIu32 "|%g|%g\n", one.id, one.what, one.operations, one.mark, one.stretch);
            } else if (std::strcmp(wanted, one.id) == 0) {
                run(one);
                return 0;
            }
        }
    }
    return list ? 0 : 1;
}
