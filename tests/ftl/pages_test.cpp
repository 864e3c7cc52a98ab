// Single pages: reading, writing, giving up, and where the next free chunk comes from.
#include "tests/ftl/ftl_bench.h"
#include "yfs/status.h"

namespace yfs::test {
namespace {

const content zeros(64), untouched(64, 0xEE);

page_read data_page(unsigned index)
{
    return {0, bytes(64, index + 1000)};
}

TEST(FtlRead, WhereAPageComesFrom)
{
    volume v = plan("eu0 4 3 d0 d121 d122 d5 d6");
    v.log(0).wrong_crc(6);
    v.swap(2, 4);
    v.poke(v.eu_at(4) + 140 + 66 * 6, 0x5A); // chunk 6, whose EU stands at 4 now
    bench b(v);
    ASSERT_EQ(b.open({0, 121, 122, 6}), 0U);
    struct row {
        const char* name;
        std::uint32_t va;
        page_read expected;
        std::uint32_t reads;
    };
    for (const row& r : {row{"FAT page", 3 * 64, {0, bytes(64, 3)}, 1},
                         {"FAT page never written", 5 * 64, {0, zeros}, 0},
                         {"FAT page with a wrong CRC", 6 * 64, {5, untouched}, 7},
                         {"first slot of a group", b.va(0), data_page(0), 1},
                         {"last slot of a group", b.va(121), data_page(121), 1},
                         {"next group", b.va(122), data_page(122), 1},
                         {"complete on flash, not in use", b.va(5), {0, zeros}, 0},
                         {"in use, wrong bytes", b.va(6), {5, untouched}, 7}}) {
        b.chip.reset_counters();
        EXPECT_EQ(b.read(r.va), r.expected) << r.name;
        EXPECT_EQ(b.chip.counters().reads, r.reads) << r.name;
    }
    b.ctx.no_alloc_map = 1; // then flash alone decides
    EXPECT_EQ(b.read(b.va(5)), data_page(5));
    EXPECT_EQ(b.read(b.va(7)), page_read(5, untouched));
    b.eu(4).base_page = 999; // group 0 has no owner: EU 0 is looked at, and its CRC decides
    EXPECT_EQ(b.read(b.va(0)).first, 5U);
}

// What fails its CRC is read again, seven times in all; a call that fails isn't.
TEST(FtlRead, TriesSevenTimes)
{
    for (unsigned wrong = 0; wrong <= 8; ++wrong) {
        bench b(plan("eu0 3 d120 d121 d122 d123"));
        ASSERT_EQ(b.open({120, 121, 122, 123}), 0U);
        const std::uint32_t status = wrong < 7 ? 0 : 5;
        const unsigned reads = std::min(wrong + 1, 7U);
        content buf(4 * 66);
        b.chip.reset_counters();
        b.chip.fail(chip_call::read, 1, chip_fault::garbled, wrong);
        EXPECT_EQ(b.read(3 * 64).first, status) << wrong;
        EXPECT_EQ(b.chip.counters().reads, reads) << wrong;
        b.chip.power_on();
        b.chip.reset_counters();
        b.chip.fail(chip_call::read, 2, chip_fault::garbled, wrong); // the second EU of the run
        EXPECT_EQ(afs_physical_ftl_read_data_pages(&b.ctx, buf.data(), b.va(120), 4), status) << wrong;
        EXPECT_EQ(b.chip.counters().reads, 1 + reads) << wrong;
        for (const unsigned n : {1U, 2U}) {
            b.chip.power_on();
            b.chip.fail(chip_call::read, n, chip_fault::before);
            EXPECT_EQ(afs_physical_ftl_read_data_pages(&b.ctx, buf.data(), b.va(120), 4), 5U) << n;
        }
    }
}

TEST(FtlRead, Runs)
{
    const std::set<unsigned> used = range(50, 260);
    volume v = plan("");
    lay(v, used);
    v.swap(3, 4).swap(2, 1);
    bench b(v);
    ASSERT_EQ(b.open(used), 0U);
    for (const auto& [first, count, status, reads] :
         std::initializer_list<std::array<unsigned, 4>>{{50, 0, 0, 0},
                                                        {50, 1, 0, 1},
                                                        {60, 62, 0, 1},
                                                        {121, 1, 0, 1},
                                                        {121, 2, 0, 2},
                                                        {122, 122, 0, 1},
                                                        {61, 122, 0, 2},
                                                        {50, 72, 0, 1},
                                                        {50, 73, 0, 2},
                                                        {243, 17, 0, 2},
                                                        {243, 18, 5, 8 /* the last frame is blank */}}) {
        SCOPED_TRACE(testing::Message() << count << " from " << first);
        content buf(count * std::size_t{66} + 1, 0xEE);
        b.chip.reset_counters();
        EXPECT_EQ(afs_physical_ftl_read_data_pages(&b.ctx, buf.data(), b.va(first), count), status);
        EXPECT_EQ(buf.back(), 0xEE);
        EXPECT_EQ(b.chip.counters().reads, reads);
        for (unsigned i = 0; i < count && status == 0; ++i)
            EXPECT_EQ(content(buf.begin() + i * 64, buf.begin() + i * 64 + 64), data_page(first + i).second);
    }
    content buf(3 * 66, 0xEE);
    EXPECT_EQ(afs_physical_ftl_read_data_pages(&b.ctx, buf.data(), b.va(48), 3), 0U); // the first isn't in use
    EXPECT_EQ(std::count(buf.begin(), buf.end(), 0), 64);
}

// Record, frame, commit; the records chain each page to the one before.
TEST(FtlWrite, FatPagesGoToTheLog)
{
    bench b(plan(""));
    ASSERT_EQ(b.open(), 0U);
    for (const auto& [page, data] : {std::pair(0U, zeros), {3U, content(64, 0xA5)}, {1U, zeros}, {1U, bytes(64)}}) {
        EXPECT_EQ(afs_physical_ftl_write_page(&b.ctx, page * 64, 64, data.data()), 0U);
        EXPECT_EQ(b.layout(), b.layout_after_mount());
    }
    EXPECT_EQ(b.story(), "0:18=5b0b 0:260+66 0:21=7f 0:20=580b 0:326+66 0:23=7f "
                         "0:22=091e 0:392+66 0:25=7f 0:24=6b38 0:458+66 0:27=7f");
    EXPECT_EQ(hex({&b.image[260 + 64], 2}), "b6d5"); // CRC over data and page number
    EXPECT_EQ(hex({&b.image[326 + 64], 2}), "34fb");
    EXPECT_EQ(b.ftl().log_slot * 100 + b.ftl().last_page, 401U);
    EXPECT_EQ(b.eu(0).dirty, 117); // the first copy of page 1 is stale
    EXPECT_EQ(b.eu(0).free, 0);
    EXPECT_EQ(b.read(64), page_read(0, bytes(64)));
    EXPECT_EQ(b.read(3 * 64), page_read(0, content(64, 0xA5)));
}

TEST(FtlWrite, AFullLogGoesOnElsewhere)
{
    struct row {
        const char* name;
        const char* words;
        const char* story;
    };
    for (const row& r :
         {row{"into the blank EU", "eu0 3 1 f4=119 4", "1:18=590b 1:260+66 1:21=7f"},
          // Page 1 in slot 1 of EU 0 is live; it goes to the spare, and the new page behind it.
          row{"after a reclaim", "eu0 3 1 f4=120 eu1 seq=9 src=5 3 4 f5=120",
              "E5:0 E5:4096 5:260+66 5:18=5a0b 5:21=7f 5:0+17 0:0=00000000 5:17=00 5:20=6838 5:326+66 5:23=7f"}}) {
        bench b(plan(r.words));
        ASSERT_EQ(b.open(), 0U);
        ASSERT_EQ(b.ftl().log_slot, 120U);
        EXPECT_EQ(afs_physical_ftl_write_page(&b.ctx, 2 * 64, 64, bytes(64, 2).data()), 0U);
        EXPECT_EQ(b.story(), r.story) << r.name;
        for (const unsigned page : {1U, 2U, 3U, 4U}) EXPECT_EQ(b.read(page * 64), page_read(0, bytes(64, page)));
        EXPECT_EQ(b.layout(), b.layout_after_mount());
    }
}

TEST(FtlWrite, DataPagesGoToTheirSlot)
{
    volume v = plan("d9 d10=0x7F d11=0xFE");
    v.swap(2, 3);
    bench b(v);
    ASSERT_EQ(b.open({9}), 0U);
    for (const unsigned i : {121U, 122U})
        EXPECT_EQ(afs_physical_ftl_write_page(&b.ctx, b.va(i), 64, bytes(64, i + 1000).data()), 0U);
    EXPECT_EQ(b.story(), "3:139=7f 3:8126+66 3:139=00 2:18=7f 2:140+66 2:18=00");
    for (const unsigned i : {121U, 122U}) EXPECT_EQ(b.read(b.va(i)), data_page(i));
    EXPECT_EQ(b.layout(), b.layout_after_mount());
    EXPECT_EQ(b.eu(3).dirty * 1000 + b.eu(3).free, 120118);

    const std::string before = b.tables();
    b.chip.clear_journal();
    for (const unsigned index : {9U, 10U, 11U, 121U}) // never twice, whatever the map says
        EXPECT_EQ(afs_physical_ftl_write_page(&b.ctx, b.va(index), 64, zeros.data()), 5U) << index;
    EXPECT_EQ(b.tables() + b.story(), before);
}

// Every call of the chip goes wrong in turn, in every way. A glitch while reading back is read over, and a commit that
// landed counts; all else answers 5 and leaves the page. Either way memory goes on as a mount of that flash would: what
// is written next stands.
TEST(FtlWrite, EveryCallCanFail)
{
    for (const bool fat : {true, false}) {
        for (unsigned i = 0; i < 10 * 4; ++i) {
            const auto kind = i < 20 ? chip_call::read : chip_call::write;
            const auto how = static_cast<chip_fault>(i / 5 % 4);
            const unsigned n = i % 5 + 1;
            SCOPED_TRACE(testing::Message() << (fat ? "FAT" : "data") << " page, kind " << i / 20 << " how "
                                            << i / 5 % 4 << " call " << n);
            bench b(plan("eu0 3 4"));
            ASSERT_EQ(b.open(), 0U);
            b.chip.fail(kind, n, how);
            const std::uint32_t va = fat ? 3 * 64 : b.va(7), next = fat ? 5 * 64 : b.va(8);
            const bool done = afs_physical_ftl_write_page(&b.ctx, va, 64, bytes(64, 8).data()) == 0;
            b.chip.power_on();
            EXPECT_EQ(done, b.read(va) == page_read(0, bytes(64, 8)));
            EXPECT_TRUE(!fat || b.layout() == b.layout_after_mount());
            ASSERT_EQ(afs_physical_ftl_write_page(&b.ctx, next, 64, bytes(64, 9).data()), 0U);
            ASSERT_EQ(fat ? b.open() : done ? b.open({7, 8}) : b.open({8}), 0U);
            EXPECT_EQ(b.read(3 * 64), page_read(0, bytes(64, fat && done ? 8 : 3)));
            EXPECT_EQ(b.read(4 * 64), page_read(0, bytes(64, 4)));
            EXPECT_EQ(b.read(next), page_read(0, bytes(64, 9)));
        }
    }
    bench b(plan(""));
    ASSERT_EQ(b.open(), 0U);
    b.chip.fail(chip_call::read, 2, chip_fault::garbled, 7); // the first one looks at the slot
    EXPECT_EQ(afs_physical_ftl_write_page(&b.ctx, 0, 64, zeros.data()), 5U);
    EXPECT_EQ(b.story(), "0:18=5b0b"); // read back seven times, written once
}

TEST(FtlTrim, IsAChangeInMemoryOnly)
{
    bench b(plan("eu0 3 4 d130"));
    ASSERT_EQ(b.open({130}), 0U);
    const std::string before = b.tables();
    for (const std::uint32_t va : {5 * 64U, b.va(131)}) EXPECT_EQ(afs_physical_ftl_trim_page(&b.ctx, va), 0U);
    EXPECT_EQ(b.tables(), before); // neither mapped nor in use
    for (int i = 0; i < 2; ++i)
        for (const std::uint32_t va : {3 * 64U, b.va(130)}) EXPECT_EQ(afs_physical_ftl_trim_page(&b.ctx, va), 0U);
    EXPECT_EQ(b.eu(0).dirty * 1000 + b.eu(3).dirty, 119122);
    EXPECT_EQ(b.eu(3).free, 121); // its record isn't blank
    EXPECT_FALSE(b.in_use(130));
    for (const std::uint32_t va : {3 * 64U, b.va(130)}) EXPECT_EQ(b.read(va), page_read(0, zeros));
    EXPECT_EQ(b.story(), "");

    b.ftl().alloc_check_flash = 0;
    b.ftl().alloc_next = 200; // in group 1
    EXPECT_EQ(afs_physical_ftl_trim_page(&b.ctx, b.va(0)), 0U);
    EXPECT_EQ(b.ftl().alloc_check_flash, 0);
    EXPECT_EQ(afs_physical_ftl_trim_page(&b.ctx, b.va(122)), 0U);
    EXPECT_EQ(b.ftl().alloc_check_flash, 1);
    ASSERT_EQ(b.mount(), 0U); // the old copy is back
    EXPECT_EQ(b.read(3 * 64), page_read(0, bytes(64, 3)));
}

using taken = std::pair<std::uint32_t, unsigned>; // status and chunk

taken take(bench& b)
{
    std::uint16_t cid = 0;
    const std::uint32_t status = afs_physical_ftl_allocate_page(&b.ctx, &cid);
    return {status, status == 0 ? cid - 100U : 0};
}

// Forward through the open group; at its end a flush is asked for once, then the oldest group with room opens, and if
// none has any, the dirtiest is reclaimed.
TEST(FtlAllocate, GroupByGroup)
{
    volume v = plan("d244 d246=0x7F"); // the newest group is open: one chunk in use, one begun
    lay(v, range(0, 240));             // group 0: two dead; group 1: 118 dead and four free
    std::set<unsigned> used = range(0, 120);
    used.insert(244);
    bench b(v);
    ASSERT_EQ(b.open(used), 0U);
    const auto write = [&](unsigned from, unsigned to) {
        for (; from < to; ++from) ASSERT_EQ(afs_physical_ftl_write_page(&b.ctx, b.va(from), 64, zeros.data()), 0U);
    };
    const taken flush{afs_status::flush_first, 0};
    EXPECT_EQ(take(b), taken(0, 245));
    EXPECT_EQ(take(b), taken(0, 247));
    b.ftl().alloc_next = 365;
    EXPECT_EQ(take(b), taken(0, 365));
    EXPECT_EQ(take(b), flush);
    write(247, 366);
    b.chip.clear_journal();
    EXPECT_EQ(take(b), taken(0, 240)); // older than group 2, which still has 245
    write(240, 241);
    for (const unsigned i : {241U, 242U, 243U}) EXPECT_EQ(take(b), taken(0, i));
    EXPECT_EQ(b.chip.counters().erases, 0U);
    EXPECT_EQ(take(b), flush);
    write(241, 244);
    EXPECT_EQ(take(b), taken(0, 245));
    write(245, 246);
    EXPECT_EQ(take(b), flush);
    EXPECT_EQ(take(b), taken(0, 122)); // no room as it is: group 1 is reclaimed
    EXPECT_EQ(b.chip.counters().erases, 2U);
    EXPECT_EQ(b.layout(), b.layout_after_mount());
    b.ftl().alloc_next = b.ftl().alloc_end;
    EXPECT_EQ(take(b), flush); // and asks anew at its end
}

TEST(FtlAllocate, WhenNothingIsLeft)
{
    struct row {
        const char* name;
        unsigned eus, data_eus;
        bool live;
        std::uint16_t chunks;
        taken second; // the first asks for a flush, before anything else
    };
    for (const row& r : {row{"all in use", 6, 3, true, 366, {28, 0}},
                         {"all dead", 6, 3, false, 366, {0, 0}},
                         {"no data EUs", 4, 0, false, 0, {28, 0}}}) {
        volume v = plan("", r.eus, r.data_eus);
        lay(v, range(0, r.chunks));
        bench b(v);
        ASSERT_EQ(b.open(range(0, r.live ? r.chunks : 0)), 0U);
        for (int i = 0; i < 2 && (i == 0 || r.live); ++i) {
            EXPECT_EQ(take(b), taken(afs_status::flush_first, 0)) << r.name;
            EXPECT_EQ(take(b), r.second) << r.name;
            EXPECT_EQ(b.layout(), b.layout_after_mount());
        }
    }
    bench b(plan(""));
    ASSERT_EQ(b.open(), 0U);
    b.chip.fail(chip_call::read, 1, chip_fault::before);
    EXPECT_EQ(take(b), taken(5, 0));
    EXPECT_EQ(take(b), taken(0, 244)); // the cursor hasn't moved
    b.ctx.chunks = 0;
    EXPECT_EQ(take(b), taken(28, 0));
}

} // namespace
} // namespace yfs::test
