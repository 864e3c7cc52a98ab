// Dispatch: which file system a number reaches, what becomes of its status, and what a missing volume answers.
#include "tests/support/volume_builder.h"
#include "yfs/dfs.h"
#include "yfs/efs.h"
#include "yfs/medium.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using yfs::test::bytes;
using yfs::test::volume;
using words = std::vector<std::uint32_t>;

constexpr std::uint32_t efs_bit = 0x1000, bad_selector = 0x800, high_bits = 0xF0000000;

// Statuses of getsize, read, write, delete. The write puts the same byte again, the delete comes last.
words ask(std::uint32_t fileno)
{
    std::uint32_t size = 0, len = 10;
    std::uint8_t buf[10] = {};
    return {dfs_getsize(fileno, &size), dfs_read(fileno, 0, &len, buf), dfs_write(fileno, 0, 1, buf, 0),
            dfs_delete_file(fileno)};
}

// Statuses of everything that means AFS alone.
const auto ask_maintenance = [] {
    return words{dfs_mark_zombie_file(9), dfs_force_full_reclaim(),  dfs_force_dirty_erase(),
                 dfs_idle_reclaim(),      dfs_idle_reclaim_needed(), dfs_set_page_size(64)};
};

struct Dispatch : testing::Test {
    std::vector<std::uint8_t> content = bytes(300), image;

    void SetUp() override
    {
        volume v(6, 3, 512);
        v.file(7, content);
        image = v.empty(8).image();
        ASSERT_EQ(dfs_init(image.data(), 0xC000), 0U);
    }
};

TEST_F(Dispatch, RoutesByTheSelector)
{
    EXPECT_EQ((words{dfs_context->page_size, dfs_context->line_count, dfs_context->files, dfs_context->flash_base,
                     dfs_context->flash_size, dfs_context->no_alloc_map}),
              (words{64, 10, 512, 0, 0xC000, 0})); // files: the header's, not the 1024 that it passes
    EXPECT_TRUE(gpBuffer == image.data() && dfs_context->staging != nullptr && dfs_context->file_sizes != nullptr);
    EXPECT_EQ(dfs_terminate() + dfs_is_fs_erased(), 0U); // close nothing
    for (const words& r :
         {words{7, 0, 0, 0, 0}, words{7 | high_bits, 0, 0, 0, 22}, // bits 28 to 31 count for a delete alone
          words{8, 0, 0, 0, 0}, words{9, 2, 2, 0, 0}, // an empty file; a free number, which the write creates
          words{600, 22, 22, 22, 22}, words{7 | bad_selector, 22, 22, 22, 22},
          words{7 | bad_selector | efs_bit, 22, 22, 22, 22}, // bits 13 and 27 are handed down
          words{7 | 0x2000, 22, 22, 22, 22}, words{7 | 0x8000000, 22, 22, 22, 22}}) {
        SetUp();
        EXPECT_EQ(ask(r[0]), words(r.begin() + 1, r.end())) << r[0];
    }
    SetUp();
    std::uint32_t len = 10;
    std::vector<std::uint8_t> buf(10);
    EXPECT_EQ((words{EFS_is_initialized(), dfs_read(7 | efs_bit, 0, &len, buf.data()),
                     dfs_write(7 | efs_bit, 0, 1, buf.data(), 0), dfs_delete_file(7 | efs_bit)}),
              (words{0, 2, 5, 22})); // no EFS mounted
    EXPECT_EQ(dfs_read(7 | high_bits, 290, &len, buf.data()), 0U);
    EXPECT_TRUE(len == 10 && std::equal(buf.begin(), buf.end(), content.begin() + 290));
    EXPECT_EQ(dfs_mark_zombie_file(9 | high_bits), 22U); // unmasked
}

TEST_F(Dispatch, WithoutAContext)
{
    afs_context* kept = std::exchange(dfs_context, nullptr);
    EXPECT_EQ(ask(7), (words{2, 22, 22, 2}));
    EXPECT_EQ(ask(7 | bad_selector), (words{2, 22, 22, 22}));
    EXPECT_EQ(ask(7 | efs_bit), (words{2, 2, 5, 22}));
    EXPECT_EQ(ask_maintenance(), (words{22, 22, 22, 22, 0, 22}));
    EXPECT_EQ((words{dfs_set_page_size(0), dfs_set_idle_reclaim_enabled(), dfs_get_idle_reclaim_enabled()}),
              (words{22, 0, 0}));
    dfs_context = kept;
    const std::uint32_t before = dfs_get_idle_reclaim_enabled();
    EXPECT_EQ((words{before, dfs_set_idle_reclaim_enabled(), dfs_get_idle_reclaim_enabled()}), (words{0, 0, 1}));
}

TEST_F(Dispatch, FoldsStatuses)
{
    static std::uint32_t s_answer; // of a flash layer that answers what it is told to
    afs_physical_handler no_writes = afs_physical_spi_handler, no_reads = no_writes;
    no_reads.read_page = [](auto...) { return s_answer; };
    no_writes.write_page = [](auto...) { return s_answer; };
    no_writes.force_full_reclaim = no_writes.force_dirty_erase = [](auto...) { return s_answer; };
    for (const std::uint32_t status : {0U, 1U, 2U, 5U, 11U, 12U, 22U, 27U, 28U, 99U, 562U, 563U, 38807U, 65533U}) {
        SetUp();
        s_answer = status;
        const auto or_5 = [&](words let) { return status == 0 || std::ranges::count(let, status) != 0 ? status : 5U; };
        std::uint32_t size = 0, len = 10;
        std::uint8_t buf[10];
        dfs_context->handler = &no_writes;
        const std::uint32_t write = or_5({22, 27, 28, 562}), other = or_5({2, 22});
        EXPECT_EQ((words{dfs_write(7, 0, 10, buf, 0), dfs_delete_file(8), dfs_force_full_reclaim(),
                         dfs_force_dirty_erase(), dfs_mark_zombie_file(9)}),
                  (words{write, other, status, status, status})); // maintenance hands its status up as it is
        if (status == 0) continue;                                // a read that does nothing isn't a page
        dfs_context->handler = &no_reads;
        afs_free_file_size_table(dfs_context);
        cache_invalidate(dfs_context);
        EXPECT_EQ((words{dfs_getsize(7, &size), dfs_read(7, 0, &len, buf), len}), (words{other, other, 10}));
    }
}

TEST_F(Dispatch, AFailedOpenLeavesNothingToUse)
{
    const auto corrupt = volume(6, 3, 512).fat(400, 64).image(), sound = image;
    const std::vector<std::uint8_t> blank(0x200000, 0xFF);
    using row = std::tuple<const std::vector<std::uint8_t>&, std::uint32_t, std::uint32_t>;
    for (const auto& [flash, size, status] :
         {row{blank, 0xC000, 5}, row{sound, 0x7FFF, 22}, row{sound, 0x200001, 22}, row{blank, 0x200000, 5},
          row{sound, 0x8000, 5}, row{corrupt, 0xC000, 5}}) {
        SetUp();
        auto now = flash;
        EXPECT_EQ(dfs_init(now.data(), size), status) << size;
        ASSERT_NE(dfs_context, nullptr);
        EXPECT_EQ(ask(7), (words{22, 22, 22, 22}));
        EXPECT_EQ(ask_maintenance(), (words{22, 22, 22, 22, 0, 22}));
        std::uint16_t cid = 0;
        void* line = nullptr;
        EXPECT_EQ((words{afs_get_next_cid(dfs_context, 0, &cid), afs_allocate_chunk(dfs_context, &cid),
                         afs_release_resources(dfs_context, 200, 1, nullptr, false), cache_ptr(dfs_context, 0, &line)}),
                  (words{22, 22, 22, 99}));
        EXPECT_EQ((words{afs_setcache(dfs_context, 64, 10), cache_ptr(dfs_context, 0, &line),
                         afs_get_next_cid(dfs_context, 0, &cid), ask(7)[0]}),
                  (words{0, 22, 22, 22}));
        EXPECT_EQ(now, flash);
    }
}

TEST_F(Dispatch, PageSizeGivesTheNumberOfLines)
{
    for (const auto& r : {words{0, 22, 10}, words{63, 22, 10}, words{8192, 22, 10}, words{0xFFFFFFC0, 22, 10},
                          words{4096, 0, 2}, words{128, 0, 64}, words{64, 0, 128}}) {
        SetUp();
        EXPECT_EQ((words{dfs_set_page_size(r[0]), dfs_context->line_count, dfs_context->page_size}),
                  (words{r[1], r[2], r[1] == 0 ? r[0] : 64}));
    }
    EXPECT_EQ(ask(7), (words{0, 0, 0, 0}));
}

} // namespace
