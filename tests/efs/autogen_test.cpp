// Loading the table of files: what it takes, what it refuses, and what a refusal leaves.
#include "efs/efs_internal.h"
#include "tests/support/efs_builder.h"

#include <gtest/gtest.h>

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

const efst_sku sku_7 = {0x01020307, {3, 9, 4}, 6, {{5, efs_entry(6, 100, 900)}, {1, efs_entry(8, 4072, 1)}}, 0x1A5, 77};
const efst_sku sku_8 = {8, {2, 7, 3}, 2, {{0, efs_entry(1, 2, 3)}, {0, efs_entry(4, 5, 6)}}};

// From a buffer of exactly that size, so that a sanitizer sees each read behind it.
uint32_t load(const blob& table, uint32_t sku)
{
    const std::unique_ptr<uint8_t[]> exact(new uint8_t[table.size()]);
    std::copy(table.begin(), table.end(), exact.get());
    return load_autogen_data(exact.get(), sku, static_cast<uint32_t>(table.size()));
}

using entry = std::tuple<unsigned, unsigned, unsigned, unsigned>;
entry at(unsigned index)
{
    const efs_file_t& e = EFS_files[index];
    return {e.first_block, e.offset, e.max_size, e.flags};
}

TEST(EfsAutogen, TakesTheRecordOfTheSku)
{
    EXPECT_EQ(at_start, globals({2, 7, 3}, 16, 100, 0, 0, 0, nullptr));
    for (const uint32_t rows : {0U, 1U, 5U}) {
        ASSERT_EQ(load(make_autogen_table({sku_8, sku_7, {sku_7.sku, {}, 1, {}}}, rows), sku_7.sku), 0U);
        EXPECT_EQ(snapshot(), globals({3, 9, 4}, 6, 77, 7, 0xA5, 1, EFS_files));
        EXPECT_EQ(at(5), entry(6, 100, 900, 1));
        EXPECT_EQ(at(1), entry(8, 4072, 1, 1));
        for (const unsigned unused : {0U, 2U, 3U, 4U}) EXPECT_EQ(at(unused), entry(0, 0, 0, 0));
    }
}

TEST(EfsAutogen, RefusesOrPassesOverBadTables)
{
    constexpr uint32_t efst = 32, record = efst + sizeof(efst_header_t), list = record + sizeof(efst_sku_record_t);
    constexpr uint32_t sku_count = offsetof(ftbl_lead_t, sku_count);
    constexpr uint32_t records = efst + offsetof(efst_header_t, record_count);
    constexpr uint32_t files_offset = record + offsetof(efst_sku_record_t, files_offset);
    constexpr uint32_t files_count = record + offsetof(efst_sku_record_t, files_count);
    constexpr uint32_t files_size = record + offsetof(efst_sku_record_t, files_size);
    constexpr uint32_t files_num = record + offsetof(efst_sku_record_t, files_num);
    const struct {
        const char* name;
        std::map<uint32_t, uint32_t> words; // changed, by offset
        uint32_t size;
        uint32_t status;
        bool geometry_set = false;
    } cases[] = {
        {"empty buffer", {}, 0, 1},
        {"no room for the count of rows", {}, 15, 1},
        {"another magic", {{0, 0x4C425447}}, 208, 1},
        {"rows behind the end", {{sku_count, 13}}, 208, 1},
        {"as many rows as a count can tell", {{sku_count, 0xFFFFFFFF}}, 208, 1},
        {"ends with the rows", {}, efst, 0},
        {"ends inside what could be EFST", {}, efst + 3, 0},
        {"no EFST", {{efst, 0}}, 208, 0},
        {"EFST cut", {}, efst + 4, 1},
        {"no records, and none there", {{records, 0}}, record, 0},
        {"records behind the end", {{records, 5}}, 208, 1},
        {"as many records as a count can tell", {{records, 0xFFFFFFFF}}, 208, 1},
        {"record cut", {}, list - 1, 1},
        {"another SKU", {{record, 7}}, 208, 0},
        {"list size above its records", {{files_size, 121}}, 208, 1},
        {"list size below its records", {{files_size, 0}}, 208, 0, true},
        {"list begins behind the end", {{files_offset, 209}}, 208, 1, true},
        {"list begins at the end", {{files_offset, 208}}, 208, 1},
        {"empty list at the end", {{files_offset, 208}, {files_count, 0}, {files_size, 0}}, 208, 0, true},
        {"list cut by a byte", {}, 207, 1},
        {"as many files as a count can tell", {{files_count, 0xFFFFFFFF}}, 208, 1},
        {"file index at the number of files", {{files_num, 5}}, 208, 1},
        {"as many files as a record can name", {{files_num, 0x10000}}, 208, 0, true},
        {"absurdly many files", {{files_num, 0x10001}}, 208, 12},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_EQ(load(make_autogen_table({sku_8}), 8), 0U);
        const globals before = snapshot();
        blob table = make_autogen_table({sku_7});
        ASSERT_EQ(table.size(), 208U);
        for (const auto& [offset, value] : c.words) yfs::store(table.data() + offset, yfs::le32(value));
        table.resize(c.size);
        EXPECT_EQ(load(table, sku_7.sku), c.status);
        EXPECT_TRUE(c.geometry_set ? current_geometry() == sku_7.geo : snapshot() == before);
        const bool taken = c.status == 0 && c.geometry_set;
        EXPECT_EQ(g_efs_sku_id, taken ? 7 : 8);
        if (taken) continue;
        // g_efs_files_num can tell of a table that never came to be.
        EXPECT_EQ(at(0), entry(4, 5, 6, 1)) << "the last record of an index";
        EXPECT_EQ(find_file(0), EFS_files);
        for (const uint32_t none : {1U, 2U, 5U, 0xFFFFFFFFU}) EXPECT_EQ(find_file(none), nullptr);
    }
    EXPECT_EQ(load_autogen_data(nullptr, 8, 1000), 1U);
}

} // namespace
