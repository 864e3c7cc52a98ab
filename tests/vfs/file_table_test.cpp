// Loading: what is refused, what becomes active, and how far lookups go then.
#include "tests/support/table_builder.h"
#include "vfs/ftbl_layout.h"
#include "yfs/efs.h"
#include "yfs/vfs.h"

#include <gtest/gtest.h>

#include <cstring>

namespace yfs::test {
namespace {

constexpr std::uint32_t before = 0x77; // g_dfs_sku while the table under test isn't active

class file_table : public testing::Test {
protected:
    void SetUp() override
    {
        g_table_buf = nullptr;
        g_table_num_files = 0;
        g_dfs_sku = before;
    }
};

void set_sku_count(blob& table, std::uint32_t count)
{
    store(table.data() + 12, le32(count));
}

// A row's table_offset, counted back from the end of the table.
void set_offset(blob& table, std::uint32_t row, std::int64_t behind_end)
{
    store(table.data() + vfs::sku_row_at(row) + 4,
          le32(low32(static_cast<std::uint64_t>(static_cast<std::int64_t>(table.size()) + behind_end))));
}

TEST_F(file_table, what_is_refused_and_what_becomes_active)
{
    const auto as_built = [](blob&) {};
    const auto length = [](std::size_t bytes) { return [bytes](blob& table) { table.resize(bytes); }; };
    const auto skus = [](std::uint32_t count) { return [count](blob& table) { set_sku_count(table, count); }; };
    const auto offset = [](std::int64_t at) { return [at](blob& table) { set_offset(table, 0, at); }; };
    struct {
        const char* name;
        std::uint32_t sku;
        std::function<void(blob&)> change;
        std::uint32_t status;
        bool active;
    } const cases[] = {
        {"as built", 2, as_built, 0, true},
        {"second row", 3, as_built, 0, true},
        {"no row for the SKU", 4, as_built, 0, false},
        {"1,023 bytes", 2, length(1023), 1, false},
        {"1,024 bytes", 2, length(1024), 0, true},
        {"3 bytes", 2, length(3), 1, false},
        {"no bytes", 2, length(0), 1, false},
        {"wrong magic", 2, [](blob& table) { table[3] = 'l'; }, 1, false},
        {"no rows", 2, skus(0), 0, false},
        {"10 rows", 2, skus(10), 0, true},
        {"10 rows and none of the SKU", 4, skus(10), 0, false},
        {"11 rows", 2, skus(11), 1, false},
        {"rows without end", 2, skus(0xFFFFFFFF), 1, false},
        {"entries at the end of the buffer", 2, offset(0), 0, true},
        {"entries one byte behind it", 2, offset(1), 1, false},
        {"entries far behind it", 2, offset(0x7FFFFFFF), 1, false},
        {"entries unaligned", 2, offset(-137), 0, true},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        SetUp();
        blob built = make_file_table({{2, {{"/a", 1}, {"/b", 2}}}, {3, {{"/c", 3}}}}, 1100);
        row.change(built);
        const blob table(built.begin(), built.end()); // exactly as long as told, for the sanitizers
        EXPECT_EQ(row.status, load_file_table(table.data(), row.sku, low32(table.size())));
        EXPECT_EQ(row.active ? row.sku : before, g_dfs_sku);
        EXPECT_EQ(row.active, g_table_buf != nullptr);
    }
    EXPECT_EQ(1U, load_file_table(nullptr, 2, 1024));
}

TEST_F(file_table, lookups_stop_at_the_last_entry_wholly_inside_the_buffer)
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
            set_offset(table, 0, -static_cast<std::int64_t>(bytes));
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

} // namespace
} // namespace yfs::test
