// Random histories of an EFS image beside a map in memory, over many geometries; and a medium that fails once at each
// position of each operation.
#include "tests/efs/rig.h"
#include "tests/support/efs_builder.h"
#include "tests/support/volume_builder.h"
#include "yfs/status.h"

#include <random>

namespace yfs::test {
namespace {

using kind = efs_operation::kind;

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
        if (blocks != 0 || at + 4 + size + 1000 > efs::chunk_room) {
            block += blocks + 1;
            at = 0;
        } else {
            at += 4 + size;
        }
    }
    return files;
}

efs_operation random_operation(dice& roll, const std::vector<efs_file_t>& files)
{
    const unsigned file = roll(0, static_cast<std::uint32_t>(files.size()) - 1);
    switch (roll(0, 9)) {
    case 0:
        return {kind::remove, file};
    case 1:
        return {kind::idle};
    default:
        return {kind::write, file, bytes(roll(0, files[file].max_size), roll(0, 1000))};
    }
}

// What the status of an operation must be, by the map and the table.
std::uint32_t expected_status(const efs_operation& op, const efs_contents& files, const efs_table& table)
{
    if (op.what == kind::remove && !files.contains(op.file)) return efs_status::not_found;
    if (op.what != kind::write) return efs_status::ok;
    const std::uint64_t needed = (op.data.size() + 4075 + table.files[op.file].offset) / 4072;
    return needed > table.geo.non_valid_block_num ? efs_status::too_large : efs_status::ok;
}

TEST(EfsRandom, HistoriesBesideAMap)
{
    const unsigned seed = std::random_device{}();
    dice roll{std::mt19937(seed)};
    SCOPED_TRACE("seed " + std::to_string(seed));
    for (unsigned g = 0; g < geometries; ++g) {
        const efs::geometry geo = {roll(2, 6), roll(1, 60), roll(1, 20)};
        const efs_table table(geo, random_files(roll, geo), roll(1, 3) == 1 ? roll(1, 4) : roll(5, 200));
        efs_rig r(table.fresh_image());
        ASSERT_EQ(r.mount(), 0U);
        for (unsigned step = 0; step < steps; ++step) {
            const efs_operation op = random_operation(roll, table.files);
            const std::uint32_t expected = expected_status(op, r.files, table);
            ASSERT_EQ(r.perform(op), expected) << to_string(op) << ", step " << step << " of geometry " << g;
            if (step % 7 == 0) {
                ASSERT_EQ(r.mount(), 0U);
            }
            ASSERT_TRUE(step % 5 != 0 || efs_clean(r.image)) << to_string(op);
            unsigned file = 0;
            if (step % 25 == 0) {
                ASSERT_TRUE(efs_reads_as(r.files, file)) << "file " << file << " after step " << step;
            }
        }
        ASSERT_TRUE(efs_holds(r.image, r.files));
        ASSERT_GT(efs_ctx.bm_sequence, steps / 400) << "no switch in the whole history";
    }
}

struct failing {
    const char* name;
    chip_call call;
    chip_fault how;
    std::uint64_t times;
};
const failing ways[] = {
    {"read fails", chip_call::read, chip_fault::before, 1},
    {"write fails", chip_call::write, chip_fault::before, 1},
    {"write is lost", chip_call::write, chip_fault::silent, 1},
    {"write is garbled", chip_call::write, chip_fault::garbled, 1},
    {"erase fails", chip_call::erase, chip_fault::before, 1},
    {"erase is lost", chip_call::erase, chip_fault::silent, 1},
};

// At each position once: the status is an orderly one, the old or the new
// contents stand, the others are intact, and the image mounts and takes a write.
TEST(EfsFault, EachCallOfEachOperationFailsOnce)
{
    const efs::geometry geo = {2, 7, 3};
    const efs_table table(geo, usual_files(geo), 6);
    efs_rig start(table.fresh_image());
    ASSERT_EQ(start.mount(), 0U);
    for (unsigned i = 0; i < table.files.size(); ++i)
        ASSERT_EQ(start.perform({kind::write, i, bytes(table.files[i].max_size, i)}), 0U);
    while (geo.slot_fits(efs_ctx.bme_offset + geo.bme_bytes())) // the next commit switches
        ASSERT_EQ(start.perform({kind::write, 0, bytes(9, efs_ctx.bme_offset)}), 0U);

    const efs_operation ops[] = {{kind::write, 2, bytes(120, 70)}, {kind::remove, 1}, {kind::idle}};
    for (const failing& way : ways) {
        for (const efs_operation& op : ops) {
            efs_rig sound(start.image);
            ASSERT_EQ(sound.mount(), 0U);
            sound.chip.reset_counters();
            ASSERT_EQ(run(op), 0U);
            const auto& c = sound.chip.counters();
            const auto calls = way.call == chip_call::read    ? c.reads
                               : way.call == chip_call::write ? c.writes
                                                              : c.erases;
            ASSERT_GT(calls, 0U);
            for (std::uint64_t n = 1; n <= calls; ++n) {
                SCOPED_TRACE(std::string(way.name) + ", call " + std::to_string(n) + " of " + to_string(op));
                efs_rig r(start.image);
                r.files = start.files;
                ASSERT_EQ(r.mount(), 0U);
                r.chip.fail(way.call, n, way.how, way.times);
                const std::uint32_t status = run(op);
                r.chip.power_on();
                r.chip.violations_fail_test(false);

                efs_contents after = r.files;
                apply(after, op);
                ASSERT_TRUE(status == 0 || status == 1 || status == efs_status::integrity) << status;
                const auto holds_one = [&] {
                    return efs_file_reads_as(after, op.file) || efs_file_reads_as(start.files, op.file);
                };
                ASSERT_TRUE(holds_one());
                if (status == 0) {
                    ASSERT_TRUE(efs_file_reads_as(after, op.file));
                }
                ASSERT_EQ(EFS_init_tools(r.image.data()), 0U);
                ASSERT_TRUE(holds_one());
                r.files = efs_file_reads_as(after, op.file) ? after : start.files;
                ASSERT_EQ(r.perform({kind::write, 0, bytes(77, 78)}), 0U);
                ASSERT_TRUE(efs_holds(r.image, r.files));
            }
        }
    }
}

} // namespace
} // namespace yfs::test
