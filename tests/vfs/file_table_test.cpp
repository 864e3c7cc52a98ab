// Loading: what is refused, what becomes active, and how far lookups go then.
#include "tests/support/table_builder.h"
#include "yfs/vfs.h"

#include <gtest/gtest.h>

#include <cstring>

namespace yfs::test::vfs_file_table {

constexpr std::uint32_t before = 0x77; // g_dfs_sku while the table under test isn't active

// A table of 1,100 bytes or fewer, one word of it changed; the entries of SKU 2 begin where the word at 20 tells.
TEST(file_table, what_is_refused_and_what_becomes_active)
{
    constexpr std::uint32_t sku_count = 12, entries_at = 20;
    using row =
        std::tuple<const char*, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, bool>;
    const row cases[] = {
        // SKU, length, where the word goes and the word; status, whether it becomes active
        {"second row", 3, 1100, sku_count, 2, 0, true},
        {"no row for the SKU", 4, 1100, sku_count, 2, 0, false},
        {"1,023 bytes", 2, 1023, sku_count, 2, 1, false},
        {"1,024 bytes", 2, 1024, sku_count, 2, 0, true},
        {"3 bytes", 2, 3, 0, 0, 1, false},
        {"no bytes", 2, 0, 0, 0, 1, false},
        {"wrong magic", 2, 1100, 0, 0x6C425446, 1, false},
        {"no rows", 2, 1100, sku_count, 0, 0, false},
        {"10 rows", 2, 1100, sku_count, 10, 0, true},
        {"11 rows", 2, 1100, sku_count, 11, 1, false},
        {"rows without end", 2, 1100, sku_count, 0xFFFFFFFF, 1, false},
        {"entries at the end of the buffer", 2, 1100, entries_at, 1100, 0, true},
        {"entries one byte behind it", 2, 1100, entries_at, 1101, 1, false},
        {"entries far behind it", 2, 1100, entries_at, 0xFFFFFFFF, 1, false},
        {"entries unaligned", 2, 1100, entries_at, 963, 0, true},
    };
    for (const auto& [name, sku, length, at, word, status, active] : cases) {
        SCOPED_TRACE(name);
        g_table_buf = nullptr, g_table_num_files = 0, g_dfs_sku = before;
        blob built = make_file_table({{2, {{"/a", 1}, {"/b", 2}}}, {3, {{"/c", 3}}}}, 1100);
        store(built.data() + at, le32(word));
        const blob table(built.begin(), built.begin() + length); // exactly as long as told, for the sanitizers
        EXPECT_EQ(status, load_file_table(table.data(), sku, length));
        EXPECT_EQ(active ? sku : before, g_dfs_sku);
        EXPECT_EQ(active, g_table_buf != nullptr);
    }
    EXPECT_EQ(1U, load_file_table(nullptr, 2, 1024));
}

TEST(file_table, lookups_stop_at_the_last_entry_wholly_inside_the_buffer)
{
    std::vector<table_file> files;
    for (std::uint32_t i = 0; i < 40; ++i) files.push_back({"/f" + std::to_string(i), 100 + i});
    const blob whole = make_file_table({{2, files}});
    for (const std::size_t kept : {0, 1, 15, 16, 39}) {
        for (const std::size_t more : {0, 67}) {
            SCOPED_TRACE(testing::Message() << kept << " entries and " << more << " bytes");
            const std::size_t bytes = kept * sizeof(ftbl_file_entry_t) + more; // at the end of the buffer
            blob table(std::max<std::size_t>(1024, 32 + bytes));
            std::memcpy(table.data(), whole.data(), 32);
            std::memcpy(table.data() + table.size() - bytes, whole.data() + 32, bytes);
            store(table.data() + 20, le32(low32(table.size() - bytes)));
            ASSERT_EQ(0U, load_file_table(table.data(), 2, low32(table.size())));
            EXPECT_EQ(40, g_table_num_files);
            for (std::uint32_t i = 0; i < 40; ++i) {
                const fileno_t number = 100 + i;
                EXPECT_EQ(i < kept, get_file_entry_by_fileno(&number) != nullptr) << i;
                EXPECT_EQ(i < kept, get_file_entry_by_file_name(files[i].name.c_str()) != nullptr) << i;
            }
        }
    }
    // The bound belongs to that buffer alone.
    const blob more = make_file_table({{9, files}});
    g_table_buf = static_cast<const ftbl_file_entry_t*>(static_cast<const void*>(more.data() + 32));
    EXPECT_NE(nullptr, get_file_entry_by_file_name("/f39"));
}

} // namespace yfs::test::vfs_file_table
