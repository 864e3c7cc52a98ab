// A format; a wipe needs a volume.
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
    bench dirty("eu0 3 u0 d1");
    ASSERT_EQ(dirty.open(), 0U);
    dirty.chip.fail(chip_call::read, 1, chip_fault::before);
    EXPECT_EQ(afs_physical_ftl_force_dirty_erase(&dirty.ctx), 5U);
    afs_context unopened{};
    EXPECT_EQ(afs_physical_ftl_force_dirty_erase(&unopened) + afs_physical_ftl_force_dirty_erase(nullptr), 44U);
}

} // namespace yfs::test::ftl_maintenance
