// The rebuild: the new table, what goes into the volume and what doesn't, and how a run ends.
#include "tests/facade/host.h"
#include "tests/support/volume_builder.h"
#include "yfs/dfs.h"

#include <cstring>
#include <functional>

namespace yfs::test {
namespace {

const char a[] = "/home/a", b[] = "/home/b";

// What built_table() holds.
std::vector<cfg_file> built_files()
{
    const auto files = read_packed_table(built_table().value_or(blob{}));
    EXPECT_TRUE(files.has_value());
    return files.value_or(std::vector<cfg_file>{});
}

TEST(Term, BuildsATableOfAllAvailableValues)
{
    host run({{.path = "/home/ab", .velor = blob{1}, .zonc = blob{2}},
              {.path = "/home/ab-c", .velor = blob{3}},
              {.path = "/home/off", .velor = blob{4}, .velor_flags = 0x8000},
              {.path = "/home/over", .velor = blob{5}, .zonc = blob{6}, .zonc_flags = 0},
              {.path = "/home/zonly", .zonc = blob{7}}});
    ASSERT_EQ(run.init(), 1);
    const blob partition = run.zonc;
    EXPECT_EQ(built_table(), blob(partition.begin() + 16, partition.end())) << "until the rebuild, the host's own";
    ASSERT_TRUE(set_value("ab-c", {8, 9}));
    EXPECT_EQ(value_of("over"), std::nullopt);
    take_reports();

    ASSERT_EQ(yeYfsNvarTerm(1), 1);
    const std::vector<cfg_file> first = {{0x502, {8, 9}}, {0x501, {2}}}; // "ab-c/" sorts before "ab/"
    EXPECT_EQ(built_files(), first);
    EXPECT_EQ(value_of("ab-c", FCS_ZON_CFG), (blob{8, 9})) << "a list without a tree";
    EXPECT_EQ(value_of("ab-c"), (blob{8, 9}));
    EXPECT_EQ(value_of("over"), blob{5}) << "the default comes back";
    EXPECT_EQ(yeyfsCheckNvarExists("zonly", FCS_ZON_CFG), 0);
    EXPECT_EQ(yeFcsIsInitialized(), 1);

    ASSERT_TRUE(set_value("ab", {}));
    for (int times = 0; times < 2; ++times) {
        ASSERT_EQ(yeYfsNvarTerm(0xFF), 1);
        EXPECT_EQ(built_files(), (std::vector<cfg_file>{{0x502, {8, 9}}, {0x501, {}}, {0x504, {5}}}));
    }
    EXPECT_EQ(run.zonc, partition);
    EXPECT_EQ(take_reports(), reports{});

    EXPECT_EQ(yeYfsNvarTerm(0), 1);
    EXPECT_EQ(yeFcsIsInitialized(), 0);
    EXPECT_EQ(built_table(), std::nullopt);
    EXPECT_EQ(yeYfsNvarTerm(0), 0);
    EXPECT_EQ(yeYfsNvarTerm(1), 0);
    EXPECT_EQ(take_reports(), (reports{says(324), says(324)})) << "the callback stays";
}

TEST(Term, WritesTheValuesIntoADeployedVolume)
{
    struct row {
        const char* name;
        std::size_t stored, value; // bytes in the volume, bytes of the new value
    };
    const row rows[] = {{"same size", 100, 100}, {"shorter", 700, 65},      {"longer", 65, 700},
                        {"emptied", 100, 0},     {"empty as it was", 0, 0}, {"first bytes", 0, 3}};
    for (const std::uint8_t keep : {std::uint8_t{1}, std::uint8_t{0}}) {
        for (const row& r : rows) {
            SCOPED_TRACE(r.name);
            host run({{.path = a, .velor = blob{1}, .live = bytes(r.stored, 1), .max_size = 1000, .index = 21},
                      {.path = b, .velor = blob{1}, .live = bytes(30, 3), .index = 22}},
                     volume_state::deployed);
            ASSERT_EQ(run.init(), 1);
            ASSERT_TRUE(set_value(a, bytes(r.value, 2)));
            ASSERT_EQ(yeYfsNvarTerm(keep), 1);
            EXPECT_EQ(yeYfsIsInitialized(), keep);
            EXPECT_EQ(take_reports(), reports{});

            // What counts is the host's buffer, opened afresh.
            ASSERT_EQ(dfs_init(run.yfs.data(), volume_bytes), 0U);
            EXPECT_EQ(volume_file(21), bytes(r.value, 2));
            EXPECT_EQ(volume_file(22), bytes(30, 3));
        }
    }
}

TEST(Term, LeavesAloneWhatIsNotItsToWrite)
{
    {
        SCOPED_TRACE("attribute bit 0 keeps a file out, bit 1 doesn't");
        host run({{.path = a, .velor = blob{1}, .live = bytes(60), .attributes = 1, .index = 21},
                  {.path = b, .velor = blob{1}, .live = blob{2}, .attributes = 2, .index = 22}},
                 volume_state::deployed);
        ASSERT_EQ(run.init(), 1);
        ASSERT_TRUE(set_value(a, blob{7}));
        ASSERT_EQ(yeYfsNvarTerm(1), 1);
        EXPECT_EQ(built_files(), (std::vector<cfg_file>{{0x501, {7}}, {0x502, {1}}}));
        EXPECT_EQ(volume_file(21), bytes(60));
        EXPECT_EQ(volume_file(22), blob{1});
    }
    {
        SCOPED_TRACE("empty files that stay empty are no write, and an idle volume is none either");
        for (const auto state : {volume_state::deployed, volume_state::idle}) {
            const blob value = state == volume_state::idle ? blob{9} : blob{};
            std::vector<nvar> files = {{.path = a, .velor = value, .live = blob{}}};
            if (state == volume_state::deployed) files.push_back({.path = "/home/not/reached", .live = blob{1}});
            host run(files, state);
            const blob before = run.yfs;
            ASSERT_EQ(run.init(), 1);
            ASSERT_EQ(yeYfsNvarTerm(1), 1);
            ASSERT_EQ(yeYfsNvarTerm(0), 1);
            EXPECT_EQ(run.yfs, before);
        }
    }
}

// Files by number under another name: what a table says that came into force behind the run's back.
blob renamed(const host& run)
{
    blob table = run.ftbl;
    const char name[] = "/home/a";
    const auto at = std::search(table.begin(), table.end(), name, name + sizeof name);
    at[6] = 'z';
    return table;
}

TEST(Term, AFailureBeforeTheTableStandsEndsTheRun)
{
    const nvar plain{.path = a, .velor = blob{1}, .live = blob{2}, .max_size = 0x20000, .index = 21};
    nvar absent = plain, zero = plain, elsewhere = plain, limited = plain;
    absent.live.reset(), absent.attributes = 2; // not read at the start, so the end is the first to miss it
    zero.live.reset(), zero.index = 0x800;
    elsewhere.live.reset(), elsewhere.selector = 3, elsewhere.attributes = 2;
    limited.max_size = 4;
    struct row {
        const char* name;
        nvar file;
        std::function<void(host&)> prepare;
        reports wanted;
    };
    blob other_table;
    const auto nothing = [](host&) {};
    const row rows[] = {
        {"above its limit", limited, [](host&) { set_value(a, blob(5)); }, {says_status(331, 12), says(345)}},
        {"above 16 bits", plain, [](host&) { set_value(a, blob(65524)); }, {says_status(331, 5), says(345)}},
        {"missing in the volume", absent, nothing, {says_status(336, 0), says(345)}},
        {"no such file system", elsewhere, nothing, {says_status(336, 0), says(345)}},
        {"file number 0", zero, nothing, {says_status(99, 0), says(345)}},
        {"name unknown by now",
         plain,
         [&](host& run) {
             other_table = renamed(run);
             load_file_table(other_table.data(), host_sku, static_cast<std::uint32_t>(other_table.size()));
         },
         {says_status(99, 2), says(345)}},
        {"volume full",
         plain,
         [](host&) { set_value(a, blob(65523)), set_value(b, blob(65523)); },
         {says_status(99, 28), says(345)}},
    };
    for (const std::uint8_t keep : {std::uint8_t{1}, std::uint8_t{0}}) {
        for (const row& r : rows) {
            SCOPED_TRACE(r.name);
            host run({r.file, {.path = b, .velor = blob{5}, .live = blob{6}, .max_size = 0x20000, .index = 22}},
                     volume_state::deployed);
            ASSERT_EQ(run.init(), 1);
            r.prepare(run);
            const blob before = run.yfs;
            EXPECT_EQ(yeYfsNvarTerm(keep), 0);
            EXPECT_EQ(take_reports(), r.wanted);
            EXPECT_EQ(yeFcsIsInitialized(), 0);
            EXPECT_EQ(yeYfsIsInitialized(), 0);
            EXPECT_EQ(built_table(), std::nullopt);
            EXPECT_EQ(value_of(a), std::nullopt);
            EXPECT_TRUE(r.wanted.front().code != 331 || run.yfs == before) << "refused before anything is written";
            EXPECT_EQ(run.init(), 1) << "and a new run begins";
        }
    }
}

// ---- Callbacks that call back ----

int inner_calls;

void call_everything()
{
    static const blob empty;
    void* data = &data;
    std::uint32_t size = 5;
    const YZonInitParams nothing{};
    ++inner_calls;
    EXPECT_EQ(yeYfsYzonInit(&nothing, nullptr), 0);
    EXPECT_EQ(yeYfsNvarTerm(0), 0);
    EXPECT_EQ(yeYfsNvarGet(b, &data, &size, FCS_VELOR_CFG, nullptr, nullptr), 0);
    EXPECT_EQ(yeYfsNvarResize(b, &data, 5), 0);
    EXPECT_EQ(yeyfsCheckNvarExists(nullptr, FCS_VELOR_CFG), 0);
    EXPECT_EQ(yeYfsGetBuildZonCfgFcsBuffer(nullptr, nullptr), 0);
    EXPECT_FALSE(yeYfsIsVfsDeployed());
    EXPECT_EQ(yeYfsGetFcsFileNameMapping(9), FCS_CURRENT_VALUES);
    yeYfsIsInitialized(), yeFcsIsInitialized(), yeYfsGetEfsSize();
    EXPECT_EQ(data, &data);
    ZonErrors::init(); // fills the maps from which the text was taken
}

TEST(Callback, IsTurnedAwayWhenItCallsBack)
{
    host run({{.path = a, .velor = blob{1}, .live = blob{2}, .max_size = 4, .index = 21},
              {.path = b, .velor = blob{5}, .live = blob{6}}},
             volume_state::deployed);
    ASSERT_EQ(run.init(), 1);
    inner_calls = 0;
    while_reporting = call_everything;
    EXPECT_EQ(value_of("nowhere"), std::nullopt);
    EXPECT_EQ(yeYfsGetFcsFileNameMapping(3), FCS_CURRENT_VALUES);
    ASSERT_TRUE(set_value(a, blob(5)));
    EXPECT_EQ(yeYfsNvarTerm(1), 0);
    EXPECT_EQ(run.init(), 1);
    run.ftbl[0] = 0;
    EXPECT_EQ(run.init(), 0);
    while_reporting = nullptr;
    EXPECT_EQ(inner_calls, 5);
    EXPECT_EQ(take_reports(), (reports{says(38), says(0, "Invalid fcsFileNameMap value"), says_status(331, 12),
                                       says(345), says_status(401, 1)}));
}

TEST(Callback, MayThrowAndMayBeAbsent)
{
    host run({{.path = a, .velor = blob{1}}});
    ASSERT_EQ(run.init(), 1);
    while_reporting = [] { throw 7; };
    EXPECT_THROW(value_of("nowhere"), int);
    while_reporting = nullptr;
    EXPECT_EQ(value_of(a), blob{1}) << "the next call is served";
    take_reports();

    YZonInitParams given = run.params();
    ASSERT_EQ(yeYfsYzonInit(&given, nullptr), 1);
    EXPECT_EQ(value_of("nowhere"), std::nullopt);
    ASSERT_TRUE(set_value(a, blob(101)));
    EXPECT_EQ(yeYfsNvarTerm(1), 0);
    EXPECT_EQ(take_reports(), reports{});
}

} // namespace
} // namespace yfs::test
