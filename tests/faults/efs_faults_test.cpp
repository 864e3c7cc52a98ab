// EFS on a medium that fails without a power cut: each call goes wrong once in every way, and the run goes on with the
// same mount. What was acknowledged stands for the library and for a fresh mount.
#include "tests/efs/rig.h"

#include <algorithm>
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

// A write that landed is told as failed, and the next call, which would make it void, fails as well; a write of the
// second change fails, or none; the power goes in the third. Whatever flash says then is whole, and a change that was
// acknowledged is in it.
TEST(EfsFaultHistory, TwoFailuresInARow)
{
    const efs::geometry geo{2, 2, 2};
    const blob fresh = fresh_image(geo, {efs_entry(0, 0, 300), efs_entry(1, 0, 300)}, 1000);
    unsigned refused = 0;
    for (unsigned n = 0; n < 8 * 9 * 10 * 5; ++n) {
        const unsigned first = 1 + n % 8, second = n / 8 % 9, cut = 1 + n / 72 % 10, way = n / 720;
        SCOPED_TRACE(testing::Message() << first << ", " << second << ", cut " << cut << ", way " << way);
        efs_rig r(fresh);
        r.chip.violations_fail_test(second == 0); // else flash isn't as memory has it
        ASSERT_EQ(r.mount(), 0U);
        for (unsigned i = 0; i < way % 2 * 3; ++i) ASSERT_EQ(r.perform({efs_call::write, i % 2, bytes(90, i)}), 0U);
        if (way == 2 || way == 3) efs_ctx.force_bm_switch = 1;
        std::vector<efs_contents> possible = {r.files};
        const auto attempt = [&](unsigned i) {
            efs_contents after = r.files;
            after[i % 2] = bytes(100, i);
            if (r.perform({efs_call::write, i % 2, after[i % 2]}) == 0) return possible = {after}, true;
            ++refused;
            return possible.push_back(after), false;
        };
        r.chip.fail(chip_call::write, first, chip_fault::after);
        r.chip.fail(chip_call::write, first + 1, chip_fault::before);
        if (way == 4) refused += EFS_switch_BM(&efs_ctx.current_bme) != 0;
        if (way != 4) attempt(4);
        r.chip.power_on(); // takes back what didn't come to pass
        if (way == 3 && efs_ctx.force_bm_switch != 0) efs_ctx.bme_offset = 3000, EFS_idle_reclaim(); // erases ahead
        if (second != 0) r.chip.fail(chip_call::write, second, chip_fault::before);
        EXPECT_TRUE(attempt(5) || second != 0);
        EXPECT_EQ(read_mounted(), r.files) << "the mount goes on";
        r.chip.cut_power(cut, 0);
        attempt(6);
        r.chip.power_on();
        ASSERT_EQ(r.mount(), 0U);
        r.files = read_mounted();
        ASSERT_TRUE(std::ranges::count(possible, r.files) != 0);
        ASSERT_TRUE(attempt(7) && r.mount() == 0 && read_mounted() == r.files);
    }
    EXPECT_GT(refused, 3600U);
}

// The other calls, right behind a mount or without one: each call of the medium fails, told or landed, once and twice.
// An answer of 0 means that it is done; of a format or an erase nothing but the old files, or none, is ever left, the
// rest leaves all files; and a format mends what is left.
TEST(EfsFaultHistory, TheWholeImageAndItsParts)
{
    static std::uint32_t position;
    std::uint32_t (*const calls[])() = {
        EFS_do_format,
        EFS_erase,
        EFS_write_RTFD_marker,
        EFS_erase_dirty_block,
        EFS_idle_reclaim,
        [] { return EFS_select_free_page_for_write(&position); },
        [] { return EFS_bme_swap_and_write_new_block(&efs_ctx.current_bme, 0, blob(4076).data()); },
        [] { return EFS_wear_leveling(0, 0); },
        [] { return EFS_switch_BM(&efs_ctx.current_bme); },
        [] { return EFS_delete(3); }, // there is none
    };
    const efs::geometry geo{2, 7, 3};
    const blob fresh = fresh_image(geo, usual_files(geo), 3);
    efs_rig start(fresh);
    ASSERT_EQ(start.mount(), 0U);
    for (unsigned i = 0; i < 12; ++i) ASSERT_EQ(start.perform({efs_call::write, i % 3, bytes(60, i)}), 0U);
    unsigned refused = 0;
    for (unsigned n = 0; n < 10 * 3 * 2 * 2 * 2 * 24; ++n) {
        const bool ends = n % 10 < 3, landed = n / 20 % 2 != 0;
        const auto kind = static_cast<chip_call>(n / 40 % 3);
        SCOPED_TRACE(testing::Message() << "call " << n % 10 << ", kind " << int(kind) << ", run " << n);
        efs_rig r(start.image, start.files);
        r.chip.violations_fail_test(false); // the marker goes over what stands
        r.chip.plain_copy(n % 10 == 2);
        efs_image = r.image.data();
        EFS_init(0);
        if (n / 10 % 2 != 0) efs_ctx.initialized = 0;
        r.chip.fail(kind, 1 + n / 240, landed ? chip_fault::after : chip_fault::before, 1 + n / 120 % 2);
        const std::uint32_t status = calls[n % 10]();
        refused += status != 0;
        r.chip.power_on();
        const std::uint32_t mount = r.mount();
        if (ends && status == 0) {
            ASSERT_TRUE(n % 10 == 0 ? r.image == fresh : mount == 41);
        } else {
            ASSERT_TRUE((mount == 0 && read_mounted() == r.files) || (ends && (mount == 41 || read_mounted().empty())));
        }
        ASSERT_TRUE(ends || r.perform({efs_call::write, 1, bytes(20)}) == 0);
        ASSERT_TRUE(EFS_do_format() == 0 && r.image == fresh && r.mount() == 0);
    }
    EXPECT_GT(refused, 500U);
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

    r.chip.fail(chip_call::write, 3, chip_fault::before, 2); // the entry, and the zeros
    ASSERT_TRUE(r.perform({efs_call::write, 0, bytes(90)}) == 1 && efs_ctx.undecided_length != 0);
    EXPECT_TRUE(EFS_do_format() == 0 && r.image == fresh_image(geo, {efs_entry(1, 0, 300)}, 100)) << "nothing is left";
}

} // namespace yfs::test::faults_efs_faults
