// Workloads of a host: the start of a run, values by name, a run from start to end.
#include "bench/host_set.h"
#include "bench/workload.h"

#include <cstring>
#include <memory>

namespace bench {

namespace {

void start(host_set& set)
{
    const YZonInitParams params = set.params();
    expect(yeYfsYzonInit(&params, nullptr) == 1, "yeYfsYzonInit");
}

std::function<void()> init(std::uint32_t count)
{
    const auto set = std::make_shared<host_set>(host_set_shape{count, 1, false});
    return [set] { start(*set); };
}

// Paths in an order without neighbours.
std::vector<std::string> paths_of(std::uint32_t count)
{
    std::vector<std::string> paths;
    for (std::uint32_t i = 0; i < count; ++i) {
        paths.push_back(path_of(static_cast<std::uint32_t>(std::uint64_t{i} * 37 % count)));
    }
    return paths;
}

std::function<void()> get_each(std::uint32_t count)
{
    const auto set = std::make_shared<host_set>(host_set_shape{count, 5, false});
    const auto paths = std::make_shared<std::vector<std::string>>(paths_of(count));
    start(*set);
    return [set, paths] {
        for (const std::string& path : *paths) {
            void* data = nullptr;
            std::uint32_t size = 0;
            expect(yeYfsNvarGet(path.c_str(), &data, &size, FCS_CURRENT_VALUES, nullptr, nullptr) == 1, "yeYfsNvarGet");
        }
    };
}

std::function<void()> whole_run()
{
    const auto set = std::make_shared<host_set>(host_set_shape{500, 5, true});
    const auto paths = std::make_shared<std::vector<std::string>>(paths_of(500));
    return [set, paths] {
        start(*set);
        expect(yeYfsIsVfsDeployed(), "a deployed volume");
        for (std::uint32_t i = 0; i < 10; ++i) {
            void* data = nullptr;
            expect(yeYfsNvarResize((*paths)[i].c_str(), &data, 100 + i) == 1, "yeYfsNvarResize");
            std::memset(data, static_cast<int>(i), 100 + i);
        }
        expect(yeYfsNvarTerm(1) == 1 && yeYfsNvarTerm(0) == 1, "yeYfsNvarTerm");
    };
}

} // namespace

std::vector<workload> host_workloads()
{
    return {
        {"H1", "yeYfsYzonInit, 500 entries in each table", 1, 4000, 0, [] { return init(500); }},
        {"H1b", "the same with 1,000", 1, 0, 0, [] { return init(1000); }},
        {"H1c", "the same with 2,000", 1, 0, 0, [] { return init(2000); }},
        {"H2", "yeYfsNvarGet among 1,000 entries", 1000, 0.3, 0, [] { return get_each(1000); }},
        {"H2a", "the same among 100", 100, 0, 0, [] { return get_each(100); }},
        {"H2b", "the same among 10,000", 10000, 0, 0, [] { return get_each(10000); }},
        {"H3", "a whole run, deployed, 500 files, 10 edits", 1, 0, 0, whole_run},
    };
}

} // namespace bench
