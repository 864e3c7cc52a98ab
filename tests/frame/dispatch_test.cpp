// Dispatch: which file system a number reaches, what becomes of its status, and what a missing volume answers.
#include "tests/support/volume_builder.h"
#include "yfs/dfs.h"
#include "yfs/efs.h"
#include "yfs/medium.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

namespace {

using yfs::test::bytes;
using yfs::test::volume;

constexpr std::uint32_t efs_bit = 0x1000, bad_selector = 0x800, high_bits = 0xF0000000;

struct answers {
    std::uint32_t getsize, read, write, remove;
    bool operator==(const answers&) const = default;
};
std::ostream& operator<<(std::ostream& out, const answers& a)
{
    return out << a.getsize << " " << a.read << " " << a.write << " " << a.remove;
}

// Asks all four. The write puts the same byte again, the delete comes last.
answers ask(std::uint32_t fileno)
{
    std::uint32_t size = 0, len = 10;
    std::uint8_t buf[10] = {};
    return {dfs_getsize(fileno, &size), dfs_read(fileno, 0, &len, buf), dfs_write(fileno, 0, 1, buf, 0),
            dfs_delete_file(fileno)};
}

// Statuses of everything that means AFS alone: zombie, full reclaim, dirty erase, idle reclaim, needed, page size.
std::vector<std::uint32_t> ask_maintenance()
{
    return {dfs_mark_zombie_file(9), dfs_force_full_reclaim(),  dfs_force_dirty_erase(),
            dfs_idle_reclaim(),      dfs_idle_reclaim_needed(), dfs_set_page_size(64)};
}

struct Dispatch : testing::Test {
    volume v{6, 3, 512};
    std::vector<std::uint8_t> content = bytes(300), image;

    void SetUp() override
    {
        v.file(7, content);
        v.empty(8);
        image = v.image();
        ASSERT_EQ(dfs_init(image.data(), size_of(image)), 0U);
    }
    static std::uint32_t size_of(const std::vector<std::uint8_t>& i) { return static_cast<std::uint32_t>(i.size()); }
};

TEST_F(Dispatch, OpensWithItsFixedArguments)
{
    EXPECT_EQ(dfs_context->page_size, 64);
    EXPECT_EQ(dfs_context->line_count, 10);
    EXPECT_EQ(dfs_context->files, 512); // the header's, not the 1024 that it passes
    EXPECT_EQ(dfs_context->flash_base, 0U);
    EXPECT_EQ(dfs_context->flash_size, size_of(image));
    EXPECT_EQ(dfs_context->image, image.data());
    EXPECT_EQ(gpBuffer, image.data());
    EXPECT_NE(dfs_context->staging, nullptr);
    EXPECT_NE(dfs_context->file_sizes, nullptr);
    EXPECT_EQ(dfs_context->no_alloc_map, 0);
    EXPECT_EQ(dfs_terminate(), 0U);
    EXPECT_EQ(dfs_is_fs_erased(), 0U);
    EXPECT_EQ(ask(7), (answers{0, 0, 0, 0})); // dfs_terminate closes nothing
}

TEST_F(Dispatch, RoutesByTheSelector)
{
    struct row {
        const char* name;
        std::uint32_t fileno;
        answers expected;
    };
    for (const row& r :
         {row{"a file", 7, {0, 0, 0, 0}},
          row{"bits 28 to 31 set: the same, but for the delete", 7 | high_bits, {0, 0, 0, 22}},
          row{"an empty file", 8, {0, 0, 0, 0}}, row{"a free number", 9, {2, 2, 0, 0}}, // the write creates it
          row{"index above the table", 600, {22, 22, 22, 22}},
          row{"bit 13 is handed down", 7 | 0x2000, {22, 22, 22, 22}},
          row{"bit 27 is handed down", 7 | 0x8000000, {22, 22, 22, 22}},
          row{"selector 1", 7 | bad_selector, {22, 22, 22, 22}},
          row{"selector 3", 7 | bad_selector | efs_bit, {22, 22, 22, 22}}}) {
        SetUp();
        EXPECT_EQ(ask(r.fileno), r.expected) << r.name;
    }
    SetUp();
    std::uint32_t len = 10;
    std::uint8_t buf[10];
    EXPECT_EQ(EFS_is_initialized(), 0);
    EXPECT_EQ(dfs_read(7 | efs_bit, 0, &len, buf), 2U); // no EFS mounted
    EXPECT_EQ(dfs_write(7 | efs_bit, 0, 1, buf, 0), 5U);
    EXPECT_EQ(dfs_delete_file(7 | efs_bit), 22U);
    EXPECT_EQ(dfs_read(7 | high_bits, 290, &len, buf), 0U);
    EXPECT_EQ(len, 10U);
    EXPECT_EQ(0, std::memcmp(buf, content.data() + 290, 10));
    EXPECT_EQ(dfs_mark_zombie_file(9 | high_bits), 22U); // unmasked
}

TEST_F(Dispatch, WithoutAContext)
{
    afs_context* kept = dfs_context;
    dfs_context = nullptr;
    EXPECT_EQ(ask(7), (answers{2, 22, 22, 2}));
    EXPECT_EQ(ask(7 | bad_selector), (answers{2, 22, 22, 22}));
    EXPECT_EQ(ask(7 | efs_bit), (answers{2, 2, 5, 22}));
    EXPECT_EQ(ask_maintenance(), (std::vector<std::uint32_t>{22, 22, 22, 22, 0, 22}));
    EXPECT_EQ(dfs_set_page_size(0), 22U);
    EXPECT_EQ(dfs_set_idle_reclaim_enabled() + dfs_get_idle_reclaim_enabled(), 0U);
    dfs_context = kept;
    EXPECT_EQ(dfs_get_idle_reclaim_enabled(), 0);
    EXPECT_EQ(dfs_set_idle_reclaim_enabled(), 0U);
    EXPECT_EQ(dfs_get_idle_reclaim_enabled(), 1);
}

// A flash layer that answers what it is told to.
std::uint32_t s_answer;
std::uint32_t answer_read(afs_context*, std::uint32_t, std::uint32_t, void*, std::uint32_t)
{
    return s_answer;
}
std::uint32_t answer_write(afs_context*, std::uint32_t, std::uint32_t, const void*, std::uint32_t)
{
    return s_answer;
}
std::uint32_t answer_full(afs_context*)
{
    return s_answer;
}

TEST_F(Dispatch, FoldsStatuses)
{
    const auto through = [](std::uint32_t status, std::initializer_list<std::uint32_t> list) {
        return status == 0 || std::count(list.begin(), list.end(), status) != 0 ? status : 5U;
    };
    const afs_physical_handler no_reads{answer_read, afs_physical_ftl_write_page, afs_physical_ftl_trim_page,
                                        answer_full, answer_full};
    const afs_physical_handler no_writes{afs_physical_ftl_read_page, answer_write, afs_physical_ftl_trim_page,
                                         answer_full, answer_full};
    for (const std::uint32_t status : {0U, 1U, 2U, 5U, 11U, 12U, 22U, 27U, 28U, 99U, 562U, 563U, 38807U, 65533U}) {
        SCOPED_TRACE(status);
        SetUp();
        s_answer = status;
        std::uint32_t size = 0, len = 10;
        std::uint8_t buf[10];
        dfs_context->handler = &no_writes;
        EXPECT_EQ(dfs_write(7, 0, 10, buf, 0), through(status, {22, 27, 28, 562}));
        EXPECT_EQ(dfs_delete_file(8), through(status, {2, 22}));
        EXPECT_EQ(dfs_force_full_reclaim(), status); // maintenance hands its status up as it is
        EXPECT_EQ(dfs_force_dirty_erase(), status);
        EXPECT_EQ(dfs_mark_zombie_file(9), status);

        if (status == 0) continue; // a read that does nothing isn't a page
        dfs_context->handler = &no_reads;
        afs_free_file_size_table(dfs_context);
        cache_invalidate(dfs_context);
        EXPECT_EQ(dfs_getsize(7, &size), through(status, {2, 22}));
        EXPECT_EQ(dfs_read(7, 0, &len, buf), through(status, {2, 22}));
        EXPECT_EQ(len, 10U);
    }
    SetUp();
    EXPECT_EQ(dfs_mark_zombie_file(7), 99U);
    for (const std::uint32_t expected : {11U, 11U, 11U, 0U}) EXPECT_EQ(dfs_force_full_reclaim(), expected);
    EXPECT_EQ(dfs_write(7, 0x40000, 1, "", 0), 27U);
}

TEST_F(Dispatch, AFailedOpenLeavesNothingToUse)
{
    const auto with_corrupt_head = [&] {
        volume w(6, 3, 512);
        w.file(7, content);
        w.fat(400, 64);
        return w.image();
    };
    struct row {
        const char* name;
        std::vector<std::uint8_t> image;
        std::uint32_t size, status;
    };
    const std::vector<std::uint8_t> blank(0xC000, 0xFF), big(0x200000, 0xFF);
    for (row r :
         {row{"blank flash", blank, 0xC000, 5}, row{"below 32 KiB", image, 0x7FFF, 22},
          row{"above 2 MiB", image, 0x200001, 22}, row{"256 EUs", big, 0x200000, 5},
          row{"two EUs cut off", image, 0x8000, 5}, row{"a corrupt file head", with_corrupt_head(), 0xC000, 5}}) {
        SCOPED_TRACE(r.name);
        SetUp();
        const auto before = r.image;
        EXPECT_EQ(dfs_init(r.image.data(), r.size), r.status);
        ASSERT_NE(dfs_context, nullptr);
        EXPECT_EQ(ask(7), (answers{22, 22, 22, 22}));
        EXPECT_EQ(ask_maintenance(), (std::vector<std::uint32_t>{22, 22, 22, 22, 0, 22}));
        EXPECT_EQ(r.image, before);
    }
    SetUp();
    EXPECT_EQ(ask(7), (answers{0, 0, 0, 0}));
}

TEST_F(Dispatch, ASecondOpenTakesOver)
{
    volume w(8, 5, 100);
    w.file(7, bytes(5000, 3));
    auto second = w.image();
    const auto first_before = image;
    ASSERT_EQ(dfs_init(second.data(), size_of(second)), 0U);
    EXPECT_EQ(gpBuffer, second.data());
    std::uint32_t size = 0;
    EXPECT_EQ(dfs_getsize(7, &size), 0U);
    EXPECT_EQ(size, 5000U);
    EXPECT_EQ(dfs_write(7, 0, 3, "abc", 1), 0U);
    EXPECT_EQ(image, first_before);
    EXPECT_EQ(dfs_getsize(7, &size), 0U);
    EXPECT_EQ(size, 3U);
}

TEST_F(Dispatch, PageSizeGivesTheNumberOfLines)
{
    for (const auto& [page_size, status, lines] :
         std::initializer_list<std::array<std::uint32_t, 3>>{{0, 22, 10},
                                                             {63, 22, 10},
                                                             {8192, 22, 10},
                                                             {0xFFFFFFC0, 22, 10},
                                                             {4096, 0, 2},
                                                             {128, 0, 64},
                                                             {64, 0, 128}}) {
        SetUp();
        EXPECT_EQ(dfs_set_page_size(page_size), status) << page_size;
        EXPECT_EQ(dfs_context->line_count, lines) << page_size;
        EXPECT_EQ(dfs_context->page_size, status == 0 ? page_size : 64) << page_size;
    }
    EXPECT_EQ(ask(7), (answers{0, 0, 0, 0}));
}

} // namespace
