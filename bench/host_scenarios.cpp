// A host's whole run over 1,000 NVARs: start, read every value, resize and change every tenth, rebuild, fetch the new
// table, end. Once over the tables alone and once with a volume that holds the live values.
#include "bench/scenario.h"
#include "tests/support/table_builder.h"

#include "yfs/dfs.h"
#include "yfs/facade.h"
#include "yfs/make_volume.h"

#include <cstring>
#include <memory>

namespace bench {

namespace {

using yfs::test::blob;

constexpr std::uint32_t sku = 3;
constexpr std::uint32_t nvars = 1000;
constexpr std::uint32_t first_index = 1;                    // the number 0 is none to the rebuild
constexpr std::uint32_t deploy_index = first_index + nvars; // not empty: the volume holds the live values
constexpr std::uint32_t first_fileno = 0x10000;

std::string path_of(std::uint32_t i)
{
    return "/home/qrd/group" + std::to_string(i % 20) + "/value_" + std::to_string(i);
}

// The buffers that a host hands in.
struct host_set {
    blob ftbl, velor, zonc, yfs;

    explicit host_set(bool deployed)
    {
        yfs::test::table_sku entries{sku, {}};
        std::vector<yfs::test::cfg_file> defaults, overrides;
        dice random(9);
        for (std::uint32_t i = 0; i < nvars; ++i) {
            yfs::test::table_file file{path_of(i), first_fileno + i};
            file.file_index = static_cast<std::uint16_t>(first_index + i);
            file.max_size = 4096;
            entries.files.push_back(file);
            defaults.push_back({first_fileno + i, random.bytes(4 + random.below(120))});
            if (i % 5 == 0) overrides.push_back({first_fileno + i, random.bytes(4 + random.below(120))});
        }
        yfs::test::table_file deploy{"/home/qrd/deploy", first_fileno + nvars};
        deploy.file_index = deploy_index;
        entries.files.push_back(deploy);

        ftbl = yfs::test::make_file_table({entries});
        velor = yfs::test::make_cfg_table(defaults);
        zonc = yfs::test::make_partition(yfs::test::make_cfg_table(overrides));
        if (deployed) deploy_values(defaults);
    }

    YZonInitParams params()
    {
        const auto table = [](blob& bytes) {
            return _commonYZonTable{bytes.data(), static_cast<std::uint32_t>(bytes.size())};
        };
        return {table(velor), table(zonc), table(yfs), table(ftbl), sku, {nullptr, 0}};
    }

private:
    void deploy_values(const std::vector<yfs::test::cfg_file>& values)
    {
        yfs.resize(0x1FE000);
        const auto size = static_cast<std::uint32_t>(yfs.size());
        expect(yfs_make_volume(yfs.data(), size, 1024) == 0, "yfs_make_volume");
        expect(dfs_init(yfs.data(), size) == 0, "dfs_init");
        for (std::uint32_t i = 0; i < nvars; ++i) {
            const blob& value = values[i].payload;
            expect(dfs_write(first_index + i, 0, static_cast<std::uint32_t>(value.size()), value.data(), 1) == 0,
                   "dfs_write");
        }
        expect(dfs_write(deploy_index, 0, 1, "1", 1) == 0, "dfs_write");
    }
};

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
    const auto start = std::make_shared<host_set>(deployed);
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
