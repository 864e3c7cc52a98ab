// Random histories of an EFS image beside a map in memory, over many geometries; and a medium that fails once at each
// position of each operation.
#include "tests/efs/rig.h"

#include <random>

namespace yfs::test {
namespace {

#ifdef NDEBUG
constexpr unsigned geometries = 60, steps = 1500;
#else
constexpr unsigned geometries = 10, steps = 300;
#endif

struct dice {
    std::mt19937 engine;
    std::uint32_t operator()(std::uint32_t from, std::uint32_t to)
    {
        return std::uniform_int_distribution<std::uint32_t>(from, to)(engine);
    }
};

// Files side by side, as many as fit, of all sizes.
std::vector<efs_file_t> random_files(dice& roll, const efs::geometry& geo)
{
    std::vector<efs_file_t> files;
    std::uint32_t block = 0, at = 0;
    while (files.size() < 12 && block < geo.valid_block_num) {
        const std::uint32_t room = efs::chunk_room - at;
        const bool large = roll(0, 5) == 0 && geo.non_valid_block_num > 4;
        std::uint32_t size = large ? roll(0, 3) * efs::chunk_room + roll(0, room) : roll(0, std::min(room, 900U));
        const std::uint32_t blocks = size <= room ? 0 : (size - room + efs::chunk_room - 1) / efs::chunk_room;
        if (block + blocks >= geo.valid_block_num) size = std::min(size, room);
        files.push_back(efs_entry(block, at, size));
        const bool full = blocks != 0 || at + 4 + size + 1000 > efs::chunk_room;
        block += full ? blocks + 1 : 0;
        at = full ? 0 : at + 4 + size;
    }
    return files;
}

TEST(EfsRandom, HistoriesBesideAMap)
{
    const unsigned seed = std::random_device{}();
    dice roll{std::mt19937(seed)};
    SCOPED_TRACE("seed " + std::to_string(seed));
    for (unsigned g = 0; g < geometries; ++g) {
        const efs::geometry geo = {roll(2, 6), roll(1, 60), roll(1, 20)};
        use_efs_table(geo, random_files(roll, geo), 0, roll(1, 3) == 1 ? roll(1, 4) : roll(5, 200));
        blob image(EFS_get_efs_size());
        ASSERT_EQ(yfs_make_efs(image.data(), EFS_get_efs_size()), 0U);
        efs_rig r(std::move(image));
        ASSERT_EQ(r.mount(), 0U);
        for (unsigned step = 0; step < steps; ++step) {
            const unsigned file = roll(0, g_efs_files_num - 1), dive = roll(0, 9);
            efs_operation op{dive == 0 ? efs_call::remove : dive == 1 ? efs_call::idle : efs_call::write, file};
            if (dive > 1) op.data = bytes(roll(0, EFS_files[file].max_size), roll(0, 1000));
            const std::uint64_t needed = (op.data.size() + 4075 + EFS_files[file].offset) / 4072;
            std::uint32_t expected = efs_status::ok;
            if (dive == 0 && !r.files.contains(file)) expected = efs_status::not_found;
            if (dive > 1 && needed > geo.non_valid_block_num) expected = efs_status::too_large;
            ASSERT_EQ(r.perform(op), expected) << op << ", step " << step << " of geometry " << g;
            if (step % 7 == 0) {
                ASSERT_EQ(r.mount(), 0U);
            }
            if (step % 5 == 0) {
                ASSERT_EQ(r.trouble(), "") << op << ", step " << step << " of geometry " << g;
            }
        }
        ASSERT_GT(efs_ctx.bm_sequence, steps / 400) << "no switch in the whole history";
    }
}

// At each position once: the status is an orderly one, the old or the new contents stand, the others are intact, and
// the image mounts and takes a write. Six bad reads in a row do no harm at all.
TEST(EfsFault, EachCallOfEachOperationFailsOnce)
{
    const struct {
        const char* name;
        chip_call call;
        chip_fault how;
        std::uint64_t times;
    } ways[] = {
        {"read fails", chip_call::read, chip_fault::before, 1},
        {"reads are garbled, six times", chip_call::read, chip_fault::garbled, 6},
        {"reads are garbled, seven times", chip_call::read, chip_fault::garbled, 7},
        {"write fails", chip_call::write, chip_fault::before, 1},
        {"write is lost", chip_call::write, chip_fault::silent, 1},
        {"write is garbled", chip_call::write, chip_fault::garbled, 1},
        {"erase fails", chip_call::erase, chip_fault::before, 1},
        {"erase is lost", chip_call::erase, chip_fault::silent, 1},
    };
    const efs::geometry geo = {2, 7, 3};
    efs_rig start(fresh_image(geo, 6));
    ASSERT_EQ(start.mount(), 0U);
    for (unsigned i = 0; i < g_efs_files_num; ++i)
        ASSERT_EQ(start.perform({efs_call::write, i, bytes(EFS_files[i].max_size, i)}), 0U);
    while (geo.slot_fits(efs_ctx.bme_offset + geo.bme_bytes())) // the next commit switches
        ASSERT_EQ(start.perform({efs_call::write, 0, bytes(9, efs_ctx.bme_offset)}), 0U);

    const efs_operation ops[] = {{efs_call::write, 2, bytes(120, 70)}, {efs_call::remove, 1}, {efs_call::idle}};
    for (const auto& way : ways) {
        for (const efs_operation& op : ops) {
            efs_rig sound(start.image, start.files);
            ASSERT_EQ(sound.mount(), 0U);
            sound.chip.reset_counters();
            ASSERT_EQ(sound.perform(op), 0U);
            const auto& c = sound.chip.counters();
            const auto calls = way.call == chip_call::read    ? c.reads
                               : way.call == chip_call::write ? c.writes
                                                              : c.erases;
            ASSERT_GT(calls, 0U);
            for (std::uint64_t n = 1; n <= calls; ++n) {
                SCOPED_TRACE(testing::Message() << way.name << ", call " << n << ", " << op);
                efs_rig r(start.image, start.files);
                ASSERT_EQ(r.mount(), 0U);
                r.chip.fail(way.call, n, way.how, way.times);
                const std::uint32_t status = run(op);
                r.chip.power_on();
                r.chip.violations_fail_test(false);
                ASSERT_TRUE(status == 0 || (way.times != 6 && (status == 1 || status == 41))) << status;
                for (const bool again : {false, true}) {
                    ASSERT_TRUE(!again || r.mount() == 0);
                    r.files = read_mounted();
                    ASSERT_TRUE(r.files == sound.files || (status != 0 && r.files == start.files));
                }
                ASSERT_EQ(r.perform({efs_call::write, 0, bytes(77, 78)}), 0U);
                ASSERT_EQ(r.trouble(true), "");
            }
        }
    }
}

} // namespace
} // namespace yfs::test
