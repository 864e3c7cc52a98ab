// Random histories of an EFS image beside a map in memory, over many geometries; and a medium that fails once at each
// position of each operation.
#include "tests/efs/rig.h"

#include <array>
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
    efs_rig start(fresh_image(geo, usual_files(geo), 6));
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
            const std::uint64_t calls = std::array{c.reads, c.writes, c.erases}[static_cast<std::size_t>(way.call)];
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
