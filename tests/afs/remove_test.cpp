// Deleting, zombies, what is given back to the FTL, and the maintenance forwards.
#include "tests/afs/afs_bench.h"
#include "yfs/status.h"

namespace yfs::test {
namespace {

constexpr int file = 7;

// What each operation makes of each state of a number, and what the next mount makes of that.
TEST(AfsRemove, StatesOfANumber)
{
    enum class op { remove, mark, write, nothing };
    struct row {
        const char* name;
        std::uint16_t head; // 105: with contents; a write makes it 100
        op what;
        std::uint32_t status;
        std::uint16_t after, after_mount;
    };
    for (const row& r : {
             row{"delete a free number", 0, op::remove, 2, 0, 0},
             {"mark a free number", 0, op::mark, 0, 0xFFFE, 0},
             {"write a free number", 0, op::write, 0, 100, 100},
             {"mount a free number", 0, op::nothing, 0, 0, 0},
             {"delete a zombie", 0xFFFE, op::remove, 0, 0, 0},
             {"mark a zombie", 0xFFFE, op::mark, 99, 0xFFFE, 0},
             {"write a zombie", 0xFFFE, op::write, 0, 100, 100},
             {"delete an empty file", 0xFFFF, op::remove, 0, 0, 0},
             {"mark an empty file", 0xFFFF, op::mark, 99, 0xFFFF, 0xFFFF},
             {"write an empty file", 0xFFFF, op::write, 0, 100, 100},
             {"delete a file", 105, op::remove, 0, 0, 0},
             {"mark a file", 105, op::mark, 99, 105, 105},
             {"write a file", 105, op::write, 0, 100, 100},
         }) {
        SCOPED_TRACE(r.name);
        volume v(6, 3, 100);
        v.eu(2).seq(9).src(5); // the first group is the open one
        v.file(50, bytes(64)).in_chunks({4});
        if (r.head == 105) v.file(file, bytes(200)).in_chunks({5, 6, 7, 8});
        if (r.head == 0xFFFF) v.empty(file);
        bench b(v);
        ASSERT_EQ(b.open(), 0U);
        if (r.head == 0xFFFE) {
            ASSERT_EQ(afs_mark_zombie_file(&b.ctx, file), 0U);
        }
        std::uint32_t status = 0;
        if (r.what == op::remove) status = afs_deletefile(&b.ctx, file);
        if (r.what == op::mark) status = afs_mark_zombie_file(&b.ctx, file);
        if (r.what == op::write) status = b.write(file, 0, bytes(70), 1);
        EXPECT_EQ(status, r.status);
        for (const std::uint16_t expected : {r.after, r.after_mount}) {
            std::uint16_t head = 0;
            EXPECT_EQ(afs_get_next_cid(&b.ctx, file, &head), 0U);
            EXPECT_EQ(head, expected);
            const bool exists = head != 0 && head != 0xFFFE;
            EXPECT_EQ(b.read(file).has_value(), exists);
            EXPECT_EQ(b.in_use(), 1 + (head == 105 ? 4U : head == 100 ? 2U : 0U));
            ASSERT_EQ(b.reopen(), 0U);
        }
        EXPECT_TRUE(b.sound(inspect::finding_id::file_zombie));
        EXPECT_EQ(b.read(50), bytes(64));
        if (r.what == op::remove) {
            EXPECT_EQ(afs_deletefile(&b.ctx, file), 2U);
        }
        // The slots of deleted or replaced chunks count as dirty, not as free.
        EXPECT_EQ(b.ctx.ftl->eu_table[2].free, 122 - 1 - (r.head == 105 ? 4 : 0) - (r.after == 100 ? 2 : 0));
    }
    for (const std::int32_t number : {-1, 100, INT32_MAX, INT32_MIN}) {
        bench b(volume(6, 3, 100));
        ASSERT_EQ(b.open(), 0U);
        EXPECT_EQ(afs_deletefile(&b.ctx, number), 22U);
        EXPECT_EQ(afs_mark_zombie_file(&b.ctx, number), 22U);
    }
    EXPECT_EQ(afs_deletefile(nullptr, 0), 22U);
    EXPECT_EQ(afs_mark_zombie_file(nullptr, 0), 22U);
}

// FAT pages that describe only free chunks go back to the log; not those with heads, not the last, not one still
// needed.
TEST(AfsRemove, GivesFatPagesBack)
{
    for (const bool neighbour : {false, true}) {
        for (const bool cut : {false, true}) {
            SCOPED_TRACE(testing::Message() << neighbour << cut);
            volume v(6, 3, 100); // heads end in page 3, page 14 is the last
            std::vector<unsigned> chunks;
            const unsigned from = cut ? 190 : 0; // a cut's walk has counted the file already
            for (unsigned i = from; i < 366; ++i)
                if (i != 250) chunks.push_back(i);
            if (neighbour) std::reverse(chunks.begin(), chunks.end()); // a walk that leaves the last page first
            v.file(file, bytes(chunks.size() * 64)).in_chunks(chunks);
            if (neighbour) v.file(8, bytes(10)).in_chunks({250});
            bench b(v);
            ASSERT_EQ(b.open(), 0U);
            EXPECT_EQ(cut ? b.write(file, 0, {}, 1) : afs_deletefile(&b.ctx, file), 0U);
            for (unsigned page = volume::page_of(100 + from) + (cut ? 0 : 1); page < 14; ++page)
                EXPECT_EQ(b.fat_page_mapped(page), neighbour && page == volume::page_of(350)) << page;
            EXPECT_TRUE(b.fat_page_mapped(0) && b.fat_page_mapped(14) && b.fat_page_mapped(3) == !cut);
            const unsigned mapped = static_cast<unsigned>(
                std::count_if(b.ctx.ftl->page_map, b.ctx.ftl->page_map + 15, [](auto e) { return e.slot != 0xFF; }));
            EXPECT_EQ(b.ctx.ftl->eu_table[0].dirty, 120 - mapped);
            ASSERT_EQ(b.reopen(), 0U); // a mount finds the same pages not needed
            for (unsigned page = 4; page < 14; ++page)
                EXPECT_EQ(b.fat_page_mapped(page), neighbour && page == volume::page_of(350)) << page;
        }
    }
}

TEST(AfsRemove, EveryWriteCanFail)
{
    for (const bool mark : {false, true}) {
        for (unsigned n = 1; n <= 4; ++n) {
            volume v(6, 3, 100);
            v.file(file, bytes(300)).in_chunks({3, 1, 4, 0, 9});
            bench b(v);
            ASSERT_EQ(b.open(), 0U);
            b.chip.fail(chip_call::write, n, chip_fault::before);
            EXPECT_EQ(mark ? afs_mark_zombie_file(&b.ctx, 8) : afs_deletefile(&b.ctx, file), n <= 3 ? 5U : 0U);
            EXPECT_EQ(b.read(file).has_value(), mark || n <= 3); // every cached line was dropped
            EXPECT_EQ(b.in_use(), mark || n <= 3 ? 5U : 0U);
            b.chip.power_on();
            ASSERT_EQ(b.reopen(), 0U);
            EXPECT_EQ(b.read(file).has_value(), mark || n <= 3);
        }
    }
    // A chain that can't be read any more: the file is gone, what is left of it stays in use.
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
    EXPECT_EQ(b.in_use(), 2U);
    ASSERT_EQ(b.reopen(), 0U);
    EXPECT_EQ(b.in_use(), 0U);
}

TEST(AfsMaintenance, Forwards)
{
    EXPECT_EQ(afs_idle_reclaim(nullptr), 22U);
    EXPECT_EQ(afs_idle_reclaim_needed(nullptr), 0);
    EXPECT_EQ(afs_force_full_reclaim(nullptr), 22U);
    EXPECT_EQ(afs_force_dirty_erase(nullptr), 22U);
    EXPECT_EQ(afs_get_idle_reclaim_enabled(nullptr), 0);
    afs_set_idle_reclaim_enabled(nullptr);
    afs_context unopened{};
    EXPECT_EQ(afs_force_full_reclaim(&unopened), 22U);
    EXPECT_EQ(afs_force_dirty_erase(&unopened), 22U);

    struct row {
        std::uint8_t sub_partition;
        std::uint32_t full, wipe, idle;
        std::uint8_t needed;
    };
    for (const row& r : {row{0, 11, 0, 0, 1}, row{1, 11, 99, 0, 0}, row{2, 11, 0, 0, 0}, row{3, 11, 99, 0, 0}}) {
        volume v(6, 3, 100);
        for (unsigned i = 0; i < 122; ++i) v.dead(i); // a group with nothing live
        bench b(v);
        ASSERT_EQ(b.open(), 0U);
        EXPECT_EQ(afs_get_idle_reclaim_enabled(&b.ctx), 0);
        afs_set_idle_reclaim_enabled(&b.ctx);
        EXPECT_EQ(afs_get_idle_reclaim_enabled(&b.ctx), 1);
        b.ctx.sub_partition = r.sub_partition;
        EXPECT_EQ(afs_idle_reclaim_needed(&b.ctx), r.needed);
        b.chip.reset_counters();
        EXPECT_EQ(afs_force_dirty_erase(&b.ctx), r.wipe);
        EXPECT_EQ(b.chip.counters().writes, r.sub_partition == 0 ? 2 * 122U : 0U);
        EXPECT_EQ(afs_idle_reclaim(&b.ctx), r.idle);
        EXPECT_EQ(b.chip.counters().erases, r.sub_partition == 0 ? 2U : 0U);
        EXPECT_EQ(afs_idle_reclaim_needed(&b.ctx), 0);
        EXPECT_EQ(afs_force_full_reclaim(&b.ctx), r.full);
    }
}

TEST(AfsMaintenance, PlainAccess)
{
    bench b(volume(6, 3, 100));
    b.ctx.flash_base = 0x2000;
    std::uint8_t buf[3] = {};
    EXPECT_EQ(afs_sub_pt_read(&b.ctx, 16, 2, buf), 0U);
    EXPECT_EQ(buf[0], b.image[0x2010]);
    const std::uint8_t news[] = {1, 2, 3};
    EXPECT_EQ(afs_sub_pt_write(&b.ctx, 500, 3, news), 0U);
    EXPECT_EQ(b.image[0x2000 + 502], 3);
    EXPECT_EQ(b.image[0x2000 + 503], 0xFF);
    b.chip.fail(chip_call::read, 1, chip_fault::before);
    EXPECT_NE(afs_sub_pt_read(&b.ctx, 16, 2, buf), 0U);
    EXPECT_EQ(afs_sub_pt_trim(), 0U);

    const afs_physical_handler& h = afs_physical_spi_handler;
    EXPECT_TRUE(h.read_page == afs_physical_ftl_read_page && h.write_page == afs_physical_ftl_write_page &&
                h.trim_page == afs_physical_ftl_trim_page &&
                h.force_full_reclaim == afs_physical_ftl_force_full_reclaim &&
                h.force_dirty_erase == afs_physical_ftl_force_dirty_erase);
}

} // namespace
} // namespace yfs::test
