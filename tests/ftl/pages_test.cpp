// Single pages: reading, writing, giving up, and where the next free chunk comes from.
#include "tests/ftl/ftl_bench.h"

namespace yfs::test::ftl_pages {

// Record, frame, commit; the records chain each page to the one before. A full log goes on in a blank EU, or where a
// reclaim leaves it.
TEST(FtlPages, Scripts)
{
    check({
        {"reads", "eu0 4 3 x6 u0 u121 u122 d5", "g3 g5 g6 G0 G121 G122 G5",
         "= zeros 5 = = = zeros | 0/3 after 6, 244..366"},
        {"into the blank EU", "eu0 3 1 f4=119 4", "w2 g1-4", "0 = | 1/1 after 2, 244..366"},
        {"after a reclaim", "eu0 3 1 f4=120 eu1 seq=9 src=5 3 4 f5=120", "w2 g1-4", "0 = | 5/2 after 2, 244..366"},
        {"programmed frames are passed by", "eu0 3 p4", "w5 g3 g5", "0 = = | 0/4 after 5, 244..366"},
        {"never twice", "u9 d10=0x7F d11=0xFE", "W9 W10 W11", "5 5 5 | 0/0 after 0, 244..366"},
        {"trimmed in memory only", "eu0 3 4 u130", "t5 T131 t3 t3 T130 T130 g3 G130 m g3",
         "0 0 0 0 0 0 zeros zeros 0 = | 0/2 after 4, 244..366"},
        {"all dead", "d0-365", "a a", "65533 #0 | 0/0 after 0, 1..122"},
    });
    check({{"no data EUs", "", "a a", "65533 28 | 1/0 after 0, 0"}}, 4, 0);
}

// Exported fields as a program may leave them: what can't be done is told, and nothing else is touched.
TEST(FtlPages, WithoutWhatTheyNeed)
{
    const std::tuple<const char*, void (*)(bench&), const char*, const char*> rows[] = {
        {"a mount", [](bench& b) { ftl::release_ftl(&b.ctx); }, "w4 W100 t4 T1 g3 G0", "22 22 22 22 22 22 "},
        {"the map", [](bench& b) { b.ctx.alloc_map = nullptr; }, "w4 W100 T1 g3 G0 a", "0 5 0 = zeros 65533 "},
        {"an owner", [](bench& b) { b.ctx.ftl->eu_table[2].base_page = 999; }, "W100 T1 a G1", "5 0 #244 zeros "},
        {"a log", [](bench& b) { b.ctx.ftl->log_eu = none; }, "w4 t4 t4 g3 W100", "5 0 0 = 0 "},
        {"an entry", [](bench& b) { b.ctx.ftl->page_entries = 4; }, "w4 t4 g4 g3 w3", "5 0 zeros = 0 "},
        {"a chunk", [](bench& b) { b.ctx.chunks = 50; }, "W100 T49 G49 a", "5 0 zeros 28 "},
    };
    for (const auto& [name, take, calls, due] : rows) {
        bench b("eu0 3 4 u0-60");
        ASSERT_EQ(b.open(), 0U);
        take(b);
        EXPECT_EQ(b.run(calls), due) << name;
    }
}

TEST(FtlRead, ByFlashAlone)
{
    bench b("u0 d5 u6");
    b.image[2 * 8192 + 140 + 66 * 6] ^= 1;
    ASSERT_EQ(b.open(), 0U);
    EXPECT_EQ(b.run("G0 G5 G6"), "= zeros 5 ");
    b.ctx.no_alloc_map = 1;
    EXPECT_EQ(b.run("G0 G5 G7"), "= = 5 ");
    b.ctx.ftl->eu_table[2].base_page = 999; // group 0 has no owner: EU 0 is looked at, and its CRC decides
    EXPECT_EQ(b.run("G0"), "5 ");
}

// What fails its CRC is read again, seven times in all; a call that fails isn't.
TEST(FtlRead, TriesSevenTimes)
{
    for (unsigned wrong = 0; wrong <= 8; ++wrong) {
        bench b("eu0 3 u120-123");
        ASSERT_EQ(b.open(), 0U);
        const unsigned reads = std::min(wrong + 1, 7U);
        const std::uint32_t va = b.ctx.fat_size + 120 * 64;
        content buf(4 * 66);
        b.chip.reset_counters();
        b.chip.fail(chip_call::read, 1, chip_fault::garbled, wrong);
        EXPECT_EQ(b.run("g3"), wrong < 7 ? "= " : "5 ");
        b.chip.power_on();
        b.chip.fail(chip_call::read, 2, chip_fault::garbled, wrong); // the second EU of the run
        EXPECT_EQ(afs_physical_ftl_read_data_pages(&b.ctx, buf.data(), va, 4), wrong < 7 ? 0U : 5U) << wrong;
        EXPECT_EQ(b.chip.counters().reads, reads + 1 + reads) << wrong;
        EXPECT_EQ(afs_physical_ftl_read_data_pages(&b.ctx, buf.data(), va - 64, 2), 0U);
        EXPECT_EQ(content(buf.begin(), buf.begin() + 64), content(64)) << "not in use";
        for (const unsigned n : {1U, 2U}) {
            b.chip.power_on();
            b.chip.fail(chip_call::read, n, chip_fault::before);
            EXPECT_EQ(afs_physical_ftl_read_data_pages(&b.ctx, buf.data(), va, 4), 5U) << n;
        }
    }

    bench b("");
    ASSERT_EQ(b.open(), 0U);
    b.chip.fail(chip_call::read, 2, chip_fault::garbled, 7); // behind the look at the blank frame
    EXPECT_EQ(b.run("w0"), "5 ");
    EXPECT_EQ(b.chip.journal().size(), 1U);               // read back seven times, written once
    b.chip.fail(chip_call::write, 3, chip_fault::before); // the commit, which doesn't land
    EXPECT_EQ(b.run("w0"), "5 ");
}

TEST(FtlAllocate, LooksAtFlashWhereAPageWasTrimmed)
{
    bench b("u130");
    ASSERT_EQ(b.open(), 0U);
    b.ctx.ftl->alloc_check_flash = 0;
    b.ctx.ftl->alloc_next = 200; // in group 1
    for (const bool open_group : {false, true}) {
        b.run(open_group ? "T130" : "T0");
        EXPECT_EQ(b.ctx.ftl->alloc_check_flash, open_group);
    }
    b.chip.fail(chip_call::read, 1, chip_fault::before);
    EXPECT_EQ(b.run("a a"), "5 #200 "); // the cursor hasn't moved
    // A slot that was begun in spite of the status is no free one.
    b.ctx.ftl->alloc_next = 210, b.ctx.ftl->alloc_check_flash = 0;
    b.chip.fail(chip_call::write, 1, chip_fault::after);
    EXPECT_EQ(b.run("a W210"), "#210 5 ");
    b.ctx.ftl->alloc_next = 210;
    EXPECT_EQ(b.run("a"), "#211 ");
    b.ctx.chunks = 0;
    EXPECT_EQ(b.run("a"), "28 ");
}

} // namespace yfs::test::ftl_pages
