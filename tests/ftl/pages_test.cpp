// Single pages: reading, writing, giving up, and where the next free chunk comes from.
#include "tests/ftl/ftl_bench.h"
#include "tests/ftl/short_memory.h"
#include "yfs/status.h"

namespace yfs::test {
namespace {

TEST(FtlRead, WhereAPageComesFrom)
{
    volume v = bare();
    v.log(0).page(3, bytes(64, 3)).page(3, bytes(64, 4)).page(5, bytes(64, 5)).wrong_crc(6);
    v.dead(0).dead(121).dead(122).dead(5).dead(6);
    v.swap(2, 4);
    v.poke(v.eu_at(4) + 140 + 66 * 6, 0x5A); // chunk 6, whose EU stands at 4 now
    bench b(v);
    const std::vector<std::uint8_t> zeros(64), untouched(64, 0xEE);
    ASSERT_EQ(b.open({0, 121, 122, 6}), 0U);
    struct row {
        const char* name;
        std::uint32_t va;
        std::uint32_t status;
        std::vector<std::uint8_t> data;
        std::uint32_t reads;
    };
    const auto chunk = [](unsigned i) { return bytes(64, i + 1000); };
    for (const row& r :
         {row{"FAT page, newest copy", 3 * 64, 0, bytes(64, 4), 1}, row{"FAT page never written", 4 * 64, 0, zeros, 0},
          row{"FAT page with a wrong CRC", 6 * 64, 5, untouched, 7},
          row{"first slot of a group", b.va(0), 0, chunk(0), 1},
          row{"last slot of a group", b.va(121), 0, chunk(121), 1}, row{"next group", b.va(122), 0, chunk(122), 1},
          row{"complete on flash, not in use", b.va(5), 0, zeros, 0},
          row{"in use, wrong bytes", b.va(6), 5, untouched, 7}}) {
        b.chip.reset_counters();
        EXPECT_EQ(b.read(r.va), std::pair(r.status, r.data)) << r.name;
        EXPECT_EQ(b.chip.counters().reads, r.reads) << r.name;
    }
    b.ctx.no_alloc_map = 1; // then flash alone decides
    EXPECT_EQ(b.read(b.va(5)), std::pair(0U, chunk(5)));
    EXPECT_EQ(b.read(b.va(7)), std::pair(5U, untouched)); // a blank frame has no CRC

    b.eu(4).base_page = 999; // group 0 has no owner: EU 0 is looked at, and its CRC decides
    EXPECT_EQ(b.read(b.va(0)).first, 5U);
}

// A page whose CRC fails is read again, seven times in all; a call that fails isn't.
TEST(FtlRead, TriesSevenTimes)
{
    volume v = bare();
    v.log(0).page(3, bytes(64, 3));
    for (unsigned i = 0; i < 4; ++i) v.dead(120 + i);
    for (unsigned wrong = 0; wrong <= 8; ++wrong) {
        SCOPED_TRACE(wrong);
        bench b(v);
        ASSERT_EQ(b.open({120, 121, 122, 123}), 0U);
        const std::uint32_t status = wrong < 7 ? 0 : 5;
        b.chip.reset_counters();
        b.chip.fail(chip_call::read, 1, chip_fault::garbled, wrong);
        EXPECT_EQ(b.read(3 * 64).first, status);
        EXPECT_EQ(b.chip.counters().reads, std::min(wrong + 1, 7U));

        b.chip.power_on();
        b.chip.fail(chip_call::read, 2, chip_fault::garbled, wrong); // the second EU of the run
        std::vector<std::uint8_t> buf(4 * 66), want = bytes(64, 1120);
        b.chip.reset_counters();
        EXPECT_EQ(afs_physical_ftl_read_data_pages(&b.ctx, buf.data(), b.va(120), 4), status);
        EXPECT_EQ(b.chip.counters().reads, 1 + std::min(wrong + 1, 7U));
        if (status != 0) continue;
        for (unsigned i = 1; i < 4; ++i)
            for (const auto byte : bytes(64, 1120 + i)) want.push_back(byte);
        buf.resize(want.size());
        EXPECT_EQ(buf, want); // packed over both EUs
    }
    for (const unsigned n : {1U, 2U}) {
        bench b(v);
        ASSERT_EQ(b.open({120, 121, 122, 123}), 0U);
        b.chip.fail(chip_call::read, n, chip_fault::before);
        std::vector<std::uint8_t> buf(4 * 66);
        EXPECT_EQ(afs_physical_ftl_read_data_pages(&b.ctx, buf.data(), b.va(120), 4), 5U) << n;
    }
}

TEST(FtlRead, Runs)
{
    volume v = bare();
    std::set<unsigned> used;
    for (unsigned i = 50; i < 260; ++i) v.dead(i), used.insert(i);
    v.swap(3, 4).swap(2, 1);
    bench b(v);
    ASSERT_EQ(b.open(used), 0U);
    struct row {
        unsigned first, count, status, reads;
    };
    for (const row& r : {row{50, 0, 0, 0}, row{50, 1, 0, 1}, row{50, 62, 0, 1}, row{60, 62, 0, 1}, row{121, 1, 0, 1},
                         row{121, 2, 0, 2}, row{122, 122, 0, 1}, row{61, 122, 0, 2}, row{50, 72, 0, 1},
                         row{243, 17, 0, 2}, row{243, 18, 5, 8 /* the last frame is blank */}}) {
        SCOPED_TRACE(testing::Message() << r.count << " from " << r.first);
        std::vector<std::uint8_t> buf(r.count * std::size_t{66} + 1, 0xEE);
        b.chip.reset_counters();
        EXPECT_EQ(afs_physical_ftl_read_data_pages(&b.ctx, buf.data(), b.va(r.first), r.count), r.status);
        EXPECT_EQ(buf.back(), 0xEE);
        EXPECT_EQ(b.chip.counters().reads, r.reads);
        for (unsigned i = 0; i < r.count && r.status == 0; ++i) {
            const auto at = buf.begin() + i * 64;
            EXPECT_EQ(std::vector<std::uint8_t>(at, at + 64), bytes(64, r.first + i + 1000));
        }
    }
    std::vector<std::uint8_t> buf(3 * 66, 0xEE);
    EXPECT_EQ(afs_physical_ftl_read_data_pages(&b.ctx, buf.data(), b.va(48), 3), 0U); // the first isn't in use
    EXPECT_EQ(std::count(buf.begin(), buf.end(), 0), 64);
    EXPECT_EQ(buf[64], 0xEE);
}

// Record, frame, commit; the records chain each page to the one before.
TEST(FtlWrite, FatPagesGoToTheLog)
{
    bench b(bare());
    ASSERT_EQ(b.open(), 0U);
    unsigned seed = 1;
    for (const unsigned page : {0U, 3U, 1U, 1U}) {
        EXPECT_EQ(afs_physical_ftl_write_page(&b.ctx, page * 64, 64, bytes(64, seed++).data()), 0U);
        EXPECT_EQ(b.layout(), b.layout_after_mount());
    }
    EXPECT_EQ(b.story(), "0:18=5b0b 0:260+66 0:21=7f "
                         "0:20=580b 0:326+66 0:23=7f "
                         "0:22=091e 0:392+66 0:25=7f "
                         "0:24=6b38 0:458+66 0:27=7f");
    EXPECT_EQ(b.image[27], 0x7F);
    EXPECT_EQ(b.ftl().log_slot, 4U);
    EXPECT_EQ(b.ftl().last_page, 1);
    EXPECT_EQ(b.eu(0).dirty, 117); // the first copy of page 1 is stale
    EXPECT_EQ(b.eu(0).free, 0);
    EXPECT_EQ(b.place(1), std::pair(0U, 3U));
    EXPECT_EQ(b.read(64), std::pair(0U, bytes(64, 4)));
    EXPECT_EQ(b.read(3 * 64), std::pair(0U, bytes(64, 2)));

    const std::vector<std::uint8_t> page_of_a5(64, 0xA5), page_0(64);
    bench golden(bare());
    ASSERT_EQ(golden.open(), 0U);
    EXPECT_EQ(afs_physical_ftl_write_page(&golden.ctx, 5 * 64, 1, page_of_a5.data()), 0U);
    EXPECT_EQ(golden.image[260 + 64] | golden.image[260 + 65] << 8, 0x5192); // CRC over data and page number
    EXPECT_EQ(afs_physical_ftl_write_page(&golden.ctx, 3 * 64, 1, page_0.data()), 0U);
    EXPECT_EQ(golden.image[326 + 64] | golden.image[326 + 65] << 8, 0x80E5);
}

TEST(FtlWrite, AFullLogGoesOnElsewhere)
{
    struct row {
        const char* name;
        bool blank_left;
        const char* story;
        unsigned eu, slot;
    };
    for (const row& r :
         {row{"into the blank EU", true, "1:18=590b 1:260+66 1:21=7f", 1, 0},
          // EU 0 holds one live page, slot 2; it goes to the spare, and the new page behind it
          row{"after a reclaim", false,
              "E5:0 E5:4096 5:260+66 5:18=5a0b 5:21=7f 5:0+17 0:0=00000000 5:17=00 5:20=6838 5:326+66 5:23=7f", 5,
              1}}) {
        SCOPED_TRACE(r.name);
        volume v = bare();
        v.log(0).page(3, bytes(64, 9)).old(3).page(1, bytes(64, 8)).fill(3, 119).page(3, bytes(64, 7));
        if (!r.blank_left) {
            v.eu(1).seq(9).src(5);
            v.log(1).page(3, bytes(64, 6)).fill(2);
        }
        bench b(v);
        ASSERT_EQ(b.open(), 0U);
        ASSERT_EQ(b.ftl().log_slot, 120U);
        EXPECT_EQ(afs_physical_ftl_write_page(&b.ctx, 2 * 64, 64, bytes(64, 5).data()), 0U);
        EXPECT_EQ(b.place(2), std::pair(r.eu, r.slot));
        EXPECT_EQ(b.read(2 * 64).second, bytes(64, 5));
        EXPECT_EQ(b.read(64).second, bytes(64, 8));
        EXPECT_EQ(b.read(3 * 64).second, bytes(64, r.blank_left ? 7 : 6));
        EXPECT_EQ(b.layout(), b.layout_after_mount());
        EXPECT_EQ(b.story(), r.story);
    }
}

TEST(FtlWrite, DataPagesGoToTheirSlot)
{
    volume v = bare();
    v.swap(2, 3);
    v.dead(9).dead(10, 0x7F).dead(11, 0xFE);
    bench b(v);
    ASSERT_EQ(b.open({9}), 0U);
    EXPECT_EQ(afs_physical_ftl_write_page(&b.ctx, b.va(121), 64, bytes(64, 2).data()), 0U);
    EXPECT_EQ(afs_physical_ftl_write_page(&b.ctx, b.va(122), 64, bytes(64, 3).data()), 0U);
    EXPECT_EQ(b.story(), "3:139=7f 3:8126+66 3:139=00 2:18=7f 2:140+66 2:18=00");
    EXPECT_TRUE(b.in_use(121) && b.in_use(122));
    EXPECT_EQ(b.read(b.va(121)), std::pair(0U, bytes(64, 2)));
    EXPECT_EQ(b.eu(3).dirty, 120);
    EXPECT_EQ(b.eu(3).free, 118);
    EXPECT_EQ(b.layout(), b.layout_after_mount());

    const std::string before = b.tables();
    const auto image = b.image;
    for (const unsigned index : {9U, 10U, 11U, 121U}) // never twice, whatever the map says
        EXPECT_EQ(afs_physical_ftl_write_page(&b.ctx, b.va(index), 64, bytes(64).data()), 5U) << index;
    EXPECT_EQ(b.tables(), before);
    EXPECT_EQ(b.image, image);
}

// Every call of the chip goes wrong in turn. The operation answers 5 and the tables stay; what was there before is
// there after the next mount.
TEST(FtlWrite, EveryCallCanFail)
{
    struct row {
        const char* name;
        bool fat;
        unsigned calls[2]; // reads, writes
    };
    for (const row& r : {row{"FAT page", true, {3, 3}}, row{"data page", false, {4, 3}}}) {
        for (const chip_call kind : {chip_call::read, chip_call::write}) {
            for (const chip_fault how :
                 {chip_fault::before, chip_fault::after, chip_fault::silent, chip_fault::garbled}) {
                for (unsigned n = 1; n <= r.calls[static_cast<int>(kind)]; ++n) {
                    SCOPED_TRACE(testing::Message() << r.name << " call " << static_cast<int>(kind) << " how "
                                                    << static_cast<int>(how) << " n " << n);
                    volume v = bare();
                    v.log(0).page(3, bytes(64, 3)).page(4, bytes(64, 4));
                    bench b(v);
                    ASSERT_EQ(b.open(), 0U);
                    b.chip.violations_fail_test(false);
                    const std::string before = b.tables();
                    const bool glitch = kind == chip_call::read && how >= chip_fault::silent; // seven tries help
                    b.chip.fail(kind, n, how);
                    const std::uint32_t at = r.fat ? 3 * 64 : b.va(7);
                    const bool blind = glitch && !r.fat && n == 1; // the record before the write is read once
                    const std::uint32_t status = afs_physical_ftl_write_page(&b.ctx, at, 64, bytes(64, 8).data());
                    EXPECT_EQ(status, glitch && !blind ? 0U : 5U);
                    if (status == 0) {
                        EXPECT_EQ(b.layout(), b.layout_after_mount());
                        continue;
                    }
                    std::string after = b.tables(), expected = before;
                    if (!r.fat && !(kind == chip_call::write && n == 1) && !(kind == chip_call::read && n <= 2))
                        expected.replace(expected.find("free 122"), 8, "free 121");
                    EXPECT_EQ(after, expected);
                    b.chip.power_on();
                    ASSERT_EQ(b.open(), 0U);
                    // Where the commit byte landed before the failure was told, the new page stands.
                    const bool landed = n == 3 && (kind == chip_call::read || how == chip_fault::after);
                    EXPECT_EQ(b.read(3 * 64), std::pair(0U, bytes(64, r.fat && landed ? 8 : 3)));
                    EXPECT_EQ(b.read(4 * 64), std::pair(0U, bytes(64, 4)));
                }
            }
        }
    }
    bench b(bare());
    ASSERT_EQ(b.open(), 0U);
    b.chip.fail(chip_call::read, 1, chip_fault::garbled, 7);
    EXPECT_EQ(afs_physical_ftl_write_page(&b.ctx, 0, 64, bytes(64).data()), 5U);
    EXPECT_EQ(b.story(), "0:18=5b0b"); // read back seven times, written once
}

TEST(FtlTrim, IsAChangeInMemoryOnly)
{
    volume v = bare();
    v.log(0).page(3, bytes(64, 3)).page(4, bytes(64, 4));
    v.dead(130);
    bench b(v);
    ASSERT_EQ(b.open({130}), 0U);
    const auto image = b.image;
    const std::string before = b.tables();
    EXPECT_EQ(afs_physical_ftl_trim_page(&b.ctx, 5 * 64), 0U); // not mapped
    EXPECT_EQ(afs_physical_ftl_trim_page(&b.ctx, b.va(131)), 0U);
    EXPECT_EQ(b.tables(), before);

    EXPECT_EQ(afs_physical_ftl_trim_page(&b.ctx, 3 * 64), 0U);
    EXPECT_EQ(b.eu(0).dirty, 119);
    EXPECT_EQ(b.ctx.ftl->page_map[3].eu, 0xFF);
    EXPECT_EQ(b.read(3 * 64), std::pair(0U, std::vector<std::uint8_t>(64)));
    EXPECT_EQ(afs_physical_ftl_trim_page(&b.ctx, 3 * 64), 0U);
    EXPECT_EQ(b.eu(0).dirty, 119);

    EXPECT_EQ(afs_physical_ftl_trim_page(&b.ctx, b.va(130)), 0U);
    EXPECT_FALSE(b.in_use(130));
    EXPECT_EQ(b.eu(3).dirty, 122);
    EXPECT_EQ(b.eu(3).free, 121); // its record isn't blank
    EXPECT_EQ(b.read(b.va(130)).second, std::vector<std::uint8_t>(64));
    EXPECT_EQ(b.image, image);

    b.ftl().alloc_check_flash = 0;
    b.ftl().alloc_next = 200; // in group 1
    EXPECT_EQ(afs_physical_ftl_trim_page(&b.ctx, b.va(0)), 0U);
    EXPECT_EQ(b.ftl().alloc_check_flash, 0);
    EXPECT_EQ(afs_physical_ftl_trim_page(&b.ctx, b.va(122)), 0U);
    EXPECT_EQ(b.ftl().alloc_check_flash, 1);

    ASSERT_EQ(b.open({130}), 0U); // after a mount the old copy is back
    EXPECT_EQ(b.read(3 * 64).second, bytes(64, 3));
}

std::pair<std::uint32_t, unsigned> take(bench& b)
{
    std::uint16_t cid = 0;
    const std::uint32_t status = afs_physical_ftl_allocate_page(&b.ctx, &cid);
    return {status, status == 0 ? cid - 100U : 0};
}
using taken = std::pair<std::uint32_t, unsigned>;

// Forward through the open group, then flush, then the next group.
TEST(FtlAllocate, GroupByGroup)
{
    volume v = bare();
    for (unsigned i = 0; i < 240; ++i) v.dead(i);
    v.dead(244).dead(246, 0x7F);
    std::set<unsigned> used{244};
    for (unsigned i = 0; i < 120; ++i) used.insert(i); // group 0: two dead; group 1: 118 dead, two free behind them
    bench b(v);
    ASSERT_EQ(b.open(used), 0U);
    EXPECT_EQ(take(b), taken(0, 245)); // passes over the used one
    EXPECT_EQ(take(b), taken(0, 247)); // and over the begun one
    b.ftl().alloc_next = 365;
    EXPECT_EQ(take(b), taken(0, 365));
    EXPECT_EQ(take(b), taken(afs_status::flush_first, 0));
    for (unsigned i = 247; i < 366; ++i)
        ASSERT_EQ(afs_physical_ftl_write_page(&b.ctx, b.va(i), 64, bytes(64).data()), 0U);
    EXPECT_EQ(b.chip.journal().size(), 119U * 3);
    b.chip.clear_journal();
    // Group 2 still has slot 245 free: it is the oldest with room but for group 1, whose two count first.
    EXPECT_EQ(take(b), taken(0, 240));
    EXPECT_EQ(b.story(), "");
    EXPECT_EQ(b.ftl().alloc_flush_asked, 0);
    ASSERT_EQ(afs_physical_ftl_write_page(&b.ctx, b.va(240), 64, bytes(64).data()), 0U);
    for (const unsigned i : {241U, 242U, 243U}) {
        EXPECT_EQ(take(b), taken(0, i));
        ASSERT_EQ(afs_physical_ftl_write_page(&b.ctx, b.va(i), 64, bytes(64).data()), 0U);
    }
    EXPECT_EQ(take(b), taken(afs_status::flush_first, 0));
    EXPECT_EQ(take(b), taken(0, 245)); // group 2 opens anew
    ASSERT_EQ(afs_physical_ftl_write_page(&b.ctx, b.va(245), 64, bytes(64).data()), 0U);
    EXPECT_EQ(take(b), taken(afs_status::flush_first, 0));
    b.chip.clear_journal();
    EXPECT_EQ(take(b), taken(0, 122)); // no room as it is: group 1 is reclaimed, its 118 dead slots are free again
    EXPECT_EQ(b.story().substr(0, 12), "E5:0 E5:4096");
    EXPECT_EQ(b.layout(), b.layout_after_mount());
    b.ftl().alloc_next = b.ftl().alloc_end;
    EXPECT_EQ(take(b), taken(afs_status::flush_first, 0)); // a reclaim of a data EU asks anew
}

TEST(FtlAllocate, WhenNothingIsLeft)
{
    volume v = bare();
    std::set<unsigned> used;
    for (unsigned i = 0; i < 366; ++i) v.dead(i), used.insert(i);
    bench b(v);
    ASSERT_EQ(b.open(used), 0U);
    EXPECT_EQ(take(b), taken(afs_status::flush_first, 0)); // before anything else
    b.chip.clear_journal();
    EXPECT_EQ(take(b), taken(afs_status::no_space, 0));
    EXPECT_EQ(b.layout(), b.layout_after_mount()); // one reclaim ran in vain
    for (unsigned i = 0; i < 3; ++i)
        EXPECT_EQ(take(b).first, i % 2 == 0 ? afs_status::flush_first : afs_status::no_space);

    bench none_in_use(v); // all dead: the first reclaim gives a whole group
    ASSERT_EQ(none_in_use.open(), 0U);
    EXPECT_EQ(take(none_in_use), taken(afs_status::flush_first, 0));
    EXPECT_EQ(take(none_in_use), taken(0, 0));

    bench no_data(bare(4, 0));
    ASSERT_EQ(no_data.open(), 0U);
    EXPECT_EQ(take(no_data), taken(afs_status::flush_first, 0));
    EXPECT_EQ(take(no_data), taken(afs_status::no_space, 0));
    bench no_chunks(bare());
    ASSERT_EQ(no_chunks.open(), 0U);
    no_chunks.ctx.chunks = 0;
    EXPECT_EQ(take(no_chunks), taken(afs_status::no_space, 0));

    bench broken(bare());
    ASSERT_EQ(broken.open(), 0U);
    broken.chip.fail(chip_call::read, 1, chip_fault::before);
    EXPECT_EQ(take(broken), taken(5, 0));
    EXPECT_EQ(broken.ftl().alloc_next, 244U);
    broken.ftl().alloc_check_flash = 0; // then the map alone decides
    broken.chip.fail(chip_call::read, 1, chip_fault::before);
    EXPECT_EQ(take(broken), taken(0, 244));
}

} // namespace
} // namespace yfs::test
