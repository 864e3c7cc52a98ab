// A chip that fails without a power cut: every call of the medium goes wrong in every way, alone or with the next one,
// through a history long enough for reclaims of both kinds, and the run goes on with the same mount. What was
// acknowledged stands, what was refused left the old state, and a fresh mount agrees. Then states that single damage
// leaves.
#include "tests/power_cut/rig.h"
#include "tests/support/counted_memory.h"
#include "yfs/make_volume.h"
#include "yfs/medium.h"

#include <array>
#include <random>

namespace yfs::test::faults_afs_faults {

std::vector<std::uint8_t> made(unsigned eus, unsigned files = 100)
{
    std::vector<std::uint8_t> image(std::size_t{eus} * ftl::eu_size);
    EXPECT_EQ(yfs_make_volume(image.data(), static_cast<std::uint32_t>(image.size()), files), 0U);
    return image;
}

// The n-th operation of the history: some twenty files, replaced, overwritten and removed; idle work now and then.
operation step(std::mt19937& random, const contents& files)
{
    const auto file = static_cast<unsigned>(random() % 20);
    const auto size = static_cast<unsigned>(random() % 600);
    switch (random() % 8) {
    case 0:
        return files.contains(file) ? operation{kind::remove, file} : replace(file, bytes(size, file));
    case 1:
        return {std::array{kind::idle_reclaim, kind::full_reclaim, kind::dirty_erase}[random() % 3]};
    case 2:
        return {kind::write, file, files.contains(file) ? static_cast<unsigned>(files.at(file).size() / 2) : 0,
                bytes(size, 7)};
    default:
        return replace(file, bytes(size, static_cast<unsigned>(random())));
    }
}

// Without a cut, so that the chip's own record of what it refused is the judge of programmed bits.
TEST(AfsFaults, EachCallOfTheMediumGoesWrong)
{
    rig start(made(5));
    ASSERT_EQ(start.mount(), 0U);
    std::mt19937 begin(3);
    for (int i = 0; i < 150; ++i) start.perform(step(begin, start.files));
    unsigned faults = 0, failed = 0;
    for (unsigned n = 1; n < 4000; n += 4) {
        const auto kind_of_call = static_cast<chip_call>(n % 5 < 2 ? 0 : n % 5 < 4 ? 1 : 2);
        const auto how = static_cast<chip_fault>(n / 5 % (kind_of_call == chip_call::write ? 3 : 4));
        SCOPED_TRACE(testing::Message() << "call " << n << ", kind " << int(kind_of_call) << ", how " << int(how));
        rig r(start.image);
        r.files = start.files;
        ASSERT_EQ(r.mount(), 0U);
        // Whatever is asked for, lines stay pages of 64 bytes.
        ASSERT_EQ(dfs_set_page_size(n % 3 == 0 ? 64 : n % 3 == 1 ? 128 : 4096), 0U);
        r.chip.violations_fail_test(kind_of_call != chip_call::erase); // a silent one leaves cells that a write meets
        r.chip.fail(kind_of_call, kind_of_call == chip_call::erase ? 1 + n % 5 : 1 + n % 400, how, 1 + n / 20 % 2);
        std::mt19937 random(n);
        for (int i = 0; i < 40; ++i) {
            const operation op = step(random, r.files);
            contents after = r.files;
            op.apply(after);
            const std::uint32_t status = op.run();
            const bool fine = status == 0 || status == afs_status::nothing_gained;
            failed += !fine;
            // A change can be in force though the release of its old chunks, behind the commit, has failed. The faults
            // may meet these looks themselves.
            if (fine || file_reads_as(after, op.file) || file_reads_as(after, op.file)) r.files = after;
            ASSERT_TRUE(reads_as(r.files) || reads_as(r.files) || reads_as(r.files)) << op.text() << ": " << status;
        }
        r.chip.power_on();
        ASSERT_EQ(r.mount(), 0U);
        ASSERT_TRUE(reads_as(r.files) && holds(r.look(), r.files));
        ASSERT_TRUE(r.perform(replace(30, bytes(200))) == 0 && r.perform({kind::full_reclaim}) == 0);
        ASSERT_TRUE(r.mount() == 0 && reads_as(r.files));
        ++faults;
    }
    EXPECT_GT(failed, faults / 4);
    std::cout << "AFS faults: " << faults << ", operations refused: " << failed << "\n";
}

// Each allocation of 300 operations fails: 12, or 5 where dispatch folds statuses; the old state, nothing leaked, and
// the next operation goes through.
TEST(AfsFaults, EachAllocationFailsOnce)
{
    rig start(made(5));
    ASSERT_EQ(start.mount(), 0U);
    unsigned refused = 0;
    for (unsigned n = 1, last = 1; n <= last; n += 3) {
        rig r(start.image);
        ASSERT_EQ(r.mount(), 0U);
        const auto held = live_blocks;
        std::mt19937 random(7);
        fail_allocation(n);
        for (int i = 0; i < 300; ++i) {
            const operation op = step(random, r.files);
            const bool before = allocation_failed;
            const std::uint32_t status = r.perform(op);
            const bool out_of_memory = allocation_failed && !before;
            refused += out_of_memory && status != 0;
            ASSERT_TRUE(status == 0 || status == afs_status::nothing_gained ||
                        (out_of_memory && (status == 5 || status == 12)))
                << status;
            ASSERT_TRUE(!out_of_memory || status == 0 || (reads_as(r.files) && live_blocks == held)) << op.text();
        }
        if (allocation_failed) last = n + 3;
        fail_allocation(0);
        ASSERT_TRUE(reads_as(r.files) && live_blocks == held);
        ASSERT_EQ(r.mount(), 0U);
        ASSERT_TRUE(reads_as(r.files));
    }
    EXPECT_GT(refused, 60U);
    std::cout << "AFS allocations refused: " << refused << "\n";
}

TEST(AfsFaults, TheLastSequenceNumber)
{
    rig r(volume(6, 3).image());
    count_up(r.image, UINT32_MAX - 5);
    ASSERT_EQ(r.mount(), 0U);
    ASSERT_EQ(r.perform(replace(1, bytes(500))), 0U);
    const auto before = r.image;
    EXPECT_EQ(dfs_force_full_reclaim(), 5U);
    EXPECT_EQ(r.image, before);
    ASSERT_EQ(r.mount(), 0U);
    EXPECT_TRUE(reads_as(r.files));
}

TEST(AfsFaults, LongFiles)
{
    rig r(made(5));
    ASSERT_EQ(r.mount(), 0U);
    const unsigned chunks = dfs_context->chunks;
    ASSERT_EQ(r.perform(replace(1, bytes(64UL * (chunks / 2), 1))), 0U);
    ASSERT_EQ(r.perform(replace(1, bytes(64UL * (chunks / 2), 2))), 0U) << "the release counts its own steps";
    ASSERT_EQ(r.perform(replace(1, bytes(300, 2))), 0U);
    ASSERT_EQ(r.perform(replace(2, bytes(64, 3))), 0U);
    for (const operation& op : {replace(2, bytes(64UL * chunks, 4)), cut_to(2, 64 * chunks - 63),
                                operation{kind::write, 2, 64 * chunks - 1, bytes(1)}}) {
        const auto before = r.image;
        EXPECT_EQ(r.perform(op), 28U) << "a chain over all chunks counts as a loop";
        EXPECT_EQ(r.image, before);
    }
    ASSERT_TRUE(r.perform({kind::remove, 2}) == 0 && r.perform({kind::remove, 1}) == 0);
    EXPECT_EQ(r.perform(replace(1, bytes(64UL * (chunks - 1), 5))), 0U);
    ASSERT_EQ(r.mount(), 0U);
    EXPECT_TRUE(reads_as(r.files));
}

// Two chains that meet, a third that meets them further on, and one within another's beginning.
TEST(AfsFaults, SharedChunksAreNeverGivenBack)
{
    volume v(8, 3, 100);
    v.file(1, bytes(640, 1)).in_chunks({0, 1, 2, 3, 4, 5, 6, 7, 8, 9});
    v.file(4, bytes(64, 4)).in_chunks({20});
    v.fat(2, low16(v.chunk_id(10))).fat(v.chunk_id(10), low16(v.chunk_id(6))).dead(10);
    v.fat(3, low16(v.chunk_id(3)));
    rig r(v.image());
    ASSERT_EQ(r.mount(), 0U);
    std::uint32_t size = 0;
    for (const auto& [file, bytes_held] : std::map<unsigned, unsigned>{{1, 640}, {2, 320}, {3, 448}, {4, 64}}) {
        EXPECT_EQ(dfs_getsize(file, &size), 0U);
        EXPECT_EQ(size, bytes_held) << file;
    }
    // A new chunk behind a shared one is shared too.
    auto whole = bytes(640, 1);
    const auto news = bytes(64, 9);
    std::copy(news.begin(), news.end(), whole.begin() + 448);
    EXPECT_EQ(dfs_write(1, 448, 64, news.data(), 0), 0U);
    EXPECT_TRUE(dfs_delete_file(1) == 0 && dfs_delete_file(3) == 0);
    while (dfs_force_full_reclaim() == afs_status::call_again) {
    }
    for (int mounts = 0; mounts < 2; ++mounts) {
        std::vector<std::uint8_t> tail(320);
        size = 320;
        EXPECT_EQ(dfs_read(2, 0, &size, tail.data()), 0U);
        EXPECT_TRUE(std::equal(tail.begin() + 64, tail.end(), whole.begin() + 384));
        ASSERT_EQ(r.mount(), 0U);
    }

    // Two heads on a chain of all chunks but one, as long as a chain can be.
    volume longest(6, 3, 100);
    std::vector<unsigned> most(3 * 122 - 1);
    for (unsigned i = 0; i < most.size(); ++i) most[i] = i;
    longest.file(0, bytes(64 * most.size())).in_chunks(most);
    longest.fat(1, low16(longest.chunk_id(0)));
    rig both(longest.image());
    ASSERT_TRUE(both.mount() == 0 && dfs_context->chunks == most.size() + 1);
    EXPECT_TRUE(dfs_getsize(1, &size) == 0 && size == 64 * most.size());

    // 2,000 heads on one long chain: counted once, so that a mount takes no longer than with one.
    volume many(255, 233, 2048);
    std::vector<unsigned> all(20000);
    for (unsigned i = 0; i < all.size(); ++i) all[i] = i;
    many.file(0, bytes(64 * all.size())).in_chunks(all);
    for (unsigned head = 1; head < 2000; ++head) many.fat(head, low16(many.chunk_id(head)));
    rig heads(many.image());
    heads.chip.reset_counters();
    ASSERT_EQ(heads.mount(), 0U);
    EXPECT_LT(heads.chip.counters().reads, 40000U) << "some five reads a FAT page, not one walk a head";
    EXPECT_EQ(dfs_getsize(1999, &size), 0U);
    EXPECT_EQ(size, 64U * (20000 - 1999));
}

// The victim is the EU that the log stands in and has room left, so its pages go to a newer one: once that fails, the
// log must not go on behind its former end, where a newer EU holds old copies. Every write of it fails, told or landed.
TEST(AfsFaults, AReclaimOfTheLogsOwnUnit)
{
    rig start(made(60));
    ASSERT_EQ(start.mount(), 0U);
    for (unsigned i = 0; i < 5; ++i) ASSERT_EQ(start.perform(replace(i, bytes(100, i))), 0U);
    unsigned failed = 0;
    for (unsigned n = 1; n <= 24; ++n) {
        for (const chip_fault how : {chip_fault::before, chip_fault::after}) {
            rig r(start.image);
            r.files = start.files;
            ASSERT_EQ(r.mount(), 0U);
            r.chip.fail(chip_call::write, n, how);
            failed += afs_physical_ftl_end_reserved_files_mode(dfs_context) != 0;
            r.chip.power_on();
            ASSERT_EQ(r.perform(replace(2, bytes(130, 77))), 0U) << n;
            ASSERT_EQ(r.mount(), 0U) << n;
            EXPECT_TRUE(reads_as(r.files)) << n;
        }
    }
    EXPECT_GT(failed, 10U);
}

// One write fails, before or after it has landed: later ones find all the room that there is, and a commit that landed
// counts, whatever the chip says.
TEST(AfsFaults, OneFaultCostsNoRoom)
{
    unsigned landed = 0;
    for (unsigned n = 1; n < 8; ++n) {
        for (const chip_fault how : {chip_fault::before, chip_fault::after}) {
            rig r(made(6));
            ASSERT_EQ(r.mount(), 0U);
            ASSERT_EQ(r.perform(replace(1, bytes(64, 1))), 0U);
            r.chip.fail(chip_call::write, n, how);
            const std::uint32_t status = r.perform(replace(2, bytes(64, 2)));
            landed += n == 6 && how == chip_fault::after && status == 0;
            r.chip.power_on();
            for (unsigned i = 0; i < 1500; ++i)
                ASSERT_EQ(r.perform(replace(3 + i % 10, bytes(64, i))), 0U) << n << " " << i;
            if (status != 0) r.files.erase(2);
            EXPECT_TRUE(reads_as(r.files));
        }
    }
    EXPECT_EQ(landed, 1U) << "the sixth write is the commit";
}

// Each write of a reclaim fails, the commit byte of the hand-over among them; the reclaims after it and a mount have to
// cope, and erase counts end at their highest.
TEST(AfsFaults, ReclaimsAfterAFailedOne)
{
    for (unsigned n = 1; n < 40; ++n) {
        volume v(6, 3, 100);
        for (unsigned i = 0; i < 4; ++i) v.file(i, bytes(300, i));
        v.eu(5).erase_count(UINT32_MAX);
        rig r(v.image());
        r.files = contents_of(r.look());
        ASSERT_EQ(r.mount(), 0U);
        r.chip.fail(chip_call::write, n, chip_fault::before);
        r.perform({kind::full_reclaim});
        r.chip.power_on();
        for (int i = 0; i < 3; ++i) ASSERT_EQ(r.perform({kind::full_reclaim}), 0U) << n;
        ASSERT_EQ(r.perform(replace(9, bytes(200, 9))), 0U);
        ASSERT_EQ(r.mount(), 0U) << n;
        EXPECT_TRUE(reads_as(r.files)) << n;
        const auto eus = r.look().eus;
        EXPECT_TRUE(std::all_of(eus.begin(), eus.end(), [](const auto& eu) { return eu.header.erase_count != 0; }))
            << n;
    }
}

// The commit byte of a log EU's last slot has one more bit cleared than a write clears.
TEST(AfsFaults, AFullLogWithAnOddCommitByte)
{
    rig r(made(6));
    ASSERT_EQ(r.mount(), 0U);
    for (unsigned i = 0; i < 8; ++i) ASSERT_EQ(r.perform(replace(i, bytes(100, i))), 0U);
    while (dfs_context->ftl->log_slot != ftl::log_slots)
        ASSERT_EQ(r.perform(replace(9, bytes(1, dfs_context->ftl->log_slot))), 0U);
    std::uint8_t& commit = r.image[dfs_context->ftl->log_eu * ftl::eu_size + ftl::log_commit_at(ftl::log_slots - 1)];
    ASSERT_EQ(std::exchange(commit, 0x3F), 0x7F);
    for (int mounts = 0; mounts < 2; ++mounts) {
        ASSERT_EQ(r.mount(), 0U);
        EXPECT_TRUE(reads_as(r.files));
        ASSERT_EQ(r.perform(replace(20, bytes(70, 5))), 0U);
    }
}

} // namespace yfs::test::faults_afs_faults
