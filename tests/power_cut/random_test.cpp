// Random histories against a map in memory, on volumes of several shapes, nearly full ones too, with remounts; the
// second reader looks at the image after every step. Once without power cuts on a strict chip, once with a cut in every
// few steps, each taken up by the next mount. YFS_TEST_SEED repeats another history than the fixed one.
#include "tests/power_cut/rig.h"
#include "yfs/make_volume.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <random>

namespace yfs::test::power_cut_random {

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
    std::uint32_t volume_size = 0; // 0: whole groups

    friend void PrintTo(const history& h, std::ostream* out) { *out << h.name; }
};

constexpr history histories[] = {
    {"4 units", 4, 0, 65, 60, 400},          {"4 units, one of log", 4, 2, 65, 50, 300},
    {"4 units, full", 4, 0, 65, 100, 600},   {"6 units, the last group not whole", 6, 3, 100, 90, 2000, 346 * 66 + 214},
    {"8 units", 8, 0, 100, 70, 3000},        {"8 units, much log", 8, 3, 300, 90, 800},
    {"8 units, full", 8, 0, 100, 100, 5000}, {"16 units", 16, 0, 1024, 80, 9000},
    {"32 units", 32, 0, 2048, 95, 20000},
};

std::vector<std::uint8_t> lay(const history& h)
{
    volume v(h.eus, std::max(h.data_eus, 1U), h.files);
    if (h.volume_size != 0) v.header().volume_size = h.volume_size;
    if (h.data_eus != 0) return v.image();
    std::vector<std::uint8_t> image(std::size_t{h.eus} * ftl::eu_size);
    EXPECT_EQ(yfs_make_volume(image.data(), static_cast<std::uint32_t>(image.size()), h.files), 0U);
    return image;
}

class RandomHistory : public testing::TestWithParam<std::tuple<history, bool>> {
protected:
    unsigned below(unsigned n) { return static_cast<unsigned>(random() % n); }
    bool one_in(unsigned n) { return below(n) == 0; }
    operation choose(const contents& files, unsigned chunks);

    const char* given = std::getenv("YFS_TEST_SEED");
    unsigned long seed = given != nullptr ? std::strtoul(given, nullptr, 0) : 20240611;
    std::mt19937 random{static_cast<unsigned>(seed)};
};

operation RandomHistory::choose(const contents& files, unsigned chunks)
{
    const history& h = std::get<0>(GetParam());
    const auto any = [&] { return std::next(files.begin(), below(static_cast<unsigned>(files.size())))->first; };
    const auto size_of = [&](unsigned file) {
        return files.contains(file) ? static_cast<unsigned>(files.at(file).size()) : 0;
    };
    std::size_t used = 0;
    for (const auto& [number, content] : files) used += (content.size() + 63) / 64;
    const unsigned dice = below(100);
    if (dice == 0) return {kind::idle_reclaim};
    if (dice == 1) return {one_in(6) ? kind::full_reclaim : kind::dirty_erase};
    if (dice < 4) return {kind::mark_zombie, below(h.files)};
    if (!files.empty() && dice < (used * 100 >= std::size_t{chunks} * h.fill ? 60 : 12)) {
        const unsigned file = any();
        return one_in(3) ? operation{kind::remove, file} : cut_to(file, below(size_of(file) + 1));
    }
    // Few numbers are used much, so that files are replaced; lengths fall on and beside chunk boundaries often.
    const unsigned file = one_in(2) && !files.empty() ? any() : below(one_in(4) ? h.files : 24);
    unsigned length = one_in(3) ? below(h.largest) : below(std::min(h.largest, 300U));
    if (one_in(4)) length = length / 64 * 64 + below(2);
    operation op = replace(file, bytes(length, below(0xFFFFFFFF)));
    const unsigned way = below(4), size = size_of(file);
    if (way < 3) op.offset = way == 1 ? size + (one_in(3) ? below(200) : 0) : below(size + 1);
    op.ends_file = way >= 2;
    return op;
}

// New chunks that a write takes while the old ones are still in use. A gap begins in the old last chunk, even where
// that is full.
std::size_t chunks_wanted(const contents& files, const operation& op)
{
    const auto it = files.find(op.file);
    const std::size_t size = it == files.end() ? 0 : it->second.size(), end = op.offset + op.data.size();
    const std::size_t from = op.offset <= size ? op.offset / 64 : size == 0 ? 0 : (size - 1) / 64;
    return (end + 63) / 64 - from;
}

TEST_P(RandomHistory, MatchesTheMapAtEveryStep)
{
    const auto& [h, with_cuts] = GetParam();
    const std::vector<std::uint8_t> fresh = lay(h);
    std::optional<rig> r;
    const auto start_over = [&] {
        r.emplace(fresh);
        ASSERT_EQ(r->mount(), 0U);
    };
    start_over();
    unsigned refused = 0;
    inspect::picture now = r->look();
    for (unsigned step = 0; step < steps * 8 / std::max(8U, h.eus); ++step, ++the_tally.random_steps) {
        const operation op = choose(r->files, now.chunks);
        SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(step) + ": " + op.text());
        const std::size_t room = now.space.chunks_after_reclaim, wanted = chunks_wanted(r->files, op);
        contents after = r->files;
        op.apply(after);
        // Among the first changes of the operation, or anywhere in a reclaim; a short operation may end before.
        if (with_cuts && one_in(3))
            r->chip.cut_power(1 + below(one_in(2) ? 8 : 60), below(one_in(2) ? 4 : 4096), low8(random()));
        const std::uint32_t status = op.run();
        const bool was_cut = r->chip.power_is_off();
        r->chip.power_on();
        now = r->look();
        if (was_cut) {
            ++the_tally.random_cuts;
            ASSERT_EQ(r->mount(), 0U);
            if (file_reads_as(after, op.file)) r->files = after;
        } else if (op.what == kind::write && status == afs_status::no_space) {
            ++refused;
            ASSERT_LT(room, wanted) << "refused although there is room";
        } else if (status == afs_status::ok) {
            r->files = after;
        } else {
            const bool is_zombie = op.what == kind::mark_zombie && status == afs_status::bad_state;
            ASSERT_TRUE(is_zombie || (op.what == kind::idle_reclaim && status == afs_status::nothing_gained)) << status;
        }
        ASSERT_TRUE(with_cuts ? clean(now, {frames_only}) : clean(now));
        ASSERT_TRUE(holds(now, r->files));
        ASSERT_FALSE(HasFailure()) << "the chip has a complaint";
        ASSERT_TRUE(!one_in(50) || r->mount() == afs_status::ok);
        ASSERT_TRUE(was_cut || step % 16 == 0 ? reads_as(r->files) : testing::AssertionSuccess());
    }
    EXPECT_TRUE(refused > 0 || h.fill < 100) << "never full";
}

INSTANTIATE_TEST_SUITE_P(Shapes, RandomHistory, testing::Combine(testing::ValuesIn(histories), testing::Bool()));

} // namespace yfs::test::power_cut_random
