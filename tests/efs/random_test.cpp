// Random histories of an EFS image beside a map in memory, over many geometries.
#include "tests/efs/rig.h"

#include <random>

namespace yfs::test {
namespace {

#ifdef NDEBUG
constexpr unsigned geometries = 60, steps = 1500;
#else
constexpr unsigned geometries = 10, steps = 300;
#endif

std::mt19937 s_engine;
std::uint32_t roll(std::uint32_t from, std::uint32_t to)
{
    return std::uniform_int_distribution<std::uint32_t>(from, to)(s_engine);
}

// Three files in every fourth block; the last is a long one where there are blocks for it.
std::vector<efs_file_t> random_files(const efs::geometry& geo)
{
    std::vector<efs_file_t> files;
    for (std::uint32_t block = 0; block < geo.valid_block_num && files.size() < 12; block += 4) {
        const std::uint32_t first = roll(0, 900), second = roll(0, 900), at = first + second + 8;
        const std::uint32_t room = efs::chunk_room - at, longest = block + 4 < geo.valid_block_num ? 12000 : room;
        files.insert(files.end(), {efs_entry(block, 0, first), efs_entry(block, first + 4, second),
                                   efs_entry(block, at, roll(0, roll(0, 1) != 0 ? longest : 900))});
    }
    return files;
}

TEST(EfsRandom, HistoriesBesideAMap)
{
    const unsigned seed = std::random_device{}();
    s_engine.seed(seed);
    SCOPED_TRACE("seed " + std::to_string(seed));
    for (unsigned g = 0; g < geometries; ++g) {
        const efs::geometry geo = {roll(2, 6), roll(1, 60), roll(1, 20)};
        efs_rig r(fresh_image(geo, random_files(geo), roll(1, 3) == 1 ? roll(1, 4) : roll(5, 200)));
        ASSERT_EQ(r.mount(), 0U);
        for (unsigned step = 0; step < steps; ++step) {
            const unsigned file = roll(0, g_efs_files_num - 1), dive = roll(0, 9);
            efs_operation op{dive == 0 ? efs_call::remove : dive == 1 ? efs_call::idle : efs_call::write, file};
            std::uint32_t expected = dive == 0 && !r.files.contains(file) ? efs_status::not_found : efs_status::ok;
            if (dive > 1) {
                op.data = bytes(roll(0, EFS_files[file].max_size), roll(0, 1000));
                const std::uint64_t needed = (op.data.size() + 4075 + EFS_files[file].offset) / 4072;
                if (needed > geo.non_valid_block_num) expected = efs_status::too_large;
            }
            ASSERT_EQ(r.perform(op), expected) << op << ", step " << step << " of geometry " << g;
            ASSERT_TRUE(step % 7 != 0 || r.mount() == 0);
            ASSERT_EQ(step % 5 == 0 ? r.trouble() : "", "") << op << ", step " << step << " of geometry " << g;
        }
        ASSERT_GT(efs_ctx.bm_sequence, steps / 400) << "no switch in the whole history";
    }
}

} // namespace
} // namespace yfs::test
