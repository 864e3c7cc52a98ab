// Operations on all EUs at once: format, forced reclaim, wipe, the end of the reserved-files mode.
#include "tests/ftl/ftl_bench.h"

namespace yfs::test {
namespace {

TEST(FtlFormat, LaysTheHeaders)
{
    bench b(plan("", 4, 1));
    ASSERT_EQ(b.mount(), 0U);
    std::fill(b.image.begin(), b.image.end(), std::uint8_t{0x11}); // whatever stood there
    EXPECT_EQ(afs_physical_ftl_format(&b.ctx, 1), 0U);
    EXPECT_EQ(b.story(), "E0:0 E0:4096 0:0+17 0:17=00 E1:0 E1:4096 1:0+17 1:17=00 "
                         "E2:0 E2:4096 2:0+17 2:17=00 E3:0 E3:4096 3:0+17 3:17=00");
    const char* const headers[] = {"877855aa010000000100000001000000b100", "877855aa0200000001000000020000006c00",
                                   "877855aa0300000001000000030008008f00", "00000000040000000100000004000000d100"};
    for (unsigned eu = 0; eu < 4; ++eu) EXPECT_EQ(hex({&b.image[eu * 8192], 18}), headers[eu]) << eu;
    EXPECT_EQ(std::count(b.image.begin(), b.image.end(), 0x11), 0);
    ASSERT_EQ(b.open(), 0U);
    EXPECT_EQ(b.layout(), "seq 3 spare 3\neu 0: erased 1 base 0 seq 1 dirty 120 free 1\n"
                          "eu 1: erased 1 base 0 seq 2 dirty 120 free 1\n"
                          "eu 2: erased 1 base 8 seq 3 dirty 122 free 122\neu 3: erased 1 base 0\n");

    const auto formatted = b.image;
    b.image.assign(b.image.size(), 0xFF);
    b.image[20000] = 0; // without an erase only headers are written
    EXPECT_EQ(afs_physical_ftl_format(&b.ctx, 0), 0U);
    EXPECT_EQ(std::exchange(b.image[20000], 0xFF), 0);
    EXPECT_EQ(b.image, formatted);
    b.ctx.flash_size = 8191;
    EXPECT_EQ(afs_physical_ftl_format(&b.ctx, 1), 0U); // no EU, nothing to do
}

TEST(FtlFormat, FailsWithItsWritesNotWithItsErases)
{
    for (unsigned i = 0; i < 27; ++i) {
        const auto kind = static_cast<chip_call>(i / 9);
        bench b(plan("", 4, 1));
        ASSERT_EQ(b.mount(), 0U);
        std::fill(b.image.begin(), b.image.end(), std::uint8_t{0xFF});
        b.chip.fail(kind, i % 9 + 1, chip_fault::before);
        EXPECT_EQ(afs_physical_ftl_format(&b.ctx, 1), kind == chip_call::erase || i % 9 == 8 ? 0U : 5U) << i;
    }
}

TEST(FtlMaintenance, ForcedReclaimDoesOneEuACall)
{
    bench b(plan("eu0 3 d0 d5 d122 d300", 5, 3)); // EU 0 log, 1 to 3 data, 4 the spare
    ASSERT_EQ(b.open({0, 122, 300}), 0U);
    for (const auto& [status, spare, next] : std::initializer_list<std::array<unsigned, 3>>{
             {11, 1, 2}, {11, 2, 3}, {11, 3, 4}, {0, 4, 0}}) { // group 0 moves twice
        EXPECT_EQ(afs_physical_ftl_force_full_reclaim(&b.ctx), status);
        EXPECT_EQ(b.ftl().spare_eu, spare);
        EXPECT_EQ(b.ftl().full_reclaim_next, next);
        EXPECT_EQ(b.layout(), b.layout_after_mount());
        for (const unsigned i : {0U, 122U, 300U}) EXPECT_EQ(b.read(b.va(i)), page_read(0, bytes(64, i + 1000)));
    }
    b.chip.fail(chip_call::erase, 1, chip_fault::before);
    EXPECT_EQ(afs_physical_ftl_force_full_reclaim(&b.ctx), 5U);
    EXPECT_EQ(b.ftl().full_reclaim_next, 0);
    EXPECT_EQ(afs_physical_ftl_force_full_reclaim(&b.ctx), 11U); // and goes on at the same EU

    bench no_data(plan("", 4, 0));
    ASSERT_EQ(no_data.open(), 0U);
    EXPECT_EQ(afs_physical_ftl_force_full_reclaim(&no_data.ctx), 0U);
    EXPECT_EQ(no_data.story(), "");
}

TEST(FtlMaintenance, WipeZeroesDeadFramesAlone)
{
    const volume v = plan("eu0 3 f3=2 d0 d1 d2=0x7F d3 d121");
    for (const auto& [kind, calls] : {std::pair(chip_call::read, 4U), {chip_call::write, 3 + 122U}}) {
        for (const unsigned n : {1U, 2U, calls, calls + 1}) {
            bench b(v);
            ASSERT_EQ(b.open({0, 121}), 0U);
            auto want = b.image;
            std::fill_n(want.begin() + 2 * 8192 + 140 + 66, 3 * 66, std::uint8_t{0});
            std::fill(want.begin() + 5 * 8192 + 140, want.begin() + 6 * 8192, std::uint8_t{0});
            b.chip.fail(kind, n, chip_fault::before);
            EXPECT_EQ(afs_physical_ftl_force_dirty_erase(&b.ctx), n <= calls ? 5U : 0U) << n;
            if (n <= calls) continue;
            EXPECT_EQ(b.image, want);
            b.chip.power_on();
            EXPECT_EQ(b.layout(), b.layout_after_mount());
            EXPECT_EQ(ftl::reclaim_eu(&b.ctx, 2, 1), 0U); // the spare is erased before it is used
            EXPECT_EQ(b.read(b.va(121)), page_read(0, bytes(64, 1121)));
        }
    }
    bench b(v);
    ASSERT_EQ(b.mount(), 0U);
    b.ctx.alloc_map = nullptr; // opened for reading only
    EXPECT_EQ(afs_physical_ftl_force_dirty_erase(&b.ctx), 22U);
    EXPECT_EQ(afs_physical_ftl_force_dirty_erase(nullptr), 22U);
    afs_context unopened{};
    EXPECT_EQ(afs_physical_ftl_force_dirty_erase(&unopened), 22U);
}

TEST(FtlMaintenance, EndOfReservedFiles)
{
    for (const unsigned spare : {5U, 0U, 1U}) {
        volume v = plan("eu0 3 f4=2 d0");
        if (spare != 5) v.swap(spare, 5), v.eu(4).src(spare);
        bench b(v);
        ASSERT_EQ(b.open({0}), 0U);
        EXPECT_EQ(afs_physical_ftl_end_reserved_files_mode(&b.ctx), 0U);
        EXPECT_EQ(b.ftl().spare_eu, 1) << spare;
        EXPECT_EQ(b.chip.counters().erases, spare == 0 ? 2U : 4U);
        EXPECT_EQ(b.read(3 * 64), page_read(0, bytes(64, 3)));
        EXPECT_EQ(b.read(b.va(0)), page_read(0, bytes(64, 1000)));
        b.chip.fail(chip_call::erase, 1, chip_fault::before);
        EXPECT_EQ(afs_physical_ftl_end_reserved_files_mode(&b.ctx), 5U);
    }
}

} // namespace
} // namespace yfs::test
