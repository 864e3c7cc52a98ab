// Values by path: finding, reading in place, resizing.
#include "tests/facade/host.h"

#include <cstring>

namespace yfs::test {
namespace {

const char a[] = "/home/a", gone[] = "/home/gone", bare[] = "/home/bare", over[] = "/home/over", tail[] = "/home/t/x";

std::vector<nvar> files()
{
    return {{.path = a, .velor = blob{1}, .zonc = blob{2, 3}, .live = blob{4, 5}, .max_size = 7},
            {.path = "/home/empty", .velor = blob{}, .live = blob{}},
            {.path = gone, .velor = blob{1}, .zonc = blob{9}, .velor_flags = 0},
            {.path = bare, .velor = blob{}, .velor_flags = 0xFFFE},
            {.path = over, .velor = blob{1}, .zonc = blob{2}, .live = blob{3}, .attributes = 2, .zonc_flags = 0},
            {.path = tail, .velor = blob{1}, .live = blob(41, 6), .attributes = 1},
            {.path = "/home//homeb", .velor = blob{7}, .live = blob{}},
            {.path = "/home/zonly", .zonc = blob{8}}};
}

TEST(Nvar, NeedsItsPointers)
{
    host run(files());
    ASSERT_EQ(run.init(), 1);
    void* data = &data;
    std::uint32_t size = 77;
    EXPECT_EQ(yeyfsCheckNvarExists(nullptr, FCS_CURRENT_VALUES), 0);
    EXPECT_EQ(yeYfsNvarGet(nullptr, nullptr, nullptr, FCS_CURRENT_VALUES, nullptr, nullptr), 0);
    EXPECT_EQ(yeYfsNvarGet(a, nullptr, nullptr, FCS_CURRENT_VALUES, nullptr, nullptr), 0);
    EXPECT_EQ(yeYfsNvarGet(a, &data, nullptr, FCS_CURRENT_VALUES, nullptr, nullptr), 0);
    EXPECT_EQ(yeYfsNvarResize(nullptr, nullptr, 1), 0);
    EXPECT_EQ(yeYfsNvarResize(a, nullptr, 1), 0);
    EXPECT_EQ(yeYfsGetBuildZonCfgFcsBuffer(nullptr, &size), 0);
    EXPECT_EQ(yeYfsGetBuildZonCfgFcsBuffer(&data, nullptr), 0);
    EXPECT_EQ(take_reports(),
              (reports{says(398, "Null NVAR path"), says(398, "Null NVAR path"), says(398, "Null data"),
                       says(398, "Null data size"), says(398, "Null NVAR path"), says(398, "Null New NVAR data"),
                       says(398, "ZON CFG buffer"), says(398, "ZON CFG buffer")}));
    EXPECT_EQ(data, &data);
    EXPECT_EQ(size, 77U);
}

TEST(Nvar, GetsValuesByPathFromTheTableNamed)
{
    host run(files());
    ASSERT_EQ(run.init(), 1);
    const auto none = static_cast<FcsFileName>(0x10000009);
    struct row {
        const char* path;
        FcsFileName table;
        std::optional<blob> value;
        bool exists;
        reports told = {};
    };
    const row rows[] = {
        {a, FCS_VELOR_CFG, blob{1}, true},
        {a, FCS_ZON_CFG, blob{2, 3}, true},
        {a, FCS_CURRENT_VALUES, blob{2, 3}, true},
        {"a", FCS_CURRENT_VALUES, blob{2, 3}, true},
        {"/a", FCS_CURRENT_VALUES, {}, false, {says(38)}}, // "/home//a"
        {"/homeb", FCS_CURRENT_VALUES, blob{7}, true},     // the whole prefix in front
        {"/home", FCS_CURRENT_VALUES, {}, false, {says(38)}},
        {"", FCS_CURRENT_VALUES, {}, false, {says(38)}},
        {"t/x", FCS_CURRENT_VALUES, blob{1}, true},
        {"/home/a/", FCS_CURRENT_VALUES, {}, false, {says(38)}},
        {"/HOME/a", FCS_CURRENT_VALUES, {}, false, {says(38)}},
        {"empty", FCS_CURRENT_VALUES, blob{}, true},
        {gone, FCS_VELOR_CFG, {}, true, {says(320)}},
        {gone, FCS_ZON_CFG, blob{9}, true},
        {gone, FCS_CURRENT_VALUES, {}, false, {says(38)}},
        {bare, FCS_VELOR_CFG, {}, true, {says(346)}},
        {over, FCS_CURRENT_VALUES, {}, true, {says(320)}},
        {"zonly", FCS_ZON_CFG, blob{8}, true},
        {"zonly", FCS_CURRENT_VALUES, {}, false, {says(38)}},
    };
    for (const row& r : rows) {
        SCOPED_TRACE(std::string(r.path) + " " + std::to_string(r.table & 0xF));
        EXPECT_EQ(yeyfsCheckNvarExists(r.path, r.table), r.exists);
        EXPECT_EQ(take_reports(), reports{});
        EXPECT_EQ(value_of(r.path, r.table), r.value);
        EXPECT_EQ(take_reports(), r.told);
    }
    EXPECT_EQ(yeyfsCheckNvarExists(a, none), 0);
    EXPECT_EQ(value_of(a, none), std::nullopt);
    EXPECT_EQ(take_reports(), (reports{says(334), says(334), says(38)}));
    EXPECT_EQ(value_of(std::string(400, 'x')), std::nullopt);

    void* data = &data;
    std::uint32_t size = 7;
    EXPECT_EQ(yeYfsNvarGet("nowhere", &data, &size, FCS_CURRENT_VALUES, nullptr, nullptr), 0);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(size, 0U);
}

TEST(Nvar, TellsTheLimitAndWhatTheRebuildWritesBack)
{
    for (const volume_state state : {volume_state::none, volume_state::idle, volume_state::deployed}) {
        std::vector<nvar> list = files();
        list.erase(list.begin() + 4); // its override would stop a deployed start
        host run(list, state);
        ASSERT_EQ(run.init(), 1);
        for (const char* path : {a, tail}) {
            void* data = nullptr;
            std::uint32_t size = 0, limit = 0;
            std::uint8_t modifiable = 7;
            ASSERT_EQ(yeYfsNvarGet(path, &data, &size, FCS_CURRENT_VALUES, &modifiable, &limit), 1);
            EXPECT_EQ(modifiable, path == tail && state == volume_state::deployed ? 0 : 1) << path;
            EXPECT_EQ(limit, path == tail ? 100U : 7U);
        }
    }
}

TEST(Nvar, ResizesInPlaceAndLeavesTheOtherTablesAlone)
{
    host run(files());
    ASSERT_EQ(run.init(), 1);
    void *before = nullptr, *data = nullptr;
    std::uint32_t size = 0;
    ASSERT_EQ(yeYfsNvarGet(a, &before, &size, FCS_CURRENT_VALUES, nullptr, nullptr), 1);
    ASSERT_EQ(yeYfsNvarResize("a", &data, 2), 1);
    EXPECT_EQ(data, before) << "the present size keeps the pointer";

    ASSERT_EQ(yeYfsNvarResize(a, &data, 5000), 1) << "the limit of 7 bites at the rebuild only";
    std::memset(static_cast<char*>(data) + 2, 0x77, 4998);
    ASSERT_EQ(yeYfsNvarResize(a, &data, 3), 1);
    EXPECT_EQ(value_of(a), (blob{2, 3, 0x77}));
    ASSERT_EQ(yeYfsNvarResize(a, &data, 0), 1);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(value_of(a), blob{});
    ASSERT_EQ(yeYfsNvarResize(a, &data, 0), 1);
    ASSERT_EQ(yeYfsNvarResize(a, &data, 8), 1);
    EXPECT_NE(data, nullptr);
    EXPECT_EQ(value_of(a, FCS_ZON_CFG), (blob{2, 3}));
    EXPECT_EQ(take_reports(), reports{});

    data = &data;
    EXPECT_EQ(yeYfsNvarResize("nowhere", &data, 1), 0);
    EXPECT_EQ(yeYfsNvarResize(over, &data, 1), 0);
    EXPECT_EQ(take_reports(), (reports{says(38), says(346)}));
    EXPECT_EQ(data, &data);
}

TEST(Nvar, OutsideARunNothingIsFound)
{
    end_run();
    void* data = nullptr;
    const auto ask = [&] {
        EXPECT_EQ(yeyfsCheckNvarExists(a, FCS_VELOR_CFG), 0);
        EXPECT_EQ(value_of(a), std::nullopt);
        EXPECT_EQ(yeYfsNvarResize(a, &data, 3), 0);
        EXPECT_EQ(built_table(), std::nullopt);
        EXPECT_FALSE(yeYfsIsVfsDeployed());
        EXPECT_EQ(take_reports(), (reports{says(38), says(38)}));
    };
    host run(files());
    run.ftbl[0] = 0;
    EXPECT_EQ(run.init(), 0);
    take_reports();
    ask();
    run.ftbl[0] = 'F';
    ASSERT_EQ(run.init(), 1);
    EXPECT_EQ(yeYfsNvarTerm(0), 1);
    ask();
}

} // namespace
} // namespace yfs::test
