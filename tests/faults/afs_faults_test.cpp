// A chip that fails without a power cut: every call of the medium goes wrong once in every way, through a history long
// enough for reclaims of both kinds, and the run goes on with the same mount. What was acknowledged stands, what was
// refused left the old state, and a fresh mount agrees. Then states that single damage leaves.
#include "tests/power_cut/rig.h"
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
TEST(AfsFaults, EachCallOfTheMediumGoesWrongOnce)
{
    rig start(made(5));
    ASSERT_EQ(start.mount(), 0U);
    std::mt19937 begin(3);
    for (int i = 0; i < 150; ++i) start.perform(step(begin, start.files));
    unsigned faults = 0, failed = 0;
    for (unsigned n = 1; n < 4000; n += 4) {
        const auto kind_of_call = static_cast<chip_call>(n % 5 < 2 ? 0 : n % 5 < 4 ? 1 : 2);
        const auto how = static_cast<chip_fault>(n / 5 % (kind_of_call == chip_call::write ? 2 : 4));
        SCOPED_TRACE(testing::Message() << "call " << n << ", kind " << int(kind_of_call) << ", how " << int(how));
        rig r(start.image);
        r.files = start.files;
        ASSERT_EQ(r.mount(), 0U);
        // Whatever is asked for, lines stay pages of 64 bytes.
        ASSERT_EQ(dfs_set_page_size(n % 3 == 0 ? 64 : n % 3 == 1 ? 128 : 4096), 0U);
        r.chip.violations_fail_test(kind_of_call != chip_call::erase); // a silent one leaves cells that a write meets
        r.chip.fail(kind_of_call, kind_of_call == chip_call::erase ? 1 + n % 5 : 1 + n % 400, how);
        std::mt19937 random(n);
        for (int i = 0; i < 40; ++i) {
            const operation op = step(random, r.files);
            contents after = r.files;
            op.apply(after);
            const std::uint32_t status = op.run();
            const bool fine = status == 0 || status == afs_status::nothing_gained;
            failed += !fine;
            // A change can be in force though the release of its old chunks, behind the commit, has failed.
            if (fine || file_reads_as(after, op.file)) r.files = after;
            // The one fault may meet this look itself.
            ASSERT_TRUE(reads_as(r.files) || reads_as(r.files)) << op.text() << ": " << status;
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
    ASSERT_EQ(r.perform(replace(1, bytes(300, 2))), 0U) << "the release counts its own steps";
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
    EXPECT_TRUE(dfs_delete_file(1) == 0 && dfs_delete_file(3) == 0);
    while (dfs_force_full_reclaim() == afs_status::call_again) {
    }
    std::vector<std::uint8_t> tail(320);
    size = 320;
    EXPECT_EQ(dfs_read(2, 0, &size, tail.data()), 0U);
    EXPECT_TRUE(std::equal(tail.begin() + 64, tail.end(), bytes(640, 1).begin() + 384));

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

} // namespace yfs::test::faults_afs_faults
