// Single pages: reading, writing, giving up, and where the next free chunk comes from.
#include "tests/ftl/ftl_bench.h"

namespace yfs::test {
namespace {

// Record, frame, commit; the records chain each page to the one before. A full log goes on in a blank EU, or where a
// reclaim leaves it.
TEST(FtlPages, Scripts)
{
    check({
        {"reads", "eu0 4 3 x6 u0 u121 u122 d5", "g3 g5 g6 G0 G121 G122 G5", ""},
        {"FAT pages", "", "w0 w3 w1 w1 g1 g3", ""},
        {"into the blank EU", "eu0 3 1 f4=119 4", "w2 g1-4", ""},
        {"after a reclaim", "eu0 3 1 f4=120 eu1 seq=9 src=5 3 4 f5=120", "w2 g1-4", ""},
        {"data pages", "u9", "W121 W122 G121-122", ""},
        {"never twice", "u9 d10=0x7F d11=0xFE", "W9 W10 W11", ""},
        {"trimmed in memory only", "eu0 3 4 u130", "t5 T131 t3 t3 T130 T130 g3 G130 m g3", ""},
        // Forward through the open group; at its end a flush is asked for once, then the oldest group with room opens,
        // and if none has any, the dirtiest is reclaimed.
        {"group by group", "u244 d246=0x7F u0-119 d120-239",
         "a a W248-364 a a W245 W247 W365 a W240 a a a a W241-243 a a", ""},
        {"all in use", "u0-365", "a a a a", ""},
        {"all dead", "d0-365", "a a", ""},
        {"no data EUs", "", "a a a a", "", 4, 0},
    });
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
        const std::uint32_t va = b.ctx.fat_size + 119 * 64;
        content buf(5 * 66);
        b.chip.reset_counters();
        b.chip.fail(chip_call::read, 1, chip_fault::garbled, wrong);
        EXPECT_EQ(b.run("g3"), wrong < 7 ? "= " : "5 ");
        b.chip.power_on();
        b.chip.fail(chip_call::read, 2, chip_fault::garbled, wrong); // the second EU of the run
        EXPECT_EQ(afs_physical_ftl_read_data_pages(&b.ctx, buf.data(), va, 5), wrong < 7 ? 0U : 5U) << wrong;
        EXPECT_EQ(b.chip.counters().reads, reads + 1 + reads) << wrong;
        EXPECT_EQ(content(buf.begin(), buf.begin() + 64), content(64)) << "not in use";
        for (const unsigned n : {1U, 2U}) {
            b.chip.power_on();
            b.chip.fail(chip_call::read, n, chip_fault::before);
            EXPECT_EQ(afs_physical_ftl_read_data_pages(&b.ctx, buf.data(), va, 5), 5U) << n;
        }
    }
}

// Every call of the chip goes wrong in turn, in every way. A glitch while reading back is read over, and a commit that
// landed counts; all else answers 5 and leaves the page. Either way memory goes on as a mount of that flash would: what
// is written next stands.
TEST(FtlWrite, EveryCallCanFail)
{
    for (unsigned i = 0; i < 2 * 2 * 4 * 5; ++i) {
        const bool fat = i % 2 == 0;
        const auto kind = static_cast<chip_call>(i / 2 % 2); // read or write
        const auto how = static_cast<chip_fault>(i / 4 % 4);
        SCOPED_TRACE(testing::Message() << (fat ? "FAT" : "data") << " page, kind " << i / 2 % 2 << " how " << i / 4 % 4
                                        << " call " << i / 16 + 1);
        bench b("eu0 3 4");
        ASSERT_EQ(b.open(), 0U);
        b.chip.fail(kind, i / 16 + 1, how);
        const std::uint32_t va = fat ? 3 * 64 : b.ctx.fat_size + 7 * 64;
        const content news = bytes(64, 8);
        const bool done = afs_physical_ftl_write_page(&b.ctx, va, 64, news.data()) == 0;
        b.chip.power_on();
        EXPECT_EQ(done, b.get(va, news) == "=");
        EXPECT_TRUE(!fat || b.layout() == b.layout_after_mount());
        if (!fat) b.used = done ? std::set{7U, 8U} : std::set{8U};
        EXPECT_EQ(b.run(fat ? "w5 m g4 g5" : "W8 m g3 g4 G8"), fat ? "0 0 = = " : "0 0 = = = ");
        EXPECT_EQ(b.get(3 * 64, bytes(64, fat && done ? 8 : 3)), "=");
    }
    bench b("");
    ASSERT_EQ(b.open(), 0U);
    b.chip.fail(chip_call::read, 2, chip_fault::garbled, 7); // behind the look at the blank frame
    EXPECT_EQ(b.run("w0") + b.story(), "5 0:18=5b0b ");      // read back seven times, written once
}

TEST(FtlAllocate, LooksAtFlashWhereAPageWasTrimmed)
{
    bench b("u130");
    ASSERT_EQ(b.open(), 0U);
    b.ctx.ftl->alloc_check_flash = 0;
    b.ctx.ftl->alloc_next = 200; // in group 1
    b.run("T0");
    EXPECT_EQ(b.ctx.ftl->alloc_check_flash, 0);
    b.run("T130");
    EXPECT_EQ(b.ctx.ftl->alloc_check_flash, 1);
    b.chip.fail(chip_call::read, 1, chip_fault::before);
    EXPECT_EQ(b.run("a a"), "5 #200 "); // the cursor hasn't moved
    b.ctx.chunks = 0;
    EXPECT_EQ(b.run("a"), "28 ");
}

} // namespace
} // namespace yfs::test
