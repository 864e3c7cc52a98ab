// Random histories against a map in memory, on volumes of several shapes, nearly full ones too, with remounts; the
// second reader looks at the image after every step. Once without power cuts on a strict chip, once with a cut in every
// few steps, each taken up by the next mount. YFS_TEST_SEED repeats another history than the fixed one.
#include "tests/power_cut/rig.h"
#include "tests/power_cut/tally.h"
#include "tests/support/volume_builder.h"
#include "yfs/make_volume.h"
#include "yfs/status.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <random>

namespace yfs::test {
namespace {

using kind = operation::kind;

// Of a volume of 8 units; large ones take fewer, as each step looks at the whole image.
#ifdef NDEBUG
constexpr unsigned steps = 12000;
#else
constexpr unsigned steps = 800;
#endif

struct history {
    const char* name;
    unsigned eus, data_eus, files; // data_eus 0: as yfs_make_volume lays it
    unsigned fill;                 // per cent of the chunks that files take, about
    unsigned largest;              // bytes of the largest write

    unsigned length() const { return steps * 8 / std::max(8U, eus); }
    friend void PrintTo(const history& h, std::ostream* out) { *out << h.name; }
};

constexpr history histories[] = {
    {"4 units", 4, 0, 65, 60, 400},
    {"4 units, one of log", 4, 2, 65, 50, 300},
    {"4 units, full", 4, 0, 65, 100, 600},
    {"8 units", 8, 0, 100, 70, 3000},
    {"8 units, much log", 8, 3, 300, 90, 800},
    {"8 units, full", 8, 0, 100, 100, 5000},
    {"16 units", 16, 0, 1024, 80, 9000},
    {"32 units", 32, 0, 2048, 95, 20000},
};

std::vector<std::uint8_t> lay(const history& h)
{
    if (h.data_eus != 0) return volume(h.eus, h.data_eus, h.files).image();
    std::vector<std::uint8_t> image(std::size_t{h.eus} * ftl::eu_size);
    EXPECT_EQ(yfs_make_volume(image.data(), static_cast<std::uint32_t>(image.size()), h.files), 0U);
    return image;
}

class RandomHistory : public testing::TestWithParam<history> {
protected:
    RandomHistory()
    {
        const char* given = std::getenv("YFS_TEST_SEED");
        seed = given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 0)) : 20240611;
        random.seed(seed);
        std::cout << "seed " << seed << "\n";
    }
    unsigned below(unsigned n) { return static_cast<unsigned>(random() % n); }
    bool one_in(unsigned n) { return below(n) == 0; }

    operation choose(const rig& r);
    static unsigned chunks_wanted(const contents& files, const operation& op);

    unsigned seed = 0;
    std::mt19937 random;
    unsigned chunks_ = 0;
};

operation RandomHistory::choose(const rig& r)
{
    const history& h = GetParam();
    const auto any = [&] { return std::next(r.files.begin(), below(static_cast<unsigned>(r.files.size())))->first; };
    unsigned used = 0;
    for (const auto& [number, content] : r.files) used += static_cast<unsigned>(content.size() + 63) / 64;
    if (chunks_ == 0) chunks_ = r.look().chunks;

    const bool crowded = used * 100 >= chunks_ * h.fill;
    const unsigned dice = below(100);
    if (dice == 0) return only(kind::idle_reclaim);
    if (dice == 1) return one_in(6) ? only(kind::full_reclaim) : only(kind::dirty_erase);
    if (dice < 4) return only(kind::mark_zombie, below(h.files));
    if (!r.files.empty() && (crowded ? dice < 60 : dice < 12)) {
        if (one_in(3)) return only(kind::remove, any());
        const unsigned file = any();
        return cut_to(file, below(static_cast<unsigned>(r.files.at(file).size()) + 1));
    }
    // Few numbers are used much, so that files are replaced; lengths fall on and beside chunk boundaries often.
    const unsigned file = one_in(2) && !r.files.empty() ? any() : below(one_in(4) ? h.files : 24);
    unsigned length = one_in(3) ? below(h.largest) : below(std::min(h.largest, 300U));
    if (one_in(4)) length = length / 64 * 64 + below(2);
    const auto it = r.files.find(file);
    const unsigned size = it == r.files.end() ? 0 : static_cast<unsigned>(it->second.size());
    const auto data = bytes(length, below(0xFFFFFFFF));
    switch (below(4)) {
    case 0:
        return overwrite(file, below(size + 1), data);
    case 1:
        return overwrite(file, size + (one_in(3) ? below(200) : 0), data);
    case 2: {
        operation op = overwrite(file, below(size + 1), data);
        op.ends_file = true;
        return op;
    }
    default:
        return replace(file, data);
    }
}

// New chunks that an operation takes while the old ones are still in use. A gap begins in the old last chunk, even
// where that is full.
unsigned RandomHistory::chunks_wanted(const contents& files, const operation& op)
{
    const auto it = files.find(op.file);
    const std::size_t size = it == files.end() ? 0 : it->second.size(), end = op.offset + op.data.size();
    const std::size_t from = op.offset <= size ? op.offset / 64 : size == 0 ? 0 : (size - 1) / 64;
    return static_cast<unsigned>((end + 63) / 64 - from);
}

TEST_P(RandomHistory, MatchesTheMapAtEveryStep)
{
    rig r(lay(GetParam()));
    ASSERT_EQ(r.mount(), 0U);
    unsigned refused = 0;
    inspect::picture now = r.look();
    for (unsigned step = 0; step < GetParam().length(); ++step) {
        const operation op = choose(r);
        SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(step) + ": " + to_string(op));
        const unsigned room = now.space.chunks_after_reclaim, wanted = chunks_wanted(r.files, op);
        const std::uint32_t status = r.perform(op);
        if (op.what == kind::write && status == afs_status::no_space) {
            ++refused;
            ASSERT_LT(room, wanted) << "refused although there is room";
        } else if (op.what == kind::mark_zombie) {
            ASSERT_TRUE(status == afs_status::ok || status == afs_status::bad_state) << status;
        } else if (op.what == kind::idle_reclaim) {
            ASSERT_TRUE(status == afs_status::ok || status == afs_status::nothing_gained) << status;
        } else {
            ASSERT_EQ(status, afs_status::ok);
        }
        now = r.look();
        ASSERT_TRUE(clean(now));
        ASSERT_TRUE(holds(now, r.files));
        ASSERT_FALSE(HasFailure()) << "the chip has a complaint";
        if (one_in(50)) {
            ASSERT_EQ(r.mount(), 0U);
        }
        unsigned number = 0;
        if (step % 16 == 0) {
            ASSERT_TRUE(reads_as(r.files, number)) << "file " << number;
        }
        ++the_tally().random_steps;
    }
    if (GetParam().fill >= 100) {
        EXPECT_GT(refused, 0U) << "never full";
    }
}

TEST_P(RandomHistory, SurvivesPowerCuts)
{
    std::vector<std::uint8_t> fresh = lay(GetParam());
    auto r = std::make_unique<rig>(fresh);
    const auto start_over = [&] {
        r = std::make_unique<rig>(fresh);
        r->chip.violations_fail_test(false);
        r->chip.plain_copy(true);
        return r->mount();
    };
    ASSERT_EQ(start_over(), 0U);
    for (unsigned step = 0; step < GetParam().length(); ++step, ++the_tally().random_steps) {
        const operation op = choose(*r);
        SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(step) + ": " + to_string(op));
        contents after = r->files;
        apply(after, op);
        // Among the first changes of the operation, or anywhere in a reclaim; a short operation may end before.
        if (one_in(3)) r->chip.cut_power(1 + below(one_in(2) ? 8 : 60), below(one_in(2) ? 4 : 4096), low8(random()));
        const std::uint32_t status = run(op);
        const bool was_cut = r->chip.power_is_off();
        r->chip.power_on();
        const inspect::picture now = r->look();
        if (was_cut) {
            ++the_tally().random_cuts;
            if (has_torn_header_that_checks(now)) {
                ++the_tally().torn_headers;
                ASSERT_EQ(start_over(), 0U);
                continue;
            }
            ASSERT_EQ(r->mount(), 0U);
        } else {
            ASSERT_NE(status, afs_status::failed);
        }
        if (file_reads_as(after, op.file)) r->files = after;
        ASSERT_TRUE(clean(now, inspect::finding_id::frame_unrecorded));
        ASSERT_TRUE(holds(now, r->files));
        unsigned number = 0;
        if (was_cut || step % 16 == 0) {
            ASSERT_TRUE(reads_as(r->files, number)) << "file " << number;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Shapes, RandomHistory, testing::ValuesIn(histories));

} // namespace
} // namespace yfs::test
