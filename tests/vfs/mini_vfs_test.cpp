// Paths: the number that each composes, and reads through it.
#include "tests/support/table_builder.h"
#include "tests/support/volume_builder.h"
#include "yfs/dfs.h"
#include "yfs/vfs.h"

#include <gtest/gtest.h>

#include <array>

namespace yfs::test::vfs_mini_vfs {

std::vector<ftbl_file_entry_t> entries;

void activate(const std::vector<table_file>& files)
{
    entries.clear();
    for (const table_file& file : files) entries.push_back(file_entry(file));
    g_table_buf = entries.data();
    g_table_num_files = static_cast<std::int32_t>(entries.size());
}

// The index's low 11 bits, the selector's above them if it is 2 or more, the top four bits of the fileno.
TEST(mini_vfs, numbers)
{
    using row = std::array<std::uint32_t, 4>; // fileno, index, selector; the number
    for (const auto& [fileno, index, selector, wanted] :
         {row{0x501, 7, 1, 7}, row{0x501, 7, 0, 7}, row{0x501, 7, 2, 0x1007}, row{0, 0, 3, 0x1800},
          row{0, 0, 0xFF, 0x7F800}, row{0, 0xFFFF, 1, 0x7FF}, row{0, 0x0800, 1, 0}, row{0xFFFFFFFF, 0, 1, 0xF0000000},
          row{0x0FFFFFFF, 0, 1, 0}, row{0xA1234567, 0x1ABC, 2, 0xA00012BC}}) {
        activate({{"/f", fileno, 0xFFFF, low16(index), low8(selector)}});
        std::uint32_t number = 0xDEAD;
        EXPECT_EQ(0U, pathToFileNumber("/f", &number));
        EXPECT_EQ(wanted, number) << fileno << " " << index << " " << selector;
    }
}

TEST(mini_vfs, reads)
{
    const blob content = bytes(300);
    volume built(6, 3);
    built.file(7, content);
    blob image = built.image();
    EXPECT_EQ(1U, mini_vfs_init(image.data(), 0x4000));
    ASSERT_EQ(0U, mini_vfs_init(image.data(), low32(image.size())));
    activate({{"/f", 0x30000501, 0, 7}, {"/free", 0x502, 0, 8}, {"/nowhere", 0x503, 0, 7, 3}});

    using row = std::tuple<const char*, std::uint32_t, std::uint32_t, std::uint32_t, int>;
    for (const auto& [path, offset, length, status, read] :
         {row{"/f", 0, 300, 0, 300}, row{"/f", 100, 50, 0, 50}, row{"/f", 250, 100, 0, 50}, // short, not a word of it
          row{"/f", 300, 10, 0, 0}, row{"/none", 0, 1, 2, 0}, row{"/free", 0, 1, 6, 0}, row{"/nowhere", 0, 1, 6, 0},
          row{nullptr, 0, 1, 2, 0}}) {
        blob out(300, 0xEE), expected(300, 0xEE);
        std::copy_n(content.begin() + offset, read, expected.begin());
        EXPECT_EQ(status, readVfs(path, offset, out.data(), length));
        EXPECT_EQ(expected, out) << status << " from " << offset;
    }
    afs_free_context(dfs_context);
}

} // namespace yfs::test::vfs_mini_vfs
