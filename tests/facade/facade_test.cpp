// Runs over tables and volumes made for the case: what each call answers, reports, and leaves behind.
#include "facade/facade_internal.h"
#include "tests/facade/host.h"
#include "tests/support/efs_builder.h"
#include "yfs/make_efs.h"

namespace yfs::test::facade_facade {

const auto rebuilt = yeYfsGetBuildZonCfgFcsBuffer;
const char a[] = "/home/a", b[] = "/home/B"; // b sorts first

TEST(Errors, TextsAreAnInterface)
{
    const auto text = [](int code) { return ZonErrors::getErrorNameString(static_cast<ImageToolsErrorName>(code)); };
    ZonErrors::init();
    std::string all;
    for (int code = -1; code <= 411; ++code) all += std::to_string(code) + "=" + text(code) + "\n";
    for (const auto& [n, tag] : ZonErrors::s_imageToolsErrorTypeStringMap) all += std::to_string(n) + "=" + tag + "\n";
    const blob told(all.begin(), all.end());
    EXPECT_EQ(EFS_crc32(0, told.data(), low32(told.size())), 586576306U) << all;
}

TEST(Init, RefusesWhatItCannotUse)
{
    const std::tuple<const char*, void (*)(host&), std::string> rows[] = {
        {"defaults", [](host& h) { h.velor = h.ftbl = {}; }, "341:Velor.cfg table is mandatory for loading by Y-ZON.;"},
        {"ftbl", [](host& h) { h.ftbl = {}; }, "401:ftbl data must be defined for flat VFS, but not load by Y-ZON.;"},
        {"ftbl cut", [](host& h) { h.ftbl.resize(1); }, "401#1;"},
        {"defaults cut", [](host& h) { h.velor.pop_back(); }, "328#10;"},
        {"no header", [](host& h) { h.zonc.resize(15); }, "113:Invalid ZONC partition length;"},
        {"over the end", [](host& h) { ++h.zonc[8]; }, "339:Invalid ZONC partition size.;"},
        {"near 32 bits", [](host& h) { h.zonc[9] = h.zonc[10] = h.zonc[11] = 0xFF; },
         "339:Invalid ZONC partition size.;"},
        {"overrides cut", [](host& h) { --h.zonc[8]; }, "328#10;"},
        {"small volume", [](host& h) { h.yfs.resize(0x7FFF); }, "1#22;339:;"},
        {"blank volume", [](host& h) { h.yfs.assign(0x20000, 0xFF); }, "1#5;339:;"},
        {"no EFS there", [](host& h) { h.efs.assign(yeYfsGetEfsSize(), 0x5A); }, "340:;"},
    };
    testing::internal::CaptureStdout();
    for (const auto& [name, spoil, told] : rows) {
        SCOPED_TRACE(name);
        host run({{.path = a, .velor = blob{1}, .zonc = blob{2, 3}, .live = blob{4}}, deployed});
        spoil(run);
        const blob efs = run.efs;
        EXPECT_EQ(run.init(), 0);
        EXPECT_EQ(host::reports(), told);
        const bool tables_stand = told.ends_with(":;"); // the volumes come last
        EXPECT_EQ(host::state(), tables_stand);
        EXPECT_EQ(value_of(a), tables_stand ? value({2, 3}) : std::nullopt);
        EXPECT_EQ(yeYfsNvarTerm(1), tables_stand);
        EXPECT_EQ(run.efs, efs);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "dfs_init failed\ndfs_init failed\n");

    YZonInitParams p{};
    p.velorCfg = {&p, 1};
    _commonYZonTable* const tables[] = {&p.efs, &p.yfs, &p.ftbl, &p.zonCfg, &p.velorCfg};
    const std::string names[] = {"EFS", "YFS", "ftbl.bin", "zonc.cfg", "Velor.cfg table"};
    for (int i = 0; i < 5; ++i) {
        *tables[i] = {nullptr, 1}; // of several the first counts
        EXPECT_EQ(yeYfsYzonInit(&p, record), 0);
        EXPECT_EQ(host::reports(), "339:Invalid table " + names[i] + ". The table is loaded but data is empty.;");
    }
}

// A sound image that the geometry of the file table reaches beyond: of each buffer not a byte behind its end is read.
TEST(Init, TakesNoEfsShorterThanItsGeometry)
{
    use_efs_table({2, 7, 3}, {efs_entry(0, 0, 300)});
    blob sound(EFS_get_efs_size());
    ASSERT_EQ(yfs_make_efs(sound.data(), EFS_get_efs_size()), 0U);
    for (const std::size_t size :
         {sound.size(), sound.size() - 1, std::size_t{9 * 4096}, std::size_t{4096 + 38}, 1UL}) {
        const bool whole = size == sound.size();
        host run({{a, blob{1}, {}, blob{4}}, deployed});
        run.efs = blob(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(run.init(), whole) << size;
        EXPECT_EQ(host::reports(), whole ? "" : "340:;");
        EXPECT_TRUE(EFS_is_initialized() == whole && host::state() == (whole ? 3 : 1));
        std::uint32_t length = 0;
        EXPECT_EQ(EFS_get_file_size(0, &length), whole ? 2U : 1U) << "and no later call reads there";
        EXPECT_TRUE(std::equal(run.efs.begin(), run.efs.end(), sound.begin()));
    }
}

TEST(Run, TakesTheValuesOfADeployedVolumeAndWritesThemBack)
{
    const auto stored = [](std::size_t size, std::uint16_t attributes = 0) {
        return nvar{a, blob{1}, blob{2}, bytes(size), attributes};
    };
    // The value at the start, if that succeeds; the size of the new one; what the next run finds.
    const std::tuple<const char*, nvar, value, std::size_t, value, std::string> rows[] = {
        {"shorter", stored(700), bytes(700), 65, blob(65, 7), ""},
        {"longer", stored(65), bytes(65), 700, blob(700, 7), ""},
        {"emptied", stored(100), bytes(100), 0, blob{}, ""},
        {"empty as it was", stored(0), blob{}, 0, blob{}, ""},
        {"bit 0: a tail of 40", stored(41, 0x01), bytes(1), 3, bytes(1), ""},
        {"short of it", stored(39, 0x01), {}, 0, {}, "339:;"},
        {"bits 0 and 6: of 56", stored(57, 0x41), bytes(1), 3, bytes(1), ""},
        {"bit 1: not taken over", stored(60, 0x02), blob{2}, 3, blob{2}, ""},
        {"above its limit", {a, blob{1}, {}, bytes(9), 0, 4}, bytes(9), 5, bytes(9), "331#12;345:;"},
        {"above 16 bits", stored(1), bytes(1), 70000, bytes(1), "331#5;345:;"},
        {"volume full", stored(65000), bytes(65000), 65523, bytes(65000), "99#28;345:;"},
        {"number 0", {.path = a, .velor = blob{1}, .index = 0x800}, blob{1}, 1, blob{1}, "99#0;345:;"},
        {"missing at the end", {a, blob{1}, {}, {}, 2}, blob{1}, 1, blob{1}, "336#0;345:;"},
        {"missing", {a, blob{1}}, {}, 0, {}, "339:;"},
        {"override off", {a, blob{1}, blob{2}, blob{9}, 0, 9, 1, 0}, {}, 0, {}, "346:;339:;"},
        {"outside of /home", {"/var/x", blob{1}, {}, blob{9}}, {}, 0, {}, "38:;339:;"},
        {"no tree takes it", {.path = a, .velor = blob{1}, .live = blob{9}, .fileno = 0}, {}, 0, {}, "331#2;38:;339:;"},
    };
    for (const bool keep : {true, false}) {
        for (const auto& [name, file, loaded, size, left, told] : rows) {
            SCOPED_TRACE(name);
            host run({file, {.path = b, .velor = blob{1}, .live = bytes(30, 3)}, deployed});
            EXPECT_EQ(run.init(), loaded.has_value());
            EXPECT_EQ(yeYfsIsVfsDeployed(), loaded.has_value());
            if (loaded) {
                EXPECT_EQ(value_of(a), loaded);
                EXPECT_TRUE(limit == file.max_size && modifiable == (file.attributes % 2 == 0));
                ASSERT_TRUE(set_value(a, blob(size, 7)) && set_value(b, {8}));
                EXPECT_EQ(yeYfsNvarTerm(keep), told.empty());
            }
            EXPECT_EQ(host::reports(), told);
            EXPECT_EQ(host::state(), told.empty() ? 3 * keep : !loaded);
            EXPECT_EQ(run.init(), loaded.has_value());
            EXPECT_EQ(value_of(b), loaded && !told.starts_with("331") ? blob{8} : bytes(30, 3)) << "no undo, no half";
            EXPECT_TRUE(!loaded || value_of(a) == left);
        }
    }
}

TEST(Run, BeginsAnewAndKeepsTheFileTableInForce)
{
    host first({{a, blob{1}}, deployed}), second({{a, blob{2}, blob{3}}}), other({{b, blob{4}}});
    other.sku = 77; // not in its table: the old names stay in force, also for the run after that
    for (host* run : {&first, &second, &first, &second, &other, &other, &other}) {
        EXPECT_EQ(run->init(), run != &first) << "not in the volume";
        EXPECT_EQ(host::state(), 1);
        EXPECT_EQ(value_of(a), blob{static_cast<std::uint8_t>(run == &first ? 1 : run == &second ? 3 : 4)});
    }
    EXPECT_EQ(yeYfsYzonInit(nullptr, record), 0);
    EXPECT_EQ(host::state(), 0);
}

// A run without a volume mustn't reach into the buffer of the one before it, whose host may have freed it.
TEST(Run, LetsGoOfTheFormerVolume)
{
    host first({{a, blob{1}, {}, blob{4, 4}}, deployed}), second({{a, blob{2}, blob{3}}, deployed});
    second.yfs.clear();
    EXPECT_EQ(first.init(), 1);
    EXPECT_EQ(value_of(a), (blob{4, 4}));
    EXPECT_EQ(second.init(), 1);
    EXPECT_EQ(value_of(a), blob{3});
    const blob before = first.yfs;
    EXPECT_TRUE(set_value(a, blob{9}));
    EXPECT_EQ(yeYfsNvarTerm(1), 1);
    EXPECT_EQ(first.yfs, before);
    EXPECT_EQ(host::state(), 1);
    second.zonc.clear();
    EXPECT_EQ(second.init(), 1);
    EXPECT_EQ(value_of(a), blob{2}) << "no overrides at all";
}

TEST(Run, ServesValuesAndBuildsATableOfAllAvailableOnes)
{
    host run({{a, blob{1}, blob{2, 3}},
              {"/home/gone", blob{1}, blob{9}, {}, 0, 9, 0},
              {"/home/bare", blob{}, {}, {}, 0, 9, 0xFFFE},
              {"/home/over", blob{5}, blob{2}, {}, 0, 9, 1, 0},
              {"/home//homeb", blob{7}},
              {"/home/a-c", blob{3}, {}, {}, 1}});
    ASSERT_EQ(run.init(), 1);
    const std::tuple<std::string, std::uint32_t, value, std::string> rows[] = {
        {a, 0, blob{1}, ""},      {a, 1, blob{2, 3}, ""},     {"a", 2, blob{2, 3}, ""},
        {"/a", 2, {}, "38:;"},    {"/homeb", 2, blob{7}, ""}, // the whole prefix in front
        {"gone", 0, {}, "320:;"}, {"gone", 1, blob{9}, ""},   {"gone", 2, {}, "38:;"},
        {"bare", 0, {}, "346:;"}, {"over", 2, {}, "320:;"},   {std::string(400, 'x'), 2, {}, "38:;"},
    };
    for (const auto& [path, index, wanted, told] : rows) {
        SCOPED_TRACE(path + " in " + std::to_string(index));
        const FcsFileName table = yeYfsGetFcsFileNameMapping(index);
        EXPECT_EQ(yeyfsCheckNvarExists(path.c_str(), table), told != "38:;");
        EXPECT_EQ(value_of(path, table), wanted);
        EXPECT_EQ(host::reports(), told);
    }

    void* data = &data;
    std::uint32_t size = 77;
    EXPECT_EQ(yeyfsCheckNvarExists(nullptr, FCS_VELOR_CFG) + yeyfsCheckNvarExists(a, static_cast<FcsFileName>(9)), 0);
    for (const auto& [path, to] : {std::pair<const char*, void**>{nullptr, nullptr}, {a, nullptr}, {a, &data}})
        EXPECT_EQ(yeYfsNvarGet(path, to, nullptr, FCS_VELOR_CFG, nullptr, nullptr), 0);
    EXPECT_EQ(yeYfsNvarResize(nullptr, nullptr, 1) + yeYfsNvarResize(a, nullptr, 1), 0);
    EXPECT_EQ(yeYfsNvarResize("nowhere", &data, 1) + yeYfsNvarResize("over", &data, 1), 0);
    EXPECT_EQ(rebuilt(nullptr, &size) + rebuilt(&data, nullptr), 0);
    EXPECT_EQ(host::reports(),
              "398:Null NVAR path;334:;398:Null NVAR path;398:Null data;398:Null data size;398:Null NVAR "
              "path;398:Null New NVAR data;38:;346:;398:ZON CFG buffer;398:ZON CFG buffer;");
    EXPECT_TRUE(data == &data && size == 77);

    // The guards of the tables' own operations.
    FcsTable &table = facade::s_currentValuesTable, none{};
    const facade::owned_entry entry(facade::copyFileEntry(table.head));
    const auto add = facade::yeYfsAddNewFileFcs;
    EXPECT_FALSE(add(none, entry.get(), false) || add(table, table.head, false) || add(table, entry.get(), false));
    entry->name[6] = 'z', entry->entry.fileno = 0x777;
    EXPECT_TRUE(!add(table, entry.get(), false) && !facade::yeYfsFindFileEntryInTable(FCS_VELOR_CFG, nullptr));
    EXPECT_EQ(facade::yeYfsMemCpy(&size, sizeof size, a, 5), 40U);
    EXPECT_EQ(host::reports(), "0:Invalid FCS handle or fileEntry pointer;327:;326:;331#8;"
                               "398:Invalid NVAR path;321:Memory copy failed with error 40;");

    void* grown = nullptr;
    ASSERT_EQ(yeYfsNvarResize("a-c", &grown, 5000) + yeYfsNvarResize("a-c", &data, 5000), 2);
    EXPECT_EQ(data, grown) << "the present size keeps the pointer";
    EXPECT_TRUE(value_of("a-c")->back() == 0 && modifiable == 1) << "no tail without a deployed volume";
    ASSERT_EQ(yeYfsNvarResize("a-c", &data, 1), 1);
    EXPECT_EQ(handed_out(rebuilt), blob(run.zonc.begin() + 16, run.zonc.end())) << "until the rebuild, the host's own";
    ASSERT_EQ(yeYfsNvarTerm(1), 1);
    EXPECT_EQ(handed_out(rebuilt), make_cfg_table({{0x504, {7}}, {0x505, {3}}, {0x500, {2, 3}}})) << "a-c/ before a/";
    EXPECT_EQ(value_of("a-c", FCS_ZON_CFG), blob{3}) << "a list without a tree";
    for (int times = 0; times < 2; ++times) {
        ASSERT_EQ(yeYfsNvarResize(a, &data, 0), 1);
        EXPECT_EQ(data, nullptr);
        ASSERT_EQ(yeYfsNvarTerm(0xFF), 1);
        EXPECT_EQ(handed_out(rebuilt), make_cfg_table({{0x504, {7}}, {0x505, {3}}, {0x500, {}}, {0x503, {5}}}));
    }
    EXPECT_TRUE(yeYfsNvarTerm(0) == 1 && !handed_out(rebuilt));
    EXPECT_EQ(yeYfsNvarTerm(0) + yeYfsNvarTerm(1), 0);
    EXPECT_EQ(host::reports(), "324:;324:;") << "the callback stays";
}

void call_everything()
{
    void* data = nullptr;
    EXPECT_EQ(yeYfsYzonInit(nullptr, nullptr) + yeYfsNvarTerm(0) + yeYfsNvarResize(a, &data, 5), 0);
    EXPECT_EQ(value_of(a, FCS_VELOR_CFG), std::nullopt);
    EXPECT_EQ(yeyfsCheckNvarExists(a, FCS_VELOR_CFG) + rebuilt(nullptr, nullptr) + yeYfsIsVfsDeployed(), 0);
    EXPECT_EQ(yeYfsGetFcsFileNameMapping(9), FCS_CURRENT_VALUES);
    ZonErrors::init(); // fills the maps from which the text was taken
}

TEST(Callback, MayCallBackThrowOrBeAbsent)
{
    host run({{a, blob{1}, {}, blob{2}, 0, 4}, deployed});
    ASSERT_EQ(run.init(), 1);
    while_reporting = [] { throw 7; };
    EXPECT_THROW(value_of("nowhere"), int);
    while_reporting = call_everything;
    EXPECT_EQ(value_of(a), blob{2}) << "the next call is served";
    EXPECT_EQ(yeYfsGetFcsFileNameMapping(3), FCS_CURRENT_VALUES);
    ASSERT_TRUE(set_value(a, blob(5)));
    EXPECT_EQ(yeYfsNvarTerm(1), 0);
    while_reporting = nullptr;
    EXPECT_EQ(host::reports(), "38:;0:Invalid fcsFileNameMap value;331#12;345:;");
    ASSERT_EQ(run.init(nullptr), 1);
    EXPECT_EQ(value_of("nowhere"), std::nullopt);
    EXPECT_EQ(host::reports(), "");
}

} // namespace yfs::test::facade_facade
