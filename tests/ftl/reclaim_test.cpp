// Choosing a victim, moving its pages, handing over; and what a mount makes of each step that was the last.
#include "tests/ftl/ftl_bench.h"
#include "tests/ftl/short_memory.h"
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
        bench b(bare());
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
        bench b(bare());
        ASSERT_EQ(b.open(), 0U);
        set(b, r.table);
        b.ftl().log_slot = r.log_slot;
        std::uint32_t hint = same, is_data = same, mode = same;
        EXPECT_EQ(afs_physical_ftl_idle_reclaim_needed(&b.ctx, &hint, &is_data), r.needed);
        EXPECT_EQ(hint, r.hint);
        EXPECT_EQ(is_data, r.is_data);
        EXPECT_EQ(ftl::choose_eu_to_reclaim(&b.ctx, 2, true, &mode, true), r.victim);
        EXPECT_EQ(mode, r.needed ? 1U : 0U);
        if (!r.needed) {
            EXPECT_EQ(afs_physical_ftl_idle_reclaim(&b.ctx), 0U);
        }
        EXPECT_EQ(b.story(), "");
    }
}

std::set<unsigned> range(unsigned from, unsigned to)
{
    std::set<unsigned> out;
    while (from < to) out.insert(from++);
    return out;
}

// Runs go from the top down, at most 62 pages each. Live pages keep their slots.
TEST(FtlReclaim, DataEu)
{
    struct row {
        const char* name;
        std::set<unsigned> used, dead;
        bool cursor_elsewhere; // a group is open already
        const char* story;     // between the erases and the header
        std::uint32_t status, next;
    };
    for (const row& r : {
             row{"nothing live", {}, range(0, 122), false, "", 0, 0},
             {"62 in a row", range(0, 62), {62}, false, "5:140+4092 5:18+62", 0, 62},
             {"63 in a row", range(0, 63), {}, false, "5:206+4092 5:19+62 5:140+66 5:18=00", 0, 63},
             {"all live", range(0, 122), {}, false, "5:4100+4092 5:78+62 5:140+3960 5:18+60", 38807, none},
             {"all live, another group open",
              range(0, 122),
              {},
              true,
              "5:4100+4092 5:78+62 5:140+3960 5:18+60",
              0,
              130},
             {"scattered",
              {0, 1, 5, 121},
              {2, 7},
              false,
              "5:8126+66 5:139=00 5:470+66 5:23=00 5:140+132 5:18=0000",
              0,
              2},
             {"scattered, another group open", {0, 121}, {}, true, "5:8126+66 5:139=00 5:140+66 5:18=00", 0, 130},
         }) {
        SCOPED_TRACE(r.name);
        volume v = bare();
        for (const unsigned i : r.used) v.dead(i);
        for (const unsigned i : r.dead) v.dead(i);
        bench b(v);
        ASSERT_EQ(b.open(r.used), 0U);
        b.ftl().alloc_next = r.cursor_elsewhere ? 130 : 244;
        b.ftl().alloc_end = 244;
        b.ftl().alloc_flush_asked = 1;
        EXPECT_EQ(ftl::reclaim_eu(&b.ctx, 2, 1), r.status);
        const std::string moves = *r.story != 0 ? std::string(r.story) + " " : "";
        EXPECT_EQ(b.story(), "E5:0 E5:4096 " + moves + "5:0+17 2:0=00000000 5:17=00");
        EXPECT_EQ(b.ftl().alloc_next, r.next);
        EXPECT_EQ(b.ftl().alloc_end, r.cursor_elsewhere ? 244U : 122U);
        EXPECT_EQ(b.ftl().alloc_flush_asked, 0);
        EXPECT_EQ(b.ftl().spare_eu, 2);
        EXPECT_EQ(b.eu(5).dirty, 122 - r.used.size());
        EXPECT_EQ(b.eu(5).free, 122 - r.used.size());
        EXPECT_EQ(b.layout(), b.layout_after_mount());
        for (const unsigned i : r.used) EXPECT_EQ(b.read(b.va(i)), std::pair(0U, bytes(64, i + 1000))) << i;
    }
}

// The new header, byte for byte, with a missing commit byte between the second and the third write.
TEST(FtlReclaim, HeaderSequence)
{
    bench b(bare());
    ASSERT_EQ(b.open(), 0U);
    std::fill_n(b.image.begin() + 5 * 8192, 18, std::uint8_t{0xFF}); // as erased
    EXPECT_EQ(ftl::reclaim_eu_write_eu_header(&b.ctx, 5, 2, 5 * 8192, 2 * 8192), 0U);
    const std::vector<std::uint8_t> header{0x87, 0x78, 0x55, 0xAA, 6, 0, 0, 0, 2, 0, 0, 0, 2, 0, 15, 0, 0xE9};
    ASSERT_EQ(b.chip.journal().size(), 3U);
    EXPECT_EQ(b.chip.journal()[0].bytes, header);
    EXPECT_EQ(b.story(), "5:0+17 2:0=00000000 5:17=00");
    EXPECT_EQ(b.tables().substr(0, 15), "seq 6 spare 2\ne");
    EXPECT_EQ(b.eu(2).seq, 0U);
    EXPECT_EQ(b.eu(2).dirty, 0);
    EXPECT_EQ(b.eu(2).base_page, 0);
    EXPECT_EQ(b.eu(5).base_page, 15);
    EXPECT_EQ(b.eu(5).seq, 6U);
}

TEST(FtlReclaim, LogEu)
{
    struct row {
        const char* name;
        std::set<unsigned> live; // slots of EU 0 with the newest copy of a page, page 74 at the others
        unsigned log_slots;      // taken in EU 1, the newest; 0: EU 0 is the log itself
        bool others_blank;       // EUs 2 and 3
        const char* story;       // between the erases and the header
        unsigned eu, slot;       // end of the log afterwards
    };
    for (const row& r : {
             row{"nothing live", {}, 5, true, "", 1, 5},
             {"one run behind the log", range(10, 13), 5, true, "1:590+198 1:28+6 1:35=7f", 1, 8},
             {"two runs", {0, 1, 7}, 5, true, "1:590+132 1:28=10305a0b 1:722+66 1:32=6838 1:35=7f", 1, 8},
             {"62 in a row", range(0, 62), 5, true, "1:590+4092 1:28+124 1:153=7f", 1, 67},
             {"63 in a row", range(0, 63), 5, true, "1:590+4092 1:28+124 1:4682+66 1:152=e021 1:155=7f", 1, 68},
             {"room for 3 of 10, a blank EU left", range(20, 30), 117, true,
              "1:7982+198 1:252+6 1:259=7f 2:260+462 2:18+14 2:33=7f", 2, 7},
             {"room for 3 of 10, into the spare", range(20, 30), 117, false,
              "1:7982+198 1:252+6 1:259=7f 7:260+462 7:18+14 7:33=7f", 7, 7},
             {"room for exactly all", range(20, 23), 117, true, "1:7982+198 1:252+6 1:259=7f", 1, 120},
             {"the log is full", range(20, 23), 120, true, "2:260+198 2:18+6 2:25=7f", 2, 3},
             {"the victim is the log", range(20, 23), 0, true, "2:260+198 2:18+6 2:25=7f", 2, 3},
             {"the victim is the log, no blank left", range(20, 23), 0, false, "7:260+198 7:18+6 7:25=7f", 7, 3},
         }) {
        SCOPED_TRACE(r.name);
        volume v = bare(8, 3, 2000); // 75 FAT pages, EUs 0 to 3 log, 7 the spare
        for (unsigned i = 0; i < 4; ++i) v.eu(i).seq(10 + i).src(7);
        v.eu(r.log_slots == 0 ? 0 : 1).seq(20);
        std::uint32_t pages = 0;
        for (unsigned slot = 0; slot < 120; ++slot) {
            if (r.live.contains(slot)) {
                v.log(0).page(pages, bytes(64, pages));
                ++pages;
            } else {
                v.log(0).old(74);
            }
        }
        v.log(1).fill(74, std::max(r.log_slots, 1U));
        if (!r.others_blank) v.log(2).old(74), v.log(3).old(74);
        bench b(v);
        ASSERT_EQ(b.open(), 0U);
        if (r.log_slots == 0) b.eu(0).dirty++, b.ctx.ftl->page_map[74] = {0xFF, 0xFF}; // trimmed
        ASSERT_EQ(b.eu(0).dirty, 120 - pages);
        EXPECT_EQ(ftl::reclaim_eu(&b.ctx, 0, 1), 0U);
        const std::string moves = *r.story != 0 ? std::string(r.story) + " " : "";
        EXPECT_EQ(b.story(), "E7:0 E7:4096 " + moves + "7:0+17 0:0=00000000 7:17=00");
        EXPECT_EQ(b.ftl().log_eu, r.eu);
        EXPECT_EQ(b.ftl().log_slot, r.slot);
        EXPECT_EQ(b.ftl().spare_eu, 0);
        for (unsigned p = 0; p < pages; ++p) EXPECT_EQ(b.read(p * 64), std::pair(0U, bytes(64, p))) << p;
        if (r.log_slots == 0) continue; // the trimmed page would be back
        EXPECT_EQ(b.layout(), b.layout_after_mount());
    }
}

// One log EU, full of live pages: a reclaim goes through, gains nothing, and there is no other EU to try.
TEST(FtlReclaim, WithoutAStaleSlot)
{
    volume v = bare(24, 22, 1200);
    for (unsigned page = 0; page < 120; ++page) v.log(0).page(page, bytes(64, page));
    bench b(v);
    ASSERT_EQ(b.open(), 0U);
    EXPECT_EQ(ftl::reclaim_eu(&b.ctx, 0, 1), 38807U);
    EXPECT_EQ(b.story(), "E23:0 E23:4096 23:260+4092 23:18+124 23:4352+3828 23:142+116 23:259=7f "
                         "23:0+17 0:0=00000000 23:17=00");
    b.chip.clear_journal();
    EXPECT_EQ(ftl::reclaim_eu_wrapper(&b.ctx, 0), 28U);
    EXPECT_EQ(b.ftl().spare_eu, 23); // one ran, the next wasn't worth it
    EXPECT_EQ(b.chip.counters().erases, 4U);
    EXPECT_EQ(afs_physical_ftl_write_page(&b.ctx, 0, 64, bytes(64).data()), 28U);
    EXPECT_EQ(b.layout(), b.layout_after_mount());
    for (unsigned page = 0; page < 120; ++page) EXPECT_EQ(b.read(page * 64), std::pair(0U, bytes(64, page)));
}

// The wear rule picks a full EU, the second choice one that gains.
TEST(FtlReclaim, WrapperTriesASecondEu)
{
    volume v = bare();
    for (unsigned i = 0; i < 366; ++i) v.dead(i);
    v.eu(2).erase_count(7), v.eu(3).erase_count(200), v.eu(4).erase_count(90);
    bench b(v);
    std::set<unsigned> used = range(0, 366);
    used.erase(300);
    ASSERT_EQ(b.open(used), 0U);
    EXPECT_EQ(ftl::reclaim_eu_wrapper(&b.ctx, 1), 0U);
    EXPECT_EQ(b.ftl().spare_eu, 4); // EU 2 went to 5, then EU 4 to 2
    EXPECT_EQ(b.eu(5).base_page, 15);
    EXPECT_EQ(b.eu(2).base_page, 259);
    EXPECT_EQ(b.eu(2).erase_count, 8U);
    EXPECT_EQ(b.ftl().alloc_next, 300U);
    EXPECT_EQ(b.layout(), b.layout_after_mount());
}

TEST(FtlReclaim, WithoutFlashOrMemory)
{
    bench b(bare());
    ASSERT_EQ(b.open(), 0U);
    for (const std::uint32_t mode : {0U, 1U}) EXPECT_EQ(ftl::reclaim_eu(&b.ctx, 5, mode), 28U); // the spare
    EXPECT_EQ(ftl::reclaim_eu(&b.ctx, 3, 0), 0U);
    EXPECT_EQ(b.ftl().alloc_next, 122U);
    EXPECT_EQ(b.ftl().alloc_end, 244U);
    b.ftl().log_slot = 7;
    EXPECT_EQ(ftl::reclaim_eu(&b.ctx, 1, 0), 0U);
    EXPECT_EQ(b.ftl().log_eu * 1000 + b.ftl().log_slot, 1000U);
    EXPECT_EQ(b.story(), "");
    const auto held = blocks_held();
    for (const unsigned eu : {0U, 2U}) {
        const std::string before = b.tables();
        fail_allocation(1);
        EXPECT_EQ(ftl::reclaim_eu(&b.ctx, eu, 1), 12U);
        EXPECT_EQ(b.tables(), before);
        EXPECT_EQ(ftl::reclaim_eu(&b.ctx, eu, 1) % 38807, 0U);
    }
    EXPECT_EQ(blocks_held(), held);
}

// Every call of the chip fails in turn, and the power goes at every change; the next mount finds all pages.
struct reclaim_case {
    const char* name;
    unsigned victim;
    std::uint32_t log_slots;
};
volume history(const reclaim_case& c)
{
    volume v = bare();
    v.eu(0).seq(7).src(5), v.eu(1).seq(8).src(5);
    for (unsigned p = 0; p < 12; ++p) v.log(0).page(p, bytes(64, p));
    v.log(0).fill(13, 60).page(12, bytes(64, 12)).fill(13);
    v.log(1).fill(13, c.log_slots);
    for (unsigned i = 0; i < 366; i += i % 7 == 0 ? 1 : 2) v.dead(i);
    return v;
}
std::set<unsigned> used_in_history()
{
    std::set<unsigned> used;
    for (unsigned i = 0; i < 366; i += i % 7 == 0 ? 1 : 2)
        if (i % 11 != 0) used.insert(i);
    return used;
}
void expect_all_pages(bench& b)
{
    for (unsigned p = 0; p < 13; ++p) EXPECT_EQ(b.read(p * 64), std::pair(0U, bytes(64, p))) << "FAT page " << p;
    for (const unsigned i : used_in_history()) EXPECT_EQ(b.read(b.va(i)), std::pair(0U, bytes(64, i + 1000))) << i;
}

TEST(FtlReclaim, EveryCallCanFail)
{
    for (const reclaim_case& c :
         {reclaim_case{"data", 2, 5}, {"log", 0, 5}, {"log, into two EUs", 0, 115}, {"log, full", 0, 120}}) {
        for (const chip_call kind : {chip_call::read, chip_call::write, chip_call::erase}) {
            unsigned failures = 0;
            for (unsigned n = 1;; ++n) {
                SCOPED_TRACE(testing::Message() << c.name << ", call " << static_cast<int>(kind) << " number " << n);
                bench b(history(c));
                ASSERT_EQ(b.open(used_in_history()), 0U);
                b.chip.fail(kind, n, chip_fault::before);
                const std::uint32_t status = ftl::reclaim_eu(&b.ctx, c.victim, 1);
                b.chip.power_on();
                const std::string layout = b.layout();
                ASSERT_EQ(b.open(used_in_history()), 0U);
                expect_all_pages(b);
                if (status == 0) {
                    EXPECT_EQ(b.layout(), layout);
                    break;
                }
                ASSERT_EQ(status, 5U);
                ++failures;
            }
            EXPECT_GE(failures, kind == chip_call::erase ? 2U : 7U) << c.name;
        }
    }
}

TEST(FtlReclaim, PowerCutAtEveryChange)
{
    for (const reclaim_case& c :
         {reclaim_case{"data", 2, 5}, {"log", 0, 5}, {"log, into two EUs", 0, 115}, {"log, full", 0, 120}}) {
        for (const auto part : {0.0, 0.5, 1.0}) {
            bench plan(history(c));
            ASSERT_EQ(plan.open(used_in_history()), 0U);
            ASSERT_EQ(ftl::reclaim_eu(&plan.ctx, c.victim, 1), 0U);
            const auto& changes = plan.chip.journal();
            for (std::size_t n = 1; n <= changes.size(); ++n) {
                SCOPED_TRACE(testing::Message() << c.name << ", change " << n << ", part " << part);
                const auto landed = static_cast<std::uint32_t>(part * changes[n - 1].len);
                bench b(history(c));
                ASSERT_EQ(b.open(used_in_history()), 0U);
                b.chip.cut_power(n, landed);
                EXPECT_EQ(ftl::reclaim_eu(&b.ctx, c.victim, 1), 5U);
                b.chip.power_on();
                ASSERT_EQ(b.open(used_in_history()), 0U);
                expect_all_pages(b);
                // The last three changes: the new header, the end of the source, the commit byte.
                const std::size_t back = changes.size() - n;
                const bool handed_over = back == 0 || (back == 1 && landed > 0);
                EXPECT_EQ(b.ftl().spare_eu, handed_over ? c.victim : 5U);
                EXPECT_EQ(b.eu(5).base_page, handed_over && c.victim == 2 ? 15 : 0);
                EXPECT_EQ(b.ftl().missing_commit, handed_over && (back == 1 || landed == 0) ? 1 : 0);
            }
        }
    }
}

} // namespace
} // namespace yfs::test
