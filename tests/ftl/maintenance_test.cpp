// Format and wipe: operations on all EUs at once.
#include "tests/ftl/ftl_bench.h"

namespace yfs::test::ftl_maintenance {

TEST(FtlFormat, LaysTheHeaders)
{
    const plan p("", 4, 1);
    bench b(p);
    ASSERT_EQ(b.mount(), 0U);
    for (const std::uint8_t erase : {std::uint8_t{1}, std::uint8_t{0}}) { // without an erase only headers are written
        b.image.assign(b.image.size(), low8(erase != 0 ? 0x11 : 0xFF));
        b.image[20000] = 0;
        EXPECT_EQ(afs_physical_ftl_format(&b.ctx, erase), 0U);
        EXPECT_EQ(b.image[20000] != 0, erase != 0);
        b.image[20000] = 0xFF;
        EXPECT_EQ(b.image, p.v.image());
    }
    for (unsigned i = 0; i < 27; ++i) { // it fails with its writes, not with its erases
        const auto kind = static_cast<chip_call>(i / 9);
        b.image.assign(b.image.size(), 0xFF);
        b.chip.power_on();
        b.chip.fail(kind, i % 9 + 1, chip_fault::before);
        EXPECT_EQ(afs_physical_ftl_format(&b.ctx, 1), kind == chip_call::erase || i % 9 == 8 ? 0U : 5U) << i;
    }
    b.ctx.flash_size = 8191;
    EXPECT_EQ(afs_physical_ftl_format(&b.ctx, 1), 0U); // no EU, nothing to do
}

TEST(FtlMaintenance, WipeZeroesDeadFramesAlone)
{
    const plan p("eu0 3 f3=2 u0 d1 d2=0x7F d3 u121");
    for (const auto& [kind, calls] : {std::pair(chip_call::read, 4U), {chip_call::write, 3 + 122U}}) {
        for (const unsigned n : {1U, 2U, calls, calls + 1}) {
            bench b(p);
            ASSERT_EQ(b.open(), 0U);
            auto want = b.image;
            std::fill_n(want.begin() + 2 * 8192 + 140 + 66, 3 * 66, std::uint8_t{0});
            std::fill(want.begin() + 5 * 8192 + 140, want.begin() + 6 * 8192, std::uint8_t{0});
            b.chip.fail(kind, n, chip_fault::before);
            EXPECT_EQ(afs_physical_ftl_force_dirty_erase(&b.ctx), n <= calls ? 5U : 0U) << n;
            if (n <= calls) continue;
            EXPECT_EQ(b.image, want);
            b.chip.power_on();
            EXPECT_EQ(b.run("r2 G121"), "0 = "); // the spare is erased before it is used
        }
    }
    afs_context unopened{};
    EXPECT_EQ(afs_physical_ftl_force_dirty_erase(&unopened) + afs_physical_ftl_force_dirty_erase(nullptr), 44U);
}

} // namespace yfs::test::ftl_maintenance
