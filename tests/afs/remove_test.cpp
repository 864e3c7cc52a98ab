// Deleting, zombies, what is given back to the FTL, and the maintenance forwards.
#include "tests/afs/afs_bench.h"

namespace yfs::test::afs_remove {

// What each operation makes of each state of a number, and what the next mount makes of that. A head of 105 has
// contents; a write makes it 100.
TEST(AfsRemove, StatesOfANumber)
{
    const std::function<std::uint32_t(bench&)> remove = [](bench&b) { return afs_deletefile(&b.ctx, file); },
                                               mark = [](bench&b) { return afs_mark_zombie_file(&b.ctx, file); },
                                               write = [](bench&b) { return b.write(file, 0, bytes(70), trunc); };
    using row = std::tuple<unsigned, decltype(remove), unsigned, unsigned, unsigned>;
    for (const auto& [old_head, operation, status, after, after_mount] :
         {row{0, remove, 2, 0, 0}, row{0, mark, 0, 0xFFFE, 0}, row{0, write, 0, 100, 100}, row{0xFFFE, remove, 0, 0, 0},
          row{0xFFFE, mark, 99, 0xFFFE, 0}, row{0xFFFE, write, 0, 100, 100}, row{0xFFFF, remove, 0, 0, 0},
          row{0xFFFF, mark, 99, 0xFFFF, 0xFFFF}, row{0xFFFF, write, 0, 100, 100}, row{105, remove, 0, 0, 0},
          row{105, mark, 99, 105, 105}, row{105, write, 0, 100, 100}}) {
        SCOPED_TRACE(testing::Message() << old_head << " to " << after);
        volume v(6, 3, 100);
        v.eu(2).seq(9).src(5); // the first group is the open one
        v.file(50, bytes(64)).in_chunks({4});
        if (old_head == 105) v.file(file, bytes(200)).in_chunks({5, 6, 7, 8});
        if (old_head == 0xFFFF) v.empty(file);
        bench b(v);
        ASSERT_EQ(b.open(), 0U);
        EXPECT_EQ(old_head == 0xFFFE ? mark(b) : 0U, 0U);
        EXPECT_EQ(operation(b), status);
        for (const std::uint32_t expected : {after, after_mount}) {
            std::uint16_t head = 0;
            EXPECT_EQ((words{afs_get_next_cid(&b.ctx, file, &head), head}), (words{0, expected}));
            EXPECT_EQ(b.read(file).has_value(), head != 0 && head != 0xFFFE);
            EXPECT_EQ(b.in_use(), 1 + (head == 105 ? 4U : head == 100 ? 2U : 0U));
            ASSERT_EQ(b.reopen(), 0U);
        }
        EXPECT_TRUE(clean(b.image, {inspect::finding_id::file_zombie}));
        EXPECT_EQ(b.read(50), bytes(64));
        EXPECT_EQ(after == 0 ? remove(b) : 2U, 2U);
        // The slots of deleted or replaced chunks count as dirty, not as free.
        EXPECT_EQ(b.ctx.ftl->eu_table[2].free, 122 - 1 - (old_head == 105 ? 4 : 0) - (after == 100 ? 2 : 0));
    }
    bench b(volume(6, 3, 100));
    ASSERT_EQ(b.open(), 0U);
    for (const std::int32_t number : {-1, 100, INT32_MAX, INT32_MIN})
        EXPECT_EQ(afs_deletefile(&b.ctx, number) + afs_mark_zombie_file(&b.ctx, number), 44U) << number;
    EXPECT_EQ(afs_deletefile(nullptr, 0) + afs_mark_zombie_file(nullptr, 0), 44U);
}

// Without a map of the chunks in use a FAT page is never given back: the chains of other files stand in it.
TEST(AfsRemove, OpenForReadingOnlyOtherFilesKeepTheirChains)
{
    volume v(6, 3, 100);
    v.file(file, bytes(100)).in_chunks({25, 26}); // their entries share a FAT page without file heads
    v.file(50, bytes(300)).in_chunks({30, 31, 32, 33, 34});
    bench b(v);
    ASSERT_EQ(b.open(0x25 | 8), 0U);
    EXPECT_EQ(afs_deletefile(&b.ctx, file), 0U);
    cache_invalidate(&b.ctx);
    EXPECT_EQ(b.read(50), bytes(300));
}

// A chain that can't be read any more: the file is gone, what is left of it stays in use until the next mount.
TEST(AfsRemove, AChainThatCantBeRead)
{
    volume v(6, 3, 100);
    v.file(file, bytes(300)).in_chunks({3, 1, 300, 0, 9});
    bench b(v);
    ASSERT_EQ(b.open(), 0U);
    cache_invalidate(&b.ctx);
    std::uint16_t head = 0;
    ASSERT_EQ(afs_get_next_cid(&b.ctx, file, &head), 0U);
    b.chip.fail(chip_call::read, 6,
                chip_fault::before); // the blank slot, three read-backs of the commit, two FAT pages
    EXPECT_EQ(afs_deletefile(&b.ctx, file), 5U);
    EXPECT_EQ(b.read(file), std::nullopt);
    EXPECT_EQ((words{b.in_use(), b.reopen(), b.in_use()}), (words{2, 0, 0}));
}

TEST(AfsMaintenance, Forwards)
{
    afs_context unopened{};
    afs_set_idle_reclaim_enabled(nullptr);
    EXPECT_EQ((words{afs_idle_reclaim(nullptr), afs_idle_reclaim_needed(nullptr), afs_force_full_reclaim(nullptr),
                     afs_force_dirty_erase(nullptr), afs_get_idle_reclaim_enabled(nullptr),
                     afs_force_full_reclaim(&unopened), afs_force_dirty_erase(&unopened)}),
              (words{22, 0, 22, 22, 0, 22, 22}));
    for (const auto& [sub_partition, wipe, whole] : {std::tuple(0, 0U, 1U), {1, 99, 0}, {2, 0, 0}, {3, 99, 0}}) {
        volume v(6, 3, 100);
        for (unsigned i = 0; i < 122; ++i) v.dead(i); // a group with nothing live
        bench b(v);
        ASSERT_EQ(b.open(), 0U);
        b.ctx.sub_partition = static_cast<std::uint8_t>(sub_partition);
        const auto& c = b.chip.counters();
        const words before{afs_get_idle_reclaim_enabled(&b.ctx), afs_idle_reclaim_needed(&b.ctx),
                           afs_force_dirty_erase(&b.ctx), low32(c.writes)};
        EXPECT_EQ(before, (words{0, whole, wipe, whole * 2 * 122}));
        afs_set_idle_reclaim_enabled(&b.ctx);
        EXPECT_EQ((words{afs_get_idle_reclaim_enabled(&b.ctx), afs_idle_reclaim(&b.ctx), low32(c.erases),
                         afs_idle_reclaim_needed(&b.ctx), afs_force_full_reclaim(&b.ctx)}),
                  (words{1, 0, whole * 2, 0, 11}));
    }

    bench b(volume(6, 3, 100));
    b.ctx.flash_base = 0x2000;
    std::uint8_t byte = 0;
    EXPECT_EQ((words{afs_sub_pt_read(&b.ctx, 16, 1, &byte), byte}), (words{0, b.image[0x2010]}));
    EXPECT_EQ(afs_sub_pt_write(&b.ctx, 500, 3, "\1\2\3") + afs_sub_pt_trim(), 0U);
    EXPECT_EQ(content(&b.image[0x2000 + 499], &b.image[0x2000 + 504]), (content{0xFF, 1, 2, 3, 0xFF}));
    b.chip.fail(chip_call::read, 1, chip_fault::before);
    EXPECT_NE(afs_sub_pt_read(&b.ctx, 16, 1, &byte), 0U);
}

} // namespace yfs::test::afs_remove
