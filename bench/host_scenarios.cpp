// A host's whole run over 1,000 NVARs: start, read every value, resize and change every tenth, rebuild, fetch the new
// table, end. Once over the tables alone and once with a volume that holds the live values.
#include "bench/host_set.h"
#include "bench/scenario.h"

#include "yfs/facade.h"

#include <cstring>
#include <memory>

namespace bench {

namespace {

constexpr std::uint32_t nvars = 1000;

void whole_run(host_set& set, const std::vector<std::string>& paths, bool deployed)
{
    const YZonInitParams params = set.params();
    expect(yeYfsYzonInit(&params, nullptr) == 1 && yeYfsIsVfsDeployed() == deployed, "yeYfsYzonInit");
    for (std::uint32_t i = 0; i < nvars; ++i) {
        void* data = nullptr;
        std::uint32_t size = 0;
        expect(yeYfsNvarGet(paths[i].c_str(), &data, &size, FCS_CURRENT_VALUES, nullptr, nullptr) == 1, "yeYfsNvarGet");
        if (i % 10 != 0) continue;
        expect(yeYfsNvarResize(paths[i].c_str(), &data, size + 8) == 1, "yeYfsNvarResize");
        std::memset(data, static_cast<int>(i & 0xFFU), size + 8);
    }
    void* table = nullptr;
    std::uint32_t length = 0;
    expect(yeYfsNvarTerm(1) == 1, "yeYfsNvarTerm");
    expect(yeYfsGetBuildZonCfgFcsBuffer(&table, &length) == 1 && length > 0, "yeYfsGetBuildZonCfgFcsBuffer");
    expect(yeYfsNvarTerm(0) == 1, "yeYfsNvarTerm at the end");
}

scenario host_run(const char* name, bool deployed)
{
    const auto start = std::make_shared<host_set>(host_set_shape{nvars, 5, deployed});
    const auto set = std::make_shared<host_set>(*start);
    const auto paths = std::make_shared<std::vector<std::string>>();
    for (std::uint32_t i = 0; i < nvars; ++i) paths->push_back(path_of(i));
    return {name,
            1,
            0,
            {10e-3, "10 ms"},
            true,
            [start, set] { set->yfs = start->yfs; },
            [set, paths, deployed] { whole_run(*set, *paths, deployed); }};
}

} // namespace

std::vector<scenario> host_scenarios()
{
    return {host_run("host run, 1,000 NVARs, tables", false), host_run("host run, 1,000 NVARs, volume", true)};
}

} // namespace bench
