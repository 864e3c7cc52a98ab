// Choosing a victim, moving its pages, handing over.
#include "tests/ftl/ftl_bench.h"

namespace yfs::test::ftl_reclaim {

// The table as a text: seq/erase_count/dirty/free of EUs 0 and 1 (log), 2 to 4 (data); 5 is the spare and tempts.
void set(bench& b, const char* table)
{
    std::istringstream in(std::string(table) + " 0/1/122/122");
    char slash;
    for (unsigned i = 0, dirty, free; i < 6; ++i) {
        ftl_eu_entry& e = b.ctx.ftl->eu_table[i];
        in >> e.seq >> slash >> e.erase_count >> slash >> dirty >> slash >> free;
        e.dirty = low8(dirty), e.free = low8(free);
    }
    ASSERT_FALSE(in.fail());
}

TEST(FtlVictim, Choice)
{
    bench b("");
    ASSERT_EQ(b.open(), 0U);
    using ftl::kind_data, ftl::kind_log;
    using row = std::tuple<const char*, unsigned, const char*, bool, unsigned, unsigned>;
    for (const auto& [name, kind, table, wear, eu, due_mode] : {
             row{"data EU with room, oldest", kind_data, "1/1/0/0 2/1/0/0 9/1/9/3 7/1/1/1 8/1/99/99", true, 3, 0},
             {"blank log EU, oldest", kind_log, "4/1/9/1 3/1/9/1 1/1/9/9 1/1/9/9 1/1/9/9", true, 1, 0},
             {"most dirty data EU", kind_data, "1/1/99/1 2/1/99/1 3/1/5/0 4/1/7/0 5/1/6/0", true, 3, 1},
             {"of equals the least worn", kind_data, "1/1/0/0 2/1/0/0 3/9/7/0 4/8/7/0 5/8/7/0", true, 3, 1},
             {"of equals the first", kind_log, "1/8/7/0 2/8/7/0 3/1/9/0 4/1/9/0 5/1/9/0", true, 0, 1},
             {"201 isn't a multiple of 10", kind_data, "1/1/0/0 2/1/0/0 3/50/0/0 4/201/7/0 5/60/8/0", true, 4, 1},
             {"210 and 50: wear", kind_data, "1/1/0/0 2/1/0/0 3/50/0/0 4/210/7/0 5/60/8/0", true, 2, 1},
             {"150 and 50: 100 isn't enough", kind_data, "1/1/0/0 2/1/0/0 3/60/0/0 4/150/7/0 5/50/0/0", true, 3, 1},
             {"160 and 59: 101 is", kind_data, "1/1/0/0 2/1/0/0 3/60/0/0 4/160/7/0 5/59/0/0", true, 4, 1},
             {"the first of the least worn", kind_data, "1/1/0/0 2/1/0/0 3/9/0/0 4/160/7/0 5/9/0/0", true, 2, 1},
             {"wear not allowed", kind_data, "1/1/0/0 2/1/0/0 3/50/0/0 4/210/7/0 5/60/8/0", false, 4, 1},
             {"wear of the other kind", kind_data, "1/210/0/0 2/1/0/0 3/50/0/0 4/51/7/0 5/60/8/0", true, 4, 1},
             {"wear of log EUs", kind_log, "1/210/9/0 2/9/0/0 3/50/0/0 4/51/7/0 5/60/8/0", true, 1, 1},
         }) {
        set(b, table);
        std::uint32_t mode = 9;
        EXPECT_EQ(ftl::choose_eu_to_reclaim(&b.ctx, kind, wear, &mode, false), eu) << name;
        EXPECT_EQ(mode, due_mode) << name;
    }
}

// In idle time only what is worth while: where the log stands, the table; the kind asked for (7: nothing), a unit.
TEST(FtlVictim, IdleTime)
{
    bench b("");
    ASSERT_EQ(b.open(), 0U);
    using row = std::tuple<const char*, unsigned, unsigned, const char*, unsigned, unsigned>;
    for (const auto& [name, log_eu, log_slot, table, due_kind, due_eu] : {
             row{"30 log slots", 0, 90, "1/1/0/0 2/1/0/0 3/1/9/99 4/1/9/9 5/1/9/9", 7, 7},
             {"a blank unit in front", 1, 119, "1/1/0/1 2/1/0/0 3/1/9/99 4/1/9/9 5/1/9/9", 7, 7},
             {"63 free, 97 dirty", 0, 0, "1/1/0/0 2/1/0/0 3/1/60/20 4/1/7/30 5/1/30/13", 1, none},
             {"64 free", 0, 0, "1/1/0/0 2/1/0/0 3/1/60/20 4/1/7/30 5/1/30/14", 7, 7},
             {"96 dirty", 0, 0, "1/1/0/0 2/1/0/0 3/1/60/20 4/1/6/30 5/1/30/13", 7, 7},
             {"wholly dead, least worn, first", 0, 0, "1/1/120/0 2/3/120/0 3/5/122/0 4/3/122/0 5/3/0/99", 0, 1},
         }) {
        set(b, table);
        b.ctx.ftl->log_eu = log_eu, b.ctx.ftl->log_slot = log_slot;
        std::uint32_t eu = 7, kind = 7;
        EXPECT_EQ(afs_physical_ftl_idle_reclaim_needed(&b.ctx, &eu, &kind), due_kind != 7) << name;
        EXPECT_TRUE(kind == due_kind && eu == due_eu) << name;
    }
}

// Runs go from the top down, at most 62 pages each. Live pages keep their slots. Then header, end of the source,
// commit.
TEST(FtlReclaim, DataEu)
{
    const std::string no_room = " d122-365"; // elsewhere
    check({
        {"all live", "u0-121" + no_room, "r2 G0-121", "38807 = | 0/0 after 0, 122"},
        {"scattered", "u0-1 d2-4 u5 d6-120 u121" + no_room, "r2 G0-1 G5 G121", "0 = = = | 0/0 after 0, 2..122"},
        // The wear rule picks a full EU, the second choice one that gains.
        {"wear first", "eu2 erase=7 eu3 erase=200 eu4 erase=90 u0-299 d300 u301-365", "k1 G0-299 G301-365",
         "0 = = | 0/0 after 0, 300..366"},
        {"the spare, and none at all", "", "r5 o5 r6 o6", "28 28 28 28 | 0/0 after 0, 244..366"},
        {"as they are", "", "o1 o3", "0 0 | 1/0 after 0, 122..244"},
        {"end of reserved files", "eu0 3 f4=2 u0", "E g3 G0 E g3 G0", "0 = = 0 = = | 5/2 after 4, 244..366"},
        {"EU 0 is the spare", "eu0 magic=0 eu5 magic=0xAA557887 src=0 3 f4=2 u0", "E g3 G0",
         "0 = = | 5/2 after 4, 244..366"},
    });
    check({{"one EU a call; group 0 moves twice", "eu0 3 u0 d5 u122 u300", "F F F F g3 G0 G122 G300",
            "11 11 11 0 = = = = | 0/1 after 3, 244..366"}},
          5, 3);
    check({{"no data EU", "", "F", "0 | 0/0 after 0, 0"}}, 4, 0);
}

// Live pages of EU 0 go behind the newest ones of the log, data first, records after it. 75 FAT pages; EUs 0 to 3 are
// log, 7 the spare; EU 1 with page 74 is the log. A write fails: all is put back, and the log goes on; the last one can
// follow later, and where the source was given up in spite of the status the reclaim goes on.
TEST(FtlReclaim, LogEu)
{
    const auto with = [](const std::string& live, const std::string& others) {
        return "eu0 seq=10 src=7 eu1 seq=11 src=7 eu2 seq=12 src=7 eu3 seq=13 src=7 eu0 f74=20 " + live + " f74=120 " +
               others;
    };
    const std::string room_3 = "eu1 seq=20 f74=117";
    check(
        {{"3 of 10, then a blank EU", with("0-9", room_3), "r0 g0-9", "0 = | 2/7 after 9, 244..366"},
         {"3 of 10, then the spare", with("0-9", room_3 + " eu2 74 eu3 74"), "r0 g0-9", "0 = | 7/7 after 9, 244..366"},
         {"a live page can\'t be read", with("0 x1", "eu1 seq=20 f74=5"), "r0 g0", "5 = | 1/5 after 74, 244..366"},
         {"behind a programmed frame", with("0-2", "eu1 seq=20 f74=5 p9"), "r0 g0-2", "0 = | 1/10 after 2, 244..366"},
         {"the victim is the log", with("0-2", "eu0 seq=20 eu1 74"), "t74 r0 m g0-2",
          "0 0 0 = | 2/3 after 2, 244..366"},
         {"and no blank is left", with("0-2", "eu0 seq=20 eu1 74 eu2 74 eu3 74"), "t74 r0 m g0-2",
          "0 0 0 = | 7/3 after 2, 244..366"}},
        8, 3, 2000);
    for (unsigned n = 1; n <= 18; ++n) {
        bench b(plan(with("0-9", room_3), 8, 3, 2000));
        ASSERT_EQ(b.open(), 0U);
        b.chip.fail(chip_call::write, (n - 1) % 9 + 1, n <= 9 ? chip_fault::before : chip_fault::after);
        EXPECT_EQ(b.run("r0 g0-9 w30 g30 m g0-9 g30"), n != 9 && n < 17 ? "5 = 0 = 0 = = " : "0 = 0 = 0 = = ") << n;
    }
    // A page that can't be read is found out before the spare is erased or anything moves.
    bench bad(plan(with("0 x1", "eu1 seq=20 f74=5"), 8, 3, 2000));
    ASSERT_EQ(bad.open(), 0U);
    const std::string ends = bad.ends();
    EXPECT_EQ(bad.run("r0"), "5 ");
    EXPECT_TRUE(bad.chip.journal().empty() && bad.ends() == ends);
    bench data("u0-2");
    ASSERT_EQ(data.open(), 0U);
    data.image[2 * ftl::eu_size + ftl::data_frame_at(1)] ^= 1;
    EXPECT_EQ(data.run("r2"), "5 ");
    EXPECT_TRUE(data.chip.journal().empty());
    // One log EU, full of live pages: a reclaim goes through, gains nothing, and there is no other EU to try.
    bench full(plan("eu0 0-119", 24, 22, 1200));
    ASSERT_EQ(full.open(), 0U);
    EXPECT_EQ(full.run("r0 k0 w0 g0-119"), "38807 28 28 = ");
    EXPECT_EQ(afs_physical_ftl_idle_reclaim(&full.ctx), afs_status::nothing_gained);
}

// The group that it opens while it works is forgotten with it: its slots were dead before, and are so again.
TEST(FtlReclaim, AFailedOneForTheAllocator)
{
    for (const unsigned n : {1U, 2U}) { // the new header, the end of the old one
        bench b("u0-1 d2-365");
        ASSERT_EQ(b.open(), 0U);
        EXPECT_EQ(b.run("a") + b.ends(), "65533 0/0 after 0, 0");
        b.chip.fail(chip_call::write, n, chip_fault::before);
        EXPECT_EQ(b.run("a") + b.ends(), "5 0/0 after 0, 0");
        EXPECT_EQ(b.run("a W122 G0-1"), "#122 0 = ");
    }
}

TEST(FtlReclaim, WithoutMemoryOrMap)
{
    bench b("");
    ASSERT_EQ(b.open(), 0U);
    const auto held = live_blocks;
    for (const char* const call : {"r0", "r2"}) {
        fail_allocation(1);
        EXPECT_EQ(b.run(call), "12 ");
    }
    EXPECT_TRUE(b.chip.journal().empty());
    EXPECT_EQ(live_blocks, held);
    b.ctx.alloc_map = nullptr; // opened for reading only: nobody knows which pages are live
    EXPECT_EQ(b.run("r2"), "22 ");
    b.ctx.alloc_map = b.map.data();
    for (const char* const call : {"F", "E"}) {
        b.chip.fail(chip_call::erase, 1, chip_fault::before);
        EXPECT_EQ(b.run(call), "5 ");
        EXPECT_EQ(b.run("F"), "11 "); // and goes on at the same EU
    }
}

} // namespace yfs::test::ftl_reclaim
