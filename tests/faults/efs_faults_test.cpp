// EFS on a medium that fails without a power cut: each call goes wrong once in every way, and the run goes on with the
// same mount. What was acknowledged stands for the library and for a fresh mount.
#include "tests/efs/rig.h"

#include <iostream>
#include <random>

namespace yfs::test::faults_efs_faults {

efs_operation step(std::mt19937& random)
{
    const auto file = static_cast<unsigned>(random() % g_efs_files_num);
    if (random() % 6 == 0) return {efs_call::idle};
    if (random() % 6 == 0) return {efs_call::remove, file};
    return {efs_call::write, file, bytes(1 + random() % EFS_files[file].max_size, static_cast<unsigned>(random()))};
}

const auto stands = [](efs_rig& r) { return read_mounted() == r.files; };

TEST(EfsFaultHistory, EachCallOfTheMediumGoesWrongOnce)
{
    unsigned faults = 0, failed = 0;
    for (const efs::geometry geo : {efs::geometry{2, 7, 3}, {3, 2, 1}, {6, 40, 12}}) {
        const blob fresh = fresh_image(geo, usual_files(geo), 6);
        efs_rig start(fresh);
        ASSERT_EQ(start.mount(), 0U);
        std::mt19937 begin(5);
        for (int i = 0; i < 340; ++i) { // the map is nearly full
            start.perform(step(begin));
            ASSERT_EQ(start.trouble(), "");
        }
        for (unsigned n = 1; n < 1500; n += 2) {
            const auto kind_of_call = static_cast<chip_call>(n % 5 < 2 ? 0 : n % 5 < 4 ? 1 : 2);
            const auto how = static_cast<chip_fault>(n / 5 % 4);
            SCOPED_TRACE(testing::Message() << "call " << n << ", kind " << int(kind_of_call) << ", how " << int(how));
            efs_rig r(start.image, start.files);
            ASSERT_EQ(r.mount(), 0U);
            r.chip.violations_fail_test(kind_of_call != chip_call::erase);
            // Six misreads in a row do no harm at all; the first change may go to the next map.
            const unsigned times = kind_of_call == chip_call::read && how == chip_fault::garbled ? 6 + n % 2 : 1;
            const bool switches = n % 3 == 0;
            if (switches) efs_ctx.force_bm_switch = 1;
            r.chip.fail(kind_of_call, 1 + n % (kind_of_call == chip_call::erase ? 9 : switches ? 14 : 150), how, times);
            std::mt19937 random(n);
            for (int i = 0; i < 30; ++i) {
                const efs_operation op = step(random);
                const std::uint32_t status = r.perform(op);
                failed += status != 0 && status != efs_status::not_found;
                ASSERT_TRUE(times != 6 || status == 0 || status == efs_status::not_found) << op << ": " << status;
                ASSERT_TRUE(stands(r) || stands(r)) << op << ": " << status;
            }
            r.chip.power_on();
            ASSERT_EQ(r.mount(), 0U);
            ASSERT_TRUE(stands(r));
            for (int i = 0; i < 6; ++i) r.perform(step(random));
            ASSERT_EQ(r.mount(), 0U);
            ASSERT_EQ(r.trouble(true), "");
            ++faults;
        }
    }
    EXPECT_GT(failed, faults / 8);
    std::cout << "EFS faults: " << faults << ", operations refused: " << failed << "\n";
}

// An old map that a cut left sound is retired by the first change; zeros are no entry.
TEST(EfsFaultHistory, LeftoversOfACommit)
{
    const efs::geometry geo{3, 7, 3};
    use_efs_table(geo, {efs_entry(1, 0, 300)});
    efs_volume v(geo);
    v.bm(0).bm(1, 2, 2);
    efs_rig r(v.image);
    EXPECT_TRUE(r.mount() == 0 && r.image == v.image) << "a mount writes nothing";
    ASSERT_EQ(r.perform({efs_call::write, 0, bytes(100)}), 0U);
    EXPECT_TRUE(std::all_of(r.image.begin(), r.image.begin() + 16, [](std::uint8_t b) { return b == 0; }));

    const std::uint32_t next = efs_ctx.bme_offset + 22 + 4096;
    std::fill_n(r.image.begin() + next, 22, std::uint8_t{0});
    ASSERT_EQ(r.mount(), 0U) << "a slot of zeros is a torn one";
    EXPECT_TRUE(efs_ctx.force_bm_switch == 1 && stands(r));
    ASSERT_EQ(r.perform({efs_call::write, 0, bytes(200)}), 0U);
    EXPECT_EQ(efs_ctx.current_bm, 2U);
    EXPECT_TRUE(r.mount() == 0 && stands(r));
}

} // namespace yfs::test::faults_efs_faults
