// Operations on all EUs at once: format, forced reclaim, wipe, the end of the reserved-files mode.
#include "tests/ftl/ftl_bench.h"
#include "yfs/status.h"

namespace yfs::test {
namespace {

std::string hex(const std::vector<std::uint8_t>& image, std::size_t at, std::size_t count)
{
    std::string out;
    for (std::size_t i = at; i < at + count; ++i)
        for (const int shift : {4, 0}) out += "0123456789abcdef"[(image[i] >> shift) & 15];
    return out;
}

TEST(FtlFormat, LaysTheHeaders)
{
    bench b(bare(4, 1));
    ASSERT_EQ(b.mount(), 0U);
    std::fill(b.image.begin(), b.image.end(), std::uint8_t{0x11}); // whatever stood there
    b.chip.clear_journal();
    EXPECT_EQ(afs_physical_ftl_format(&b.ctx, 1), 0U);
    EXPECT_EQ(hex(b.image, 0, 18), "877855aa010000000100000001000000b100");
    EXPECT_EQ(hex(b.image, 8192, 18), "877855aa0200000001000000020000006c00");
    EXPECT_EQ(hex(b.image, 16384, 18), "877855aa0300000001000000030008008f00");
    EXPECT_EQ(hex(b.image, 24576, 18), "00000000040000000100000004000000d100");
    for (unsigned eu = 0; eu < 4; ++eu)
        EXPECT_EQ(std::count(b.image.begin() + eu * 8192 + 18, b.image.begin() + (eu + 1) * 8192, 0xFF), 8192 - 18);
    EXPECT_EQ(b.story(), "E0:0 E0:4096 0:0+17 0:17=00 E1:0 E1:4096 1:0+17 1:17=00 "
                         "E2:0 E2:4096 2:0+17 2:17=00 E3:0 E3:4096 3:0+17 3:17=00");
    ASSERT_EQ(b.open(), 0U);
    EXPECT_EQ(b.ftl().log_eu_count, 2);
    EXPECT_EQ(b.ftl().log_eu, 0U);
    EXPECT_EQ(b.eu(2).base_page, 8);

    const auto formatted = b.image;
    b.image.assign(b.image.size(), 0xFF);
    b.image[20000] = 0; // without an erase only headers are written
    b.chip.clear_journal();
    EXPECT_EQ(afs_physical_ftl_format(&b.ctx, 0), 0U);
    EXPECT_EQ(b.story(), "0:0+17 0:17=00 1:0+17 1:17=00 2:0+17 2:17=00 3:0+17 3:17=00");
    EXPECT_EQ(b.image[20000], 0);
    b.image[20000] = 0xFF;
    EXPECT_EQ(b.image, formatted);
    b.ctx.flash_size = 8191;
    EXPECT_EQ(afs_physical_ftl_format(&b.ctx, 1), 0U); // no EU, nothing to do
    EXPECT_EQ(b.image, formatted);
}

TEST(FtlFormat, FailsWithItsWritesNotWithItsErases)
{
    for (const chip_call kind : {chip_call::read, chip_call::write, chip_call::erase}) {
        for (unsigned n = 1; n <= 9; ++n) {
            bench b(bare(4, 1));
            ASSERT_EQ(b.mount(), 0U);
            std::fill(b.image.begin(), b.image.end(), std::uint8_t{0xFF});
            b.chip.fail(kind, n, chip_fault::before);
            EXPECT_EQ(afs_physical_ftl_format(&b.ctx, 1), kind == chip_call::erase || n == 9 ? 0U : 5U) << n;
        }
    }
    bench b(bare(4, 1));
    ASSERT_EQ(b.mount(), 0U);
    b.chip.violations_fail_test(false);
    b.chip.fail(chip_call::erase, 1, chip_fault::before, 2);
    b.image[0] = 0; // an erase that failed shows in the header behind it, and its second half isn't tried
    EXPECT_EQ(afs_physical_ftl_format(&b.ctx, 1), 5U);
}

TEST(FtlMaintenance, ForcedReclaimDoesOneEuACall)
{
    volume v = bare(5, 3); // EU 0 log, 1 to 3 data, 4 the spare
    v.log(0).page(3, bytes(64, 3));
    for (const unsigned i : {0U, 5U, 122U, 300U}) v.dead(i);
    bench b(v);
    ASSERT_EQ(b.open({0, 122, 300}), 0U);
    const unsigned spares[] = {1, 2, 3, 4};
    const std::uint32_t statuses[] = {11, 11, 11, 0};
    for (unsigned i = 0; i < 4; ++i) {
        EXPECT_EQ(afs_physical_ftl_force_full_reclaim(&b.ctx), statuses[i]) << i;
        EXPECT_EQ(b.ftl().spare_eu, spares[i]) << i;
        EXPECT_EQ(b.ftl().full_reclaim_next, i < 3 ? i + 2 : 0);
        EXPECT_EQ(b.layout(), b.layout_after_mount());
    }
    EXPECT_EQ(b.eu(3).base_page, b.ctx.fat_size / 64); // group 0 moved twice
    for (const unsigned i : {0U, 122U, 300U}) EXPECT_EQ(b.read(b.va(i)), std::pair(0U, bytes(64, i + 1000)));
    EXPECT_EQ(b.chip.counters().erases, 8U);

    b.chip.fail(chip_call::erase, 1, chip_fault::before);
    EXPECT_EQ(afs_physical_ftl_force_full_reclaim(&b.ctx), 5U);
    EXPECT_EQ(b.ftl().full_reclaim_next, 0);
    EXPECT_EQ(afs_physical_ftl_force_full_reclaim(&b.ctx), 11U); // and goes on at the same EU

    bench no_data(bare(4, 0));
    ASSERT_EQ(no_data.open(), 0U);
    EXPECT_EQ(afs_physical_ftl_force_full_reclaim(&no_data.ctx), 0U);
    EXPECT_EQ(no_data.story(), "");
}

TEST(FtlMaintenance, WipeZeroesDeadFramesAlone)
{
    volume v = bare();
    v.log(0).page(3, bytes(64, 3)).old(3);
    v.dead(0).dead(1).dead(2, 0x7F).dead(3, 0x00).dead(121);
    bench b(v);
    ASSERT_EQ(b.open({0, 121}), 0U);
    auto want = b.image;
    for (const unsigned slot : {1U, 2U, 3U})
        std::fill_n(want.begin() + 2 * 8192 + 140 + slot * 66, 66, std::uint8_t{0});
    std::fill(want.begin() + 5 * 8192 + 140, want.begin() + 6 * 8192, std::uint8_t{0});
    EXPECT_EQ(afs_physical_ftl_force_dirty_erase(&b.ctx), 0U);
    EXPECT_EQ(b.image, want);
    EXPECT_EQ(b.read(b.va(0)).second, bytes(64, 1000));
    EXPECT_EQ(b.layout(), b.layout_after_mount());
    EXPECT_EQ(ftl::reclaim_eu(&b.ctx, 2, 1), 0U); // the spare is erased before it is used
    EXPECT_EQ(b.read(b.va(121)).second, bytes(64, 1121));

    for (const chip_call kind : {chip_call::read, chip_call::write}) {
        const unsigned calls = kind == chip_call::read ? 4 : 125;
        for (unsigned n = 1; n <= calls + 1; n += n == 5 ? 118 : 1) {
            bench c(v);
            ASSERT_EQ(c.open({0, 121}), 0U);
            c.chip.fail(kind, n, chip_fault::before);
            EXPECT_EQ(afs_physical_ftl_force_dirty_erase(&c.ctx), n <= calls ? 5U : 0U) << n;
        }
    }
    EXPECT_EQ(afs_physical_ftl_force_dirty_erase(nullptr), 22U);
    afs_context unopened{};
    EXPECT_EQ(afs_physical_ftl_force_dirty_erase(&unopened), 22U);
    ftl_context without_table{};
    unopened.ftl = &without_table;
    EXPECT_EQ(afs_physical_ftl_force_dirty_erase(&unopened), 22U);
}

TEST(FtlMaintenance, EndOfReservedFiles)
{
    for (const unsigned spare : {5U, 0U, 1U}) {
        SCOPED_TRACE(spare);
        volume v = bare();
        v.log(0).page(3, bytes(64, 3)).old(4);
        v.dead(0);
        if (spare != 5) v.swap(spare, 5), v.eu(4).src(spare);
        bench b(v);
        ASSERT_EQ(b.open({0}), 0U);
        EXPECT_EQ(afs_physical_ftl_end_reserved_files_mode(&b.ctx), 0U);
        EXPECT_EQ(b.ftl().spare_eu, 1);
        EXPECT_EQ(b.chip.counters().erases, spare == 0 ? 2U : 4U);
        EXPECT_EQ(b.read(3 * 64), std::pair(0U, bytes(64, 3)));
        EXPECT_EQ(b.read(b.va(0)), std::pair(0U, bytes(64, 1000)));
        EXPECT_EQ(b.layout(), b.layout_after_mount());
        b.chip.fail(chip_call::erase, 1, chip_fault::before);
        EXPECT_EQ(afs_physical_ftl_end_reserved_files_mode(&b.ctx), 5U);
    }
}

} // namespace
} // namespace yfs::test
