// The start of a run: what is refused with which reports, what stands afterwards, and what a deployed volume gives.
#include "tests/facade/host.h"
#include "tests/support/volume_builder.h"
#include "yfs/dfs.h"
#include "yfs/efs.h"

#include <functional>

namespace yfs::test {
namespace {

const char a[] = "/home/a", b[] = "/home/b";

void set_length(blob& partition, std::uint32_t length)
{
    const yfs_le32 field = length;
    store(partition.data() + 8, field);
}

TEST(Init, RefusesWhatItCannotUse)
{
    struct row {
        const char* name;
        std::function<void(host&, YZonInitParams&)> spoil;
        reports wanted;
        bool tables_stand = false;
    };
    const auto no_data = [](const char* table) {
        return says(339, std::string("Invalid table ") + table + ". The table is loaded but data is empty.");
    };
    const auto null_with_size = [](_commonYZonTable YZonInitParams::*table) {
        return [table](host&, YZonInitParams& p) { p.*table = {nullptr, 1}; };
    };
    const row rows[] = {
        {"no defaults, whatever else is wrong",
         [](host&, YZonInitParams& p) {
             p = {{p.velorCfg.data, 0}, {nullptr, 1}, {}, {}, 0, {}};
         },
         {says(341, "Velor.cfg table is mandatory for loading by Y-ZON.")}},
        {"velor", null_with_size(&YZonInitParams::velorCfg), {no_data("Velor.cfg table")}},
        {"zonc", null_with_size(&YZonInitParams::zonCfg), {no_data("zonc.cfg")}},
        {"ftbl", null_with_size(&YZonInitParams::ftbl), {no_data("ftbl.bin")}},
        {"yfs", null_with_size(&YZonInitParams::yfs), {no_data("YFS")}},
        {"efs", null_with_size(&YZonInitParams::efs), {no_data("EFS")}},
        {"the first of two",
         [](host&, YZonInitParams& p) {
             p.yfs = {nullptr, 1}, p.ftbl = {nullptr, 0};
         },
         {no_data("YFS")}},
        {"no file table",
         [](host&, YZonInitParams& p) { p.ftbl.size = 0; },
         {says(401, "ftbl data must be defined for flat VFS, but not load by Y-ZON.")}},
        {"file table of one byte", [](host&, YZonInitParams& p) { p.ftbl.size = 1; }, {says_status(401, 1)}},
        {"file table with a wrong magic", [](host& h, YZonInitParams&) { h.ftbl[0] = 'f'; }, {says_status(401, 1)}},
        {"defaults cut", [](host&, YZonInitParams& p) { --p.velorCfg.size; }, {says_status(328, 10)}},
        {"partition without a header",
         [](host&, YZonInitParams& p) { p.zonCfg.size = 15; },
         {says(113, "Invalid ZONC partition length")}},
        {"partition shorter than its table",
         [](host& h, YZonInitParams& p) { set_length(h.zonc, p.zonCfg.size - 16 + 1); },
         {says(339, "Invalid ZONC partition size.")}},
        {"a length near 32 bits",
         [](host& h, YZonInitParams&) { set_length(h.zonc, 0xFFFFFFF8U); },
         {says(339, "Invalid ZONC partition size.")}},
        {"a header for nothing",
         [](host& h, YZonInitParams& p) { set_length(h.zonc, 0), p.zonCfg.size = 16; },
         {says_status(328, 10)}},
        {"overrides cut",
         [](host& h, YZonInitParams& p) { set_length(h.zonc, p.zonCfg.size - 17); },
         {says_status(328, 10)}},
        {"volume too small",
         [](host&, YZonInitParams& p) { p.yfs.size = 0x7FFF; },
         {says_status(1, 22), says(339)},
         true},
        {"no volume there",
         [](host& h, YZonInitParams&) { h.yfs.assign(volume_bytes, 0xFF); },
         {says_status(1, 5), says(339)},
         true},
        {"EFS shorter than the file table says",
         [](host& h, YZonInitParams& p) {
             h.efs.assign(yeYfsGetEfsSize() - 1, 0x5A);
             p.efs = {h.efs.data(), static_cast<std::uint32_t>(h.efs.size())};
         },
         {says(340)},
         true},
        {"no EFS there",
         [](host& h, YZonInitParams& p) {
             h.efs.assign(yeYfsGetEfsSize(), 0x5A);
             p.efs = {h.efs.data(), static_cast<std::uint32_t>(h.efs.size())};
         },
         {says(340)},
         true},
    };
    for (const row& bad : rows) {
        SCOPED_TRACE(bad.name);
        host run({{.path = a, .velor = blob{1}, .zonc = blob{2, 3}, .live = blob{4}}}, volume_state::deployed);
        YZonInitParams given = run.params();
        bad.spoil(run, given);
        testing::internal::CaptureStdout();
        EXPECT_EQ(yeYfsYzonInit(&given, record), 0);
        const bool dfs_failed = bad.wanted.front().code == 1;
        EXPECT_EQ(testing::internal::GetCapturedStdout(), dfs_failed ? "dfs_init failed\n" : "");
        EXPECT_EQ(take_reports(), bad.wanted);
        EXPECT_EQ(yeFcsIsInitialized(), bad.tables_stand);
        EXPECT_EQ(yeYfsIsInitialized(), 0);
        EXPECT_EQ(value_of(a), bad.tables_stand ? std::optional(blob{2, 3}) : std::nullopt);
        EXPECT_EQ(built_table().has_value(), bad.tables_stand);
        EXPECT_EQ(yeYfsNvarTerm(1), bad.tables_stand);
        EXPECT_EQ(run.efs, blob(run.efs.size(), 0x5A));
    }

    EXPECT_EQ(yeYfsYzonInit(nullptr, record), 0);
    EXPECT_EQ(take_reports().back(), says(341, "Velor.cfg table is mandatory for loading by Y-ZON."));
}

TEST(Init, AcceptsWhatIsNotGiven)
{
    host run({{.path = a, .velor = blob{1}, .zonc = blob{2, 3}, .live = blob{4}}}, volume_state::deployed);
    YZonInitParams given = run.params();
    given.zonCfg.size = 0; // a pointer without a size
    given.yfs = {};
    ASSERT_EQ(yeYfsYzonInit(&given, record), 1);
    EXPECT_EQ(yeFcsIsInitialized(), 1);
    EXPECT_EQ(yeYfsIsInitialized(), 0);
    EXPECT_FALSE(yeYfsIsVfsDeployed());
    EXPECT_EQ(value_of(a), blob{1});
    EXPECT_EQ(built_table(), std::nullopt);

    // The tables are copies: the host may drop its buffers.
    blob().swap(run.velor);
    blob().swap(run.ftbl);
    EXPECT_EQ(value_of(a), blob{1});
    EXPECT_EQ(yeYfsNvarTerm(1), 1);
    EXPECT_EQ(take_reports(), reports{});
}

TEST(Init, TakesNothingFromAVolumeThatIsNotDeployed)
{
    for (const bool mark_is_empty : {false, true}) {
        std::vector<nvar> files = {{.path = a, .velor = blob{1}, .live = blob{4}}};
        if (mark_is_empty) files.push_back({.path = "/home/qrd/deploy", .live = blob{}});
        host run(files, volume_state::idle);
        ASSERT_EQ(run.init(), 1);
        EXPECT_EQ(yeYfsIsInitialized(), 1);
        EXPECT_FALSE(yeYfsIsVfsDeployed());
        EXPECT_EQ(value_of(a), blob{1});
        EXPECT_EQ(take_reports(), reports{});
    }
}

TEST(Init, TakesTheValuesOfADeployedVolume)
{
    const blob stored = bytes(56);
    struct row {
        const char* name;
        nvar file;
        std::optional<blob> wanted; // none: the start fails
        reports told = {says(339)};
    };
    const auto live = [](std::uint16_t attributes, blob contents) {
        return nvar{
            .path = a, .velor = blob{1}, .zonc = blob{2}, .live = std::move(contents), .attributes = attributes};
    };
    const auto head = [&](std::size_t count) {
        return blob(stored.begin(), stored.begin() + static_cast<long>(count));
    };
    const nvar missing{.path = a, .velor = blob{1}};
    nvar unavailable = live(0, {9}), override_unavailable = live(0, {9}), zero_number = missing, not_found = missing;
    unavailable.velor_flags = 0;
    override_unavailable.zonc_flags = 0;
    zero_number.index = 0x800; // of which the low 11 bits count
    not_found.selector = 3;
    nvar outside = live(0, {9});
    outside.path = "/etc/x";
    const row rows[] = {
        {"whole file", live(0, stored), stored},
        {"empty", live(0, {}), blob{}},
        {"above the limit of the table", live(0, blob(101, 7)), blob(101, 7)},
        {"bit 1 keeps the table's", live(0x0002, stored), blob{2}},
        {"bit 6 alone means nothing", live(0x0040, stored), stored},
        {"tail of 40", live(0x0001, head(41)), head(1)},
        {"nothing but a tail of 40", live(0x0001, head(40)), blob{}},
        {"short of a tail of 40", live(0x0001, head(39)), std::nullopt},
        {"nothing but a tail of 56", live(0x0041, stored), blob{}},
        {"short of a tail of 56", live(0x0041, head(55)), std::nullopt},
        {"file number 0", zero_number, blob{1}},
        {"no such file in the volume", missing, std::nullopt},
        {"no such file system", not_found, std::nullopt},
        {"an override that isn't available", override_unavailable, std::nullopt, {says(346), says(339)}},
        {"not under the path that is looked up", outside, std::nullopt, {says(38), says(339)}},
    };
    for (const row& r : rows) {
        SCOPED_TRACE(r.name);
        host run({{.path = b, .velor = blob{5}, .live = blob{6}}, r.file}, volume_state::deployed);
        const blob before = run.yfs;
        EXPECT_EQ(run.init(), r.wanted.has_value());
        EXPECT_EQ(take_reports(), r.wanted ? reports{} : r.told);
        EXPECT_EQ(yeYfsIsInitialized(), r.wanted.has_value());
        EXPECT_EQ(yeYfsIsVfsDeployed(), r.wanted.has_value());
        EXPECT_EQ(yeFcsIsInitialized(), 1);
        if (r.wanted) {
            EXPECT_EQ(value_of(a), r.wanted);
            EXPECT_EQ(value_of(b), blob{6});
        }
        EXPECT_EQ(run.yfs, before);
    }

    host run({unavailable}, volume_state::deployed);
    ASSERT_EQ(run.init(), 1);
    EXPECT_EQ(value_of(a), std::nullopt);
    EXPECT_EQ(take_reports(), reports{says(38)}) << "and nothing before";
}

TEST(Init, ValuesThatNoTreeTakesAreMissingAndTold)
{
    // A record with number 0 asks for its number by name, and the name behind which a "/" stands is nobody's.
    host run({{.path = a, .velor = blob{1}, .fileno = 0}, {.path = b, .velor = blob{2}}});
    ASSERT_EQ(run.init(), 1);
    EXPECT_EQ(take_reports(), reports{says_status(331, 2)});
    EXPECT_EQ(value_of(a), std::nullopt);
    EXPECT_EQ(value_of(a, FCS_VELOR_CFG), blob{1});
    EXPECT_EQ(value_of(b), blob{2});
}

TEST(Init, AnotherInitEndsTheRunBefore)
{
    host first({{.path = a, .velor = blob{1}}}, volume_state::deployed);
    host second({{.path = a, .velor = blob{2}, .zonc = blob{3}}});
    for (host* run : {&first, &second, &first, &second})
        ASSERT_EQ(run->init(), run == &second) << "a isn't in the volume";
    EXPECT_EQ(yeYfsIsInitialized(), 0);
    EXPECT_EQ(value_of(a), blob{3});

    YZonInitParams nothing{};
    EXPECT_EQ(yeYfsYzonInit(&nothing, record), 0);
    EXPECT_EQ(yeFcsIsInitialized(), 0);
    EXPECT_EQ(built_table(), std::nullopt);
}

TEST(Init, TheActiveFileTableOutlivesLoadsThatDoNotReplaceIt)
{
    {
        host run({{.path = a, .velor = blob{1}}});
        ASSERT_EQ(run.init(), 1);
        end_run();
        const ftbl_file_entry_t* const active = g_table_buf;

        run.ftbl[0] = 'f';
        EXPECT_EQ(run.init(), 0);
        run.ftbl.assign(8, 0);
        EXPECT_EQ(run.init(), 0);
        EXPECT_EQ(g_table_buf, active);
        EXPECT_NE(get_file_entry_by_file_name(a), nullptr);
    }
    // A SKU that the new table doesn't have: the names of the table before stay in force, also for the run after that.
    host run({{.path = b, .velor = blob{2}}});
    run.sku = 77;
    for (int times = 0; times < 3; ++times) {
        ASSERT_EQ(run.init(), 1);
        EXPECT_EQ(value_of(b), std::nullopt);
        EXPECT_EQ(value_of(a), blob{2}) << "both have the first number";
    }
    run.sku = host_sku;
    ASSERT_EQ(run.init(), 1);
    EXPECT_EQ(value_of(b), blob{2});
}

} // namespace
} // namespace yfs::test
