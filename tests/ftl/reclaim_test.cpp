// Choosing a victim, moving its pages, handing over; and what a mount makes of each step that was the last.
#include "tests/ftl/ftl_bench.h"
#include "tests/support/counted_memory.h"
#include "yfs/status.h"

namespace yfs::test {
namespace {

// The table as a text: seq/erase_count/dirty/free of EUs 0 and 1 (log), 2 to 4 (data); 5 is the spare and tempts.
void set(bench& b, const char* table)
{
    std::istringstream in(std::string(table) + " 0/1/122/122");
    char slash;
    for (unsigned i = 0, dirty, free; i < 6; ++i) {
        in >> b.eu(i).seq >> slash >> b.eu(i).erase_count >> slash >> dirty >> slash >> free;
        b.eu(i).dirty = static_cast<std::uint8_t>(dirty);
        b.eu(i).free = static_cast<std::uint8_t>(free);
    }
    ASSERT_FALSE(in.fail());
}

TEST(FtlVictim, Choice)
{
    using ftl::kind_data, ftl::kind_log;
    struct row {
        const char* name;
        std::uint32_t kind;
        const char* table;
        bool wear;
        std::uint32_t eu, mode;
    };
    for (const row& r : {
             row{"data EU with room, oldest", kind_data, "1/1/0/0 2/1/0/0 9/1/9/3 7/1/1/1 8/1/99/99", true, 3, 0},
             {"blank log EU, oldest", kind_log, "4/1/9/1 3/1/9/1 1/1/9/9 1/1/9/9 1/1/9/9", true, 1, 0},
             {"most dirty data EU", kind_data, "1/1/99/1 2/1/99/1 3/1/5/0 4/1/7/0 5/1/6/0", true, 3, 1},
             {"of equals the least worn", kind_data, "1/1/0/0 2/1/0/0 3/9/7/0 4/8/7/0 5/8/7/0", true, 3, 1},
             {"of equals the first", kind_log, "1/8/7/0 2/8/7/0 3/1/9/0 4/1/9/0 5/1/9/0", true, 0, 1},
             {"201 isn't a multiple of 10", kind_data, "1/1/0/0 2/1/0/0 3/50/0/0 4/201/7/0 5/60/8/0", true, 4, 1},
             {"210 and 50: wear", kind_data, "1/1/0/0 2/1/0/0 3/50/0/0 4/210/7/0 5/60/8/0", true, 2, 1},
             {"150 and 50: 100 isn't enough", kind_data, "1/1/0/0 2/1/0/0 3/60/0/0 4/150/7/0 5/50/0/0", true, 3, 1},
             {"160 and 59: 101 is", kind_data, "1/1/0/0 2/1/0/0 3/60/0/0 4/160/7/0 5/59/0/0", true, 4, 1},
             {"160 and 50: wear", kind_data, "1/1/0/0 2/1/0/0 3/60/0/0 4/160/7/0 5/50/0/0", true, 4, 1},
             {"the first of the least worn", kind_data, "1/1/0/0 2/1/0/0 3/9/0/0 4/160/7/0 5/9/0/0", true, 2, 1},
             {"wear not allowed", kind_data, "1/1/0/0 2/1/0/0 3/50/0/0 4/210/7/0 5/60/8/0", false, 4, 1},
             {"wear of the other kind", kind_data, "1/210/0/0 2/1/0/0 3/50/0/0 4/51/7/0 5/60/8/0", true, 4, 1},
             {"wear of log EUs", kind_log, "1/210/9/0 2/9/0/0 3/50/0/0 4/51/7/0 5/60/8/0", true, 1, 1},
         }) {
        bench b(plan(""));
        ASSERT_EQ(b.open(), 0U);
        set(b, r.table);
        std::uint32_t mode = 9;
        EXPECT_EQ(ftl::choose_eu_to_reclaim(&b.ctx, r.kind, r.wear, &mode, false), r.eu) << r.name;
        EXPECT_EQ(mode, r.mode) << r.name;
    }
}

TEST(FtlVictim, InIdleTime)
{
    constexpr std::uint32_t same = 77; // left alone
    struct row {
        const char* name;
        std::uint32_t log_slot;
        const char* table;
        bool needed;
        std::uint32_t is_data, hint, victim;
    };
    for (const row& r : {
             row{"29 log slots left", 91, "1/9/50/0 2/9/50/0 3/9/0/0 3/9/0/0 3/9/0/0", true, 0, none, 0},
             {"30 left", 90, "1/9/50/0 2/9/50/0 3/9/0/0 3/9/0/0 3/9/0/0", false, same, same, none},
             {"a blank EU left", 120, "1/9/50/0 2/9/120/1 3/9/0/0 3/9/0/0 3/9/0/0", false, same, same, none},
             {"63 data slots, 97 to gain", 0, "1/9/50/0 2/9/50/0 3/9/31/31 3/9/32/32 3/9/34/0", true, 1, none, 4},
             {"64 slots", 0, "1/9/50/0 2/9/50/0 3/9/32/32 3/9/32/32 3/9/34/0", false, same, same, none},
             {"96 to gain", 0, "1/9/50/0 2/9/50/0 3/9/31/31 3/9/32/32 3/9/33/0", false, same, same, none},
             {"data EU wholly dead", 0, "1/9/50/0 2/9/50/0 3/9/100/100 3/9/122/0 3/8/121/0", true, 1, 3, 3},
             {"log EU wholly dead", 0, "1/9/50/0 2/9/120/0 3/9/100/100 3/9/0/0 3/9/0/0", true, 0, 1, 1},
             {"the log itself isn't", 0, "1/9/120/0 2/9/50/0 3/9/100/100 3/9/0/0 3/9/0/0", false, same, same, none},
             {"the least worn", 0, "1/9/50/0 2/8/120/0 3/9/100/100 3/7/122/0 3/7/122/0", true, 1, 3, 3},
             {"wear before the hint", 0, "1/9/50/0 2/9/50/0 3/120/100/100 3/9/122/0 3/8/0/0", true, 1, 3, 4},
         }) {
        SCOPED_TRACE(r.name);
        bench b(plan(""));
        ASSERT_EQ(b.open(), 0U);
        set(b, r.table);
        b.ftl().log_slot = r.log_slot;
        std::uint32_t hint = same, is_data = same, mode = same;
        EXPECT_EQ(afs_physical_ftl_idle_reclaim_needed(&b.ctx, &hint, &is_data), r.needed);
        EXPECT_EQ(std::pair(is_data, hint), std::pair(r.is_data, r.hint));
        EXPECT_EQ(ftl::choose_eu_to_reclaim(&b.ctx, 2, true, &mode, true), r.victim);
        EXPECT_EQ(mode, r.needed ? 1U : 0U);
    }
}

// Runs go from the top down, at most 62 pages each. Live pages keep their slots.
TEST(FtlReclaim, DataEu)
{
    struct row {
        const char* name;
        std::set<unsigned> used, dead;
        bool elsewhere;    // another group is open
        const char* story; // between the erases and the header
        std::uint32_t status, next;
    };
    for (const row& r : {
             row{"nothing live", {}, range(0, 122), false, "", 0, 0},
             {"62 in a row", range(0, 62), {62}, false, "5:140+4092 5:18+62 ", 0, 62},
             {"63 in a row", range(0, 63), {}, false, "5:206+4092 5:19+62 5:140+66 5:18=00 ", 0, 63},
             {"all live", range(0, 122), {}, false, "5:4100+4092 5:78+62 5:140+3960 5:18+60 ", 38807, none},
             {"and another open", range(0, 122), {}, true, "5:4100+4092 5:78+62 5:140+3960 5:18+60 ", 0, 130},
             {"scattered",
              {0, 1, 5, 121},
              {2, 7},
              false,
              "5:8126+66 5:139=00 5:470+66 5:23=00 5:140+132 5:18=0000 ",
              0,
              2},
             {"another open", {0, 121}, {}, true, "5:8126+66 5:139=00 5:140+66 5:18=00 ", 0, 130},
         }) {
        SCOPED_TRACE(r.name);
        volume v = plan("");
        lay(v, r.used);
        lay(v, r.dead);
        bench b(v);
        ASSERT_EQ(b.open(r.used), 0U);
        b.ftl().alloc_next = r.elsewhere ? 130 : 244;
        b.ftl().alloc_end = 244;
        b.ftl().alloc_flush_asked = 1;
        EXPECT_EQ(ftl::reclaim_eu(&b.ctx, 2, 1), r.status);
        EXPECT_EQ(b.story(), "E5:0 E5:4096 " + std::string(r.story) + "5:0+17 2:0=00000000 5:17=00");
        EXPECT_EQ(hex({&b.image[5 * 8192], 18}), "877855aa060000000200000002000f00e900");
        EXPECT_EQ(b.ftl().alloc_next, r.next);
        EXPECT_EQ(b.ftl().alloc_end, r.elsewhere ? 244U : 122U);
        EXPECT_EQ(b.ftl().alloc_flush_asked, 0);
        EXPECT_EQ(b.layout(), b.layout_after_mount());
        for (const unsigned i : r.used) EXPECT_EQ(b.read(b.va(i)), page_read(0, bytes(64, i + 1000))) << i;
        EXPECT_EQ(b.eu(2).seq + b.eu(2).dirty, 0U);
    }
}

// Live pages of EU 0 go behind the newest ones of the log, data first, records after it. 75 FAT pages; EUs 0 to 3 are
// log, 7 the spare.
TEST(FtlReclaim, LogEu)
{
    struct row {
        const char* name;
        std::set<unsigned> live; // slots of EU 0 that hold the newest copy of a page
        const char* others;      // EU 1 with page 74 is the log, unless it is old
        const char* story;       // between the erases and the header
        const char* log;         // its end afterwards
    };
    constexpr const char* room_5 = "eu1 seq=20 f74=5";
    constexpr const char* room_3 = "eu1 seq=20 f74=117";
    constexpr const char* victim = "eu0 seq=20 eu1 74";
    for (const row& r : {
             row{"nothing live", {}, room_5, "", "1/5"},
             {"one run", range(10, 13), room_5, "1:590+198 1:28+6 1:35=7f ", "1/8"},
             {"two runs", {0, 1, 7}, room_5, "1:590+132 1:28=10305a0b 1:722+66 1:32=6838 1:35=7f ", "1/8"},
             {"62 in a row", range(0, 62), room_5, "1:590+4092 1:28+124 1:153=7f ", "1/67"},
             {"63 in a row", range(0, 63), room_5, "1:590+4092 1:28+124 1:4682+66 1:152=e021 1:155=7f ", "1/68"},
             {"3 of 10, then a blank EU", range(20, 30), room_3,
              "1:7982+198 1:252+6 1:259=7f 2:260+462 2:18+14 2:33=7f ", "2/7"},
             {"3 of 10, then the spare", range(20, 30), "eu1 seq=20 f74=117 eu2 74 eu3 74",
              "1:7982+198 1:252+6 1:259=7f 7:260+462 7:18+14 7:33=7f ", "7/7"},
             {"room for exactly all", range(20, 23), room_3, "1:7982+198 1:252+6 1:259=7f ", "1/120"},
             {"the log is full", range(20, 23), "eu1 seq=20 f74=120", "2:260+198 2:18+6 2:25=7f ", "2/3"},
             {"the victim is the log", range(20, 23), victim, "2:260+198 2:18+6 2:25=7f ", "2/3"},
             {"and no blank is left", range(20, 23), "eu0 seq=20 eu1 74 eu2 74 eu3 74", "7:260+198 7:18+6 7:25=7f ",
              "7/3"},
         }) {
        SCOPED_TRACE(r.name);
        std::string words = "eu0 seq=10 eu1 seq=11 eu2 seq=12 src=7 eu3 seq=13 src=7 eu1 src=7 eu0 src=7 ";
        std::uint32_t pages = 0;
        for (unsigned slot = 0; slot < 120; ++slot)
            words += r.live.contains(slot) ? std::to_string(pages++) + " " : "f74=" + std::to_string(slot + 1) + " ";
        bench b(plan(words + r.others, 8, 3, 2000));
        ASSERT_EQ(b.open(), 0U);
        const bool is_log = b.ftl().log_eu == 0;
        if (is_log) afs_physical_ftl_trim_page(&b.ctx, 74 * 64);
        ASSERT_EQ(b.eu(0).dirty, 120 - pages);
        EXPECT_EQ(ftl::reclaim_eu(&b.ctx, 0, 1), 0U);
        EXPECT_EQ(b.story(), "E7:0 E7:4096 " + std::string(r.story) + "7:0+17 0:0=00000000 7:17=00");
        EXPECT_EQ(std::to_string(b.ftl().log_eu) + "/" + std::to_string(b.ftl().log_slot), r.log);
        for (unsigned p = 0; p < pages; ++p) EXPECT_EQ(b.read(p * 64), page_read(0, bytes(64, p))) << p;
        if (is_log) continue; // the trimmed page would be back
        EXPECT_EQ(b.layout(), b.layout_after_mount());
    }
}

// One log EU, full of live pages: a reclaim goes through, gains nothing, and there is no other EU to try.
TEST(FtlReclaim, WithoutAStaleSlot)
{
    std::string words;
    for (unsigned page = 0; page < 120; ++page) words += std::to_string(page) + " ";
    bench b(plan(words, 24, 22, 1200));
    ASSERT_EQ(b.open(), 0U);
    EXPECT_EQ(ftl::reclaim_eu(&b.ctx, 0, 1), 38807U);
    EXPECT_EQ(b.story(), "E23:0 E23:4096 23:260+4092 23:18+124 23:4352+3828 23:142+116 23:259=7f "
                         "23:0+17 0:0=00000000 23:17=00");
    EXPECT_EQ(ftl::reclaim_eu_wrapper(&b.ctx, 0), 28U);
    EXPECT_EQ(b.chip.counters().erases, 4U); // one ran, the next wasn't worth it
    EXPECT_EQ(afs_physical_ftl_write_page(&b.ctx, 0, 64, bytes(64).data()), 28U);
    EXPECT_EQ(b.layout(), b.layout_after_mount());
    for (unsigned page = 0; page < 120; ++page) EXPECT_EQ(b.read(page * 64), page_read(0, bytes(64, page)));
}

// The wear rule picks a full EU, the second choice one that gains.
TEST(FtlReclaim, WrapperTriesASecondEu)
{
    volume v = plan("eu2 erase=7 eu3 erase=200 eu4 erase=90");
    lay(v, range(0, 366));
    bench b(v);
    std::set<unsigned> used = range(0, 366);
    used.erase(300);
    ASSERT_EQ(b.open(used), 0U);
    EXPECT_EQ(ftl::reclaim_eu_wrapper(&b.ctx, 1), 0U);
    EXPECT_EQ(b.layout().substr(0, 13), "seq 7 spare 4"); // EU 2 went to 5, then EU 4 to 2
    EXPECT_EQ(b.eu(2).base_page * 10 + b.eu(2).erase_count, 2598U);
    EXPECT_EQ(b.ftl().alloc_next, 300U);
    EXPECT_EQ(b.layout(), b.layout_after_mount());
}

TEST(FtlReclaim, WithoutFlashOrMemory)
{
    bench b(plan(""));
    ASSERT_EQ(b.open(), 0U);
    for (const std::uint32_t mode : {0U, 1U}) EXPECT_EQ(ftl::reclaim_eu(&b.ctx, 5, mode), 28U); // the spare
    b.ftl().log_slot = 7;
    for (const unsigned eu : {1U, 3U}) EXPECT_EQ(ftl::reclaim_eu(&b.ctx, eu, 0), 0U); // opened as they are
    const std::string tables = b.tables();
    EXPECT_NE(tables.find("log 1/0 last 0 alloc 122..244"), tables.npos);
    const auto held = live_blocks();
    for (const unsigned eu : {0U, 2U}) {
        fail_allocation(1);
        EXPECT_EQ(ftl::reclaim_eu(&b.ctx, eu, 1), 12U);
    }
    EXPECT_EQ(b.tables(), tables);
    EXPECT_EQ(b.story(), "");
    EXPECT_EQ(live_blocks(), held);
    b.ctx.alloc_map = nullptr; // opened for reading only: nobody knows which pages are live
    EXPECT_EQ(ftl::reclaim_eu(&b.ctx, 2, 1), 22U);
}

// The power goes at every change: all pages stand after the next mount, and it knows who speaks for them.
TEST(FtlReclaim, PowerCutAtEveryChange)
{
    struct row {
        const char* name;
        unsigned victim;
        const char* log;
    };
    const std::set<unsigned> used = range(0, 366, 3);
    for (const row& r : {row{"data", 2, "f13=5"},
                         {"log", 0, "f13=5"},
                         {"log, into two EUs", 0, "f13=115"},
                         {"log, full", 0, "f13=120"}}) {
        volume v =
            plan("eu0 seq=7 src=5 0 1 2 3 4 5 6 7 8 9 10 11 f13=60 12 f13=120 eu1 seq=8 src=5 " + std::string(r.log));
        lay(v, range(0, 366, 3));
        lay(v, range(1, 366, 9));
        bench whole(v);
        ASSERT_EQ(whole.open(used), 0U);
        ASSERT_EQ(ftl::reclaim_eu(&whole.ctx, r.victim, 1), 0U);
        const auto& changes = whole.chip.journal();
        for (std::size_t i = 0; i < 3 * changes.size(); ++i) {
            const std::size_t n = i / 3, back = changes.size() - 1 - n;
            const auto landed = static_cast<std::uint32_t>(i % 3 * changes[n].len / 2);
            SCOPED_TRACE(testing::Message() << r.name << ", change " << n + 1 << ", " << landed << " bytes");
            bench b(v);
            ASSERT_EQ(b.open(used), 0U);
            b.chip.cut_power(n + 1, landed);
            EXPECT_EQ(ftl::reclaim_eu(&b.ctx, r.victim, 1), back == 0 ? 0U : 5U); // the last byte can follow later
            b.chip.power_on();
            ASSERT_EQ(b.open(used), 0U);
            for (unsigned p = 0; p < 13; ++p) EXPECT_EQ(b.read(p * 64), page_read(0, bytes(64, p))) << "FAT page " << p;
            for (const unsigned c : used) EXPECT_EQ(b.read(b.va(c)), page_read(0, bytes(64, c + 1000))) << c;
            // The last three changes: the new header, the end of the source, the commit byte.
            const bool handed_over = back == 0 || (back == 1 && landed > 0);
            EXPECT_EQ(b.ftl().spare_eu, handed_over ? r.victim : 5U);
            EXPECT_EQ(b.ftl().missing_commit, handed_over && (back == 1 || landed == 0) ? 1 : 0);
        }
    }
}

} // namespace
} // namespace yfs::test
