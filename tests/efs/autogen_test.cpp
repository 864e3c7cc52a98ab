// Loading the table of files: what it takes, what it refuses, and what a refusal leaves.
#include "efs/efs_internal.h"
#include "tests/support/efs_builder.h"

#include <gtest/gtest.h>

#include <tuple>

namespace yfs::efs::test_of_autogen {

using blob = std::vector<std::uint8_t>;
using globals = std::tuple<geometry, uint32_t, uint32_t, uint8_t, uint8_t, uint8_t, efs_file_t*>;
using entry = std::tuple<unsigned, unsigned, unsigned, unsigned>;

globals snapshot()
{
    return {current_geometry(),        g_efs_files_num, g_efs_wear_leveling_threshold, g_efs_sku_id, g_efs_layout_id,
            g_efs_autogen_data_loaded, EFS_files};
}
const globals at_start = snapshot();

entry at(unsigned index)
{
    const efs_file_t& e = EFS_files[index];
    return entry{e.first_block, e.offset, e.max_size, e.flags};
}

// From a buffer of exactly that size, so that a sanitizer sees each read behind it.
uint32_t load(const blob& table, uint32_t sku, uint32_t size = 368)
{
    return load_autogen_data(blob(table.begin(), table.begin() + size).data(), sku, size);
}

TEST(EfsAutogen, TakesTheRecordOfTheSku)
{
    EXPECT_EQ(at_start, globals({2, 7, 3}, 16, 100, 0, 0, 0, nullptr));
    for (const uint32_t rows : {0U, 1U, 5U}) {
        ASSERT_EQ(load(test::make_autogen_table(rows), 0x01020307, 352 + 16 * rows), 0U);
        EXPECT_EQ(snapshot(), globals({3, 9, 4}, 6, 77, 7, 0xA5, 1, EFS_files));
        EXPECT_EQ(at(5), entry(6, 100, 900, 1));
        EXPECT_EQ(at(1), entry(8, 4072, 1, 1));
        for (const unsigned unused : {0U, 2U, 3U, 4U}) EXPECT_EQ(at(unused), entry(0, 0, 0, 0));
    }
}

TEST(EfsAutogen, RefusesOrPassesOverBadTables)
{
    // Of the SKU's record: where its list begins, how many records that holds and of how many bytes in all, how large
    // the table becomes.
    constexpr uint32_t list_at = 92, list_count = 96, list_size = 100, files_num = 116;
    // Words changed, by offset; size, status, whether the geometry is set all the same.
    using row = std::tuple<const char*, std::map<uint32_t, uint32_t>, uint32_t, uint32_t, bool>;
    const row cases[] = {
        {"no room for the count of rows", {}, 15, 1, false},
        {"another magic", {{0, 0x4C425447}}, 368, 1, false},
        {"rows behind the end", {{12, 23}}, 368, 1, false},
        {"as many rows as a count can tell", {{12, 0xFFFFFFFF}}, 368, 1, false},
        {"ends inside what could be EFST", {}, 35, 0, false},
        {"no EFST", {{32, 0}}, 368, 0, false},
        {"EFST cut", {}, 36, 1, false},
        {"no records, and none there", {{44, 0}}, 48, 0, false},
        {"records behind the end", {{44, 9}}, 368, 1, false},
        {"behind the last record, but told so", {{44, 1}}, 368, 0, false},
        {"as many records as a count can tell", {{44, 0xFFFFFFFF}}, 368, 1, false},
        {"another SKU", {{88, 7}}, 368, 0, false},
        {"list size above its records", {{list_size, 121}}, 368, 1, false},
        {"list size below its records", {{list_size, 0}}, 368, 0, true},
        {"list begins behind the end", {{list_at, 369}}, 368, 1, true},
        {"list begins at the end", {{list_at, 368}}, 368, 1, false},
        {"empty list at the end", {{list_at, 368}, {list_count, 0}, {list_size, 0}}, 368, 0, true},
        {"list cut by a byte", {}, 367, 1, false},
        {"as many files as a count can tell", {{list_count, 0xFFFFFFFF}}, 368, 1, false},
        {"file index at the number of files", {{files_num, 5}}, 368, 1, false},
        {"as many files as a record can name", {{files_num, 0x10000}}, 368, 0, true},
        {"absurdly many files", {{files_num, 0x10001}}, 368, 12, false},
    };
    for (const auto& [name, words, size, status, geometry_set] : cases) {
        SCOPED_TRACE(name);
        blob table = test::make_autogen_table();
        ASSERT_EQ(load(table, 8), 0U);
        const globals before = snapshot();
        for (const auto& [offset, value] : words) store(table.data() + offset, le32(value));
        EXPECT_EQ(load(table, 0x01020307, size), status);
        EXPECT_TRUE(geometry_set ? current_geometry() == (geometry{3, 9, 4}) : snapshot() == before);
        EXPECT_EQ(g_efs_sku_id, status == 0 && geometry_set ? 7 : 8);
        if (g_efs_sku_id == 7) continue;
        EXPECT_EQ(at(0), entry(4, 5, 6, 1)) << "the last record of an index";
        // g_efs_files_num can tell of a table that never came to be.
        for (const uint32_t none : {1U, 2U, 5U, 0xFFFFFFFFU}) EXPECT_EQ(find_file(none), nullptr);
    }
    EXPECT_EQ(load_autogen_data(nullptr, 8, 1000), 1U);
}

} // namespace yfs::efs::test_of_autogen
