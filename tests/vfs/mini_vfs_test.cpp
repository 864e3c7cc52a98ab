// Paths: the number that each composes, and reads through it.
#include "tests/support/table_builder.h"
#include "tests/support/volume_builder.h"
#include "yfs/dfs.h"
#include "yfs/vfs.h"

#include <gtest/gtest.h>

namespace yfs::test {
namespace {

const std::string name_48 = "/home/" + std::string(42, 'p');

class mini_vfs : public testing::Test {
protected:
    void activate(const std::vector<table_file>& files)
    {
        for (const table_file& file : files) entries.push_back(file_entry(file));
        g_table_buf = entries.data();
        g_table_num_files = static_cast<std::int32_t>(entries.size());
    }

    std::vector<ftbl_file_entry_t> entries;
};

TEST_F(mini_vfs, numbers)
{
    struct {
        const char* name;
        std::uint32_t fileno;
        std::uint16_t file_index;
        std::uint8_t fs_selector;
        std::uint32_t number;
    } const cases[] = {
        {"selector 1 adds nothing", 0x501, 7, 1, 7},
        {"nor does 0", 0x501, 7, 0, 7},
        {"selector 2 is bit 12", 0x501, 7, 2, 0x1007},
        {"selector 3", 0, 0, 3, 0x1800},
        {"all bits of the selector", 0, 0, 0xFF, 0x7F800},
        {"low 11 bits of the index", 0, 0xFFFF, 1, 0x7FF},
        {"the next bit falls out", 0, 0x0800, 1, 0},
        {"top four bits of the fileno", 0xFFFFFFFF, 0, 1, 0xF0000000},
        {"the others fall out", 0x0FFFFFFF, 0, 1, 0},
        {"all", 0xA1234567, 0x1ABC, 2, 0xA00012BC},
    };
    for (const auto& row : cases) {
        entries.clear();
        activate({{"/f", row.fileno, 0xFFFF, row.file_index, row.fs_selector}});
        std::uint32_t number = 0xDEAD;
        EXPECT_EQ(0U, pathToFileNumber("/f", &number)) << row.name;
        EXPECT_EQ(row.number, number) << row.name;
    }
}

TEST_F(mini_vfs, reads)
{
    const blob content = bytes(300);
    volume built(6, 3);
    built.file(7, content);
    blob image = built.image();
    EXPECT_EQ(1U, mini_vfs_init(image.data(), 0x4000));
    ASSERT_EQ(0U, mini_vfs_init(image.data(), low32(image.size())));
    activate({{"/f", 0x30000501, 0, 7}, {"/free", 0x502, 0, 8}, {"/nowhere", 0x503, 0, 7, 3}});

    struct {
        const char* path;
        std::uint32_t offset, length, status, read;
    } const cases[] = {
        {"/f", 0, 300, 0, 300},   {"/f", 100, 50, 0, 50}, {"/f", 250, 100, 0, 50}, // short, and not a word of it
        {"/f", 300, 10, 0, 0},    {"/none", 0, 1, 2, 0},  {"/free", 0, 1, 6, 0},
        {"/nowhere", 0, 1, 6, 0}, {nullptr, 0, 1, 2, 0},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(testing::Message() << (row.path ? row.path : "null") << " from " << row.offset);
        blob out(300, 0xEE), expected(300, 0xEE);
        std::copy_n(content.begin() + row.offset, row.read, expected.begin());
        EXPECT_EQ(row.status, readVfs(row.path, row.offset, out.data(), row.length));
        EXPECT_EQ(expected, out);
    }
    afs_free_context(dfs_context);
}

} // namespace
} // namespace yfs::test
