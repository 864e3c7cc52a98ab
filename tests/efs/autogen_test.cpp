// Loading the table of files: what it takes, what it refuses, and what a refusal leaves.
#include "efs/efs_internal.h"
#include "tests/support/efs_builder.h"
#include "yfs/efs.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <tuple>

namespace {

using namespace yfs::efs;
using namespace yfs::test;
using blob = std::vector<std::uint8_t>;

using globals = std::tuple<geometry, uint32_t, uint32_t, uint8_t, uint8_t, uint8_t, efs_file_t*>;
globals snapshot()
{
    return {current_geometry(),        g_efs_files_num, g_efs_wear_leveling_threshold, g_efs_sku_id, g_efs_layout_id,
            g_efs_autogen_data_loaded, EFS_files};
}
const globals at_start = snapshot();

const efst_sku sku_7 = {.sku = 0x01020307,
                        .geo = {3, 9, 4},
                        .files = {{5, efs_entry(6, 100, 900)}, {1, efs_entry(8, 4072, 1)}},
                        .layout_id = 0x1A5,
                        .threshold = 77};
const efst_sku sku_8 = {.sku = 8, .files = {{0, efs_entry(1, 2, 3)}}};

// Offsets in a table of one row.
constexpr uint32_t record_at = efst_at() + sizeof(efst_header_t);
constexpr uint32_t field(std::size_t offset)
{
    return record_at + static_cast<uint32_t>(offset);
}

class EfsAutogen : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(load(make_autogen_table({sku_8}), 8), 0U);
        before_ = snapshot();
    }
    // From a buffer of exactly that size, so that a sanitizer sees each read behind it.
    static uint32_t load(const blob& table, uint32_t sku)
    {
        const std::unique_ptr<uint8_t[]> exact(new uint8_t[table.size()]);
        if (!table.empty()) std::memcpy(exact.get(), table.data(), table.size());
        return load_autogen_data(exact.get(), sku, static_cast<uint32_t>(table.size()));
    }
    static std::tuple<unsigned, unsigned, unsigned, unsigned> entry(unsigned index)
    {
        const efs_file_t& e = EFS_files[index];
        return {e.first_block, e.offset, e.max_size, e.flags};
    }
    globals before_;
};

TEST_F(EfsAutogen, DefaultsAreThoseOfAnImageOfTwelveBlocks)
{
    EXPECT_EQ(at_start, globals({2, 7, 3}, 16, 100, 0, 0, 0, nullptr));
    EXPECT_EQ(geometry(std::get<0>(at_start)).image_bytes(), 49152U);
}

TEST_F(EfsAutogen, TakesTheRecordOfTheSku)
{
    for (const uint32_t rows : {0U, 1U, 5U}) {
        ASSERT_EQ(load(make_autogen_table({sku_8, sku_7, {.sku = 0x01020307}}, rows), 0x01020307), 0U);
        EXPECT_EQ(snapshot(), globals({3, 9, 4}, 6, 77, 7, 0xA5, 1, EFS_files));
        EXPECT_EQ(entry(5), std::tuple(6U, 100U, 900U, 1U));
        EXPECT_EQ(entry(1), std::tuple(8U, 4072U, 1U, 1U));
        for (const unsigned unused : {0U, 2U, 3U, 4U}) EXPECT_EQ(entry(unused), std::tuple(0U, 0U, 0U, 0U));
        EXPECT_EQ(EFS_get_efs_size(), 16 * 4096U);
    }
}

TEST_F(EfsAutogen, TheLastRecordOfAnIndexWins)
{
    efst_sku twice = sku_8;
    twice.files = {{0, efs_entry(1, 2, 3)}, {1, efs_entry(4, 5, 6)}};
    blob table = make_autogen_table({twice});
    table[table.size() - sizeof(efst_file_record_t)] = 0; // the second record names entry 0, too
    ASSERT_EQ(load(table, 8), 0U);
    EXPECT_EQ(entry(0), std::tuple(4U, 5U, 6U, 1U));
    EXPECT_EQ(entry(1), std::tuple(0U, 0U, 0U, 0U));
}

// What a changed table answers, and whether its geometry stays behind.
TEST_F(EfsAutogen, RefusesOrPassesOverBadTables)
{
    const auto set = [](uint32_t at, uint32_t value) {
        return [=](blob& table) { yfs::store(table.data() + at, yfs::le32(value)); };
    };
    const auto cut = [](uint32_t size) { return [=](blob& table) { table.resize(size); }; };
    const auto cut_by = [](uint32_t size) { return [=](blob& table) { table.resize(table.size() - size); }; };
    const auto both = [](auto first, auto second) {
        return [=](blob& table) {
            first(table);
            second(table);
        };
    };
    constexpr uint32_t list_at = record_at + sizeof(efst_sku_record_t);
    constexpr uint32_t files_count = field(offsetof(efst_sku_record_t, files_count));
    constexpr uint32_t files_offset = field(offsetof(efst_sku_record_t, files_offset));
    constexpr uint32_t files_size = field(offsetof(efst_sku_record_t, files_size));
    constexpr uint32_t files_num = field(offsetof(efst_sku_record_t, files_num));
    constexpr uint32_t record_count = efst_at() + offsetof(efst_header_t, record_count);
    constexpr uint32_t sku_count = offsetof(ftbl_lead_t, sku_count);

    const struct {
        const char* name;
        std::function<void(blob&)> change;
        uint32_t status;
        bool geometry_set = false;
    } cases[] = {
        {"empty buffer", cut(0), 1},
        {"not even a magic", cut(3), 1},
        {"no room for the count of rows", cut(15), 1},
        {"another magic", set(0, 0x4C425447), 1},
        {"rows behind the end", set(sku_count, 1000), 1},
        {"as many rows as a count can tell", set(sku_count, 0xFFFFFFFF), 1},
        {"ends with the rows", cut(efst_at()), 0},
        {"ends inside what could be EFST", cut(efst_at() + 3), 0},
        {"no EFST", set(efst_at(), 0), 0},
        {"EFST cut", cut(efst_at() + 4), 1},
        {"no records", set(record_count, 0), 0},
        {"no records, and none there", both(set(record_count, 0), cut(record_at)), 0},
        {"records behind the end", set(record_count, 100), 1},
        {"as many records as a count can tell", set(record_count, 0xFFFFFFFF), 1},
        {"record cut", cut(record_at + 39), 1},
        {"another SKU", set(record_at, 0x07), 0},
        {"list size above its records", set(files_size, 121), 1},
        {"list size below its records", set(files_size, 0), 0, true},
        {"list begins behind the end", set(files_offset, 10000), 1, true},
        {"list begins at the end", set(files_offset, list_at + 120), 1},
        {"empty list at the end", both(set(files_offset, list_at + 120), both(set(files_count, 0), set(files_size, 0))),
         0, true},
        {"list cut by a byte", cut_by(1), 1},
        {"list longer than the buffer", set(files_count, 3), 1},
        {"as many files as a count can tell", set(files_count, 0xFFFFFFFF), 1},
        {"file index at the number of files", set(files_num, 5), 1},
        {"no files at all", set(files_num, 0), 1},
        {"more files than indices", set(files_num, 2049), 0, true},
        {"as many files as a record can name", set(files_num, 0x10000), 0, true},
        {"absurdly many files", set(files_num, 0x10001), 12},
        {"as many files as a number can tell", set(files_num, 0xFFFFFFFF), 12},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        blob table = make_autogen_table({sku_7});
        c.change(table);
        EXPECT_EQ(load(table, sku_7.sku), c.status);
        if (c.geometry_set) {
            EXPECT_EQ(current_geometry(), sku_7.geo);
        } else {
            EXPECT_EQ(snapshot(), before_);
        }
        const bool taken = c.status == 0 && c.geometry_set;
        EXPECT_EQ(g_efs_sku_id, taken ? 7 : 8);
        if (!taken) {
            EXPECT_EQ(entry(0), std::tuple(1U, 2U, 3U, 1U));
        }
    }
    EXPECT_EQ(load_autogen_data(nullptr, 8, 1000), 1U);
}

TEST_F(EfsAutogen, BoundsOfATableHoldForThatTableOnly)
{
    blob table = make_autogen_table({sku_7});
    yfs::store(table.data() + field(offsetof(efst_sku_record_t, files_offset)), yfs::le32(0xFFFFFFFF));
    ASSERT_EQ(load(table, sku_7.sku), 1U);
    ASSERT_EQ(g_efs_files_num, 6U); // of a table that never came to be
    EXPECT_NE(find_file(0), nullptr);
    EXPECT_EQ(find_file(1), nullptr);

    std::vector<efs_file_t> own(6, efs_entry(0, 0, 1));
    own[4].flags = 0xFE;
    EFS_files = own.data();
    EXPECT_EQ(find_file(5), &own[5]);
    EXPECT_EQ(find_file(6), nullptr);
    EXPECT_EQ(find_file(4), nullptr); // not in use
    g_efs_files_num = 2;
    EXPECT_EQ(find_file(2), nullptr);
    EFS_files = nullptr;
    EXPECT_EQ(find_file(0), nullptr);
}

} // namespace
