// yfs_bench: every scenario timed on the library's own medium. The flash counts beside the times come from
// yfs_bench_counts, which runs the same scenarios once on a medium that counts; so the counting costs the timing
// nothing.
#include "bench/scenario.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <ctime>
#include <map>
#include <memory>
#include <sstream>

namespace {

struct counts {
    double programmed = 0;
    double read = 0;
    double erases = 0;
};

// What the other program prints, by scenario.
std::map<std::string, counts> run_counts()
{
    std::map<std::string, counts> all;
    const std::unique_ptr<FILE, int (*)(FILE*)> from(popen(YFS_BENCH_COUNTS, "r"), pclose);
    bench::expect(from != nullptr, YFS_BENCH_COUNTS);
    char line[256];
    while (std::fgets(line, sizeof line, from.get()) != nullptr) {
        std::istringstream fields(line);
        std::string name, number;
        std::getline(fields, name, '|');
        counts& one = all[name];
        for (double* value : {&one.programmed, &one.read, &one.erases}) {
            std::getline(fields, number, '|');
            *value = std::stod(number);
        }
    }
    return all;
}

// Time that this thread had a processor: the library neither waits nor starts threads, so what else the machine does
// stays out of the figures, as far as caches let it.
double processor_seconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

void time_runs(benchmark::State& state, const bench::scenario& one, const counts& flash)
{
    one.prepare();
    one.run(); // warm
    one.prepare();
    for (auto round : state) {
        static_cast<void>(round);
        const double begin = processor_seconds();
        one.run();
        state.SetIterationTime(processor_seconds() - begin);
        if (one.changes) one.prepare();
    }
    const auto operations = static_cast<double>(one.operations);
    state.counters["programmed/op"] = flash.programmed / operations;
    state.counters["read/op"] = flash.read / operations;
    state.counters["erases/op"] = flash.erases / operations;
    if (one.user_bytes != 0) {
        state.SetBytesProcessed(static_cast<int64_t>(one.user_bytes) * static_cast<int64_t>(state.iterations()));
    }
}

// One row a scenario: time, mark, flash counts.
class table : public benchmark::BenchmarkReporter {
public:
    table(const std::vector<bench::scenario>& scenarios, std::map<std::string, counts>& counted) : flash(counted)
    {
        for (const auto& one : scenarios) by_name[one.name] = &one;
    }

    bool ReportContext(const Context&) override
    {
        std::printf("%-31s%11s%12s%7s%9s%15s%12s%11s%15s%13s\n", "operation", "us/op", "mark", "", "MB/s",
                    "programmed/op", "read/op", "erases/op", "progr./byte", "erased/byte");
        return true;
    }

    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) print(run);
        }
        std::fflush(stdout);
    }

    void Finalize() override
    {
        const counts& memory = flash["memory"];
        std::printf("\nBytes are counted on the flash, erases in blocks of 4096; read has what verifies each write.\n"
                    "Memory of a mounted volume of 0x1FE000 bytes with 1,024 files: %.0f bytes (mark 65536: %s); "
                    "%.0f at most, during the mount.\n",
                    memory.programmed, memory.programmed < 65536 ? "met" : "MISSED", memory.read);
    }

private:
    void print(const Run& run)
    {
        const auto& one = *by_name.at(run.run_name.function_name);
        const counts& count = flash[one.name];
        const auto operations = static_cast<double>(one.operations), user = static_cast<double>(one.user_bytes);
        const double seconds = run.real_accumulated_time / static_cast<double>(run.iterations);
        const bool met = seconds <= one.limit.seconds;
        std::printf("%-31s%11.3f%12s%7s", one.name.c_str(), seconds * 1e6 / operations, one.limit.in_words,
                    one.limit.seconds == 0 ? ""
                    : met                  ? "met"
                                           : "MISSED");
        if (user > 1)
            std::printf("%9.0f", user / seconds / 1e6);
        else
            std::printf("%9s", "");
        std::printf("%15.1f%12.1f%11.4f", count.programmed / operations, count.read / operations,
                    count.erases / operations);
        if (user > 1 && count.programmed > 0) {
            std::printf("%15.3f%13.3f", count.programmed / user, count.erases * 4096 / user);
        }
        std::printf("\n");
    }

    std::map<std::string, const bench::scenario*> by_name;
    std::map<std::string, counts>& flash;
};

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;

    auto flash = run_counts();
    const auto all = bench::all_scenarios();
    for (const auto& one : all) {
        const counts& count = flash[one.name];
        benchmark::RegisterBenchmark(one.name.c_str(),
                                     [&one, &count](benchmark::State& state) { time_runs(state, one, count); })
            ->UseManualTime()
            ->Unit(benchmark::kMicrosecond);
    }
    table rows(all, flash);
    benchmark::RunSpecifiedBenchmarks(&rows);
    return 0;
}
