// Mount and reads over a medium that misreads, and everything without memory.
#include "tests/support/counted_memory.h"
#include "tests/support/efs_builder.h"
#include "tests/support/efs_chip.h"
#include "tests/support/volume_builder.h"

#include <gtest/gtest.h>

#include <functional>

namespace yfs::test::efs_fault {

using blob = std::vector<std::uint8_t>;

std::uint32_t read()
{
    std::uint32_t length = 5000;
    blob out(5000);
    const auto status = EFS_read(0, 0, &length, out.data());
    EXPECT_TRUE(status == 0 ? out == bytes(5000) : length == 0);
    return status;
}

TEST(EfsFaults, EachTestGetsSevenReads)
{
    // BM 1 in force, two slots, and one in BM 0. File 0 takes two chunks, file 1 has a blank chunk.
    constexpr std::uint32_t bm_1 = 4096, slot_0 = bm_1 + 16, slot_1 = slot_0 + 22, slot_2 = slot_1 + 22;
    use_efs_table({2, 7, 3}, {efs_entry(1, 10, 9000), efs_entry(4, 0, 100)});
    efs_volume v({2, 7, 3});
    efs_image = v.file(EFS_files[0], bytes(5000)).bm(0).bm(1, 2, 2).image.data();
    nor_chip chip(v.image);
    use_efs_chip(&chip);
    const std::uint32_t first = v.area_at(1) + 10, second = v.area_at(2), of_block = v.area_at(4) - 16;
    // Misreads; the slot of the BM in force (41: no mount), whether the next commit switches; statuses of read and
    // size.
    using row = std::tuple<const char*, std::map<std::uint32_t, unsigned>, std::uint32_t, std::uint32_t, std::uint32_t,
                           std::uint32_t>;
    const row cases[] = {
        {"all, six times", {{bm_1, 6}, {slot_1, 7}, {first, 6}, {second + 4, 6}, {of_block, 6}}, 1, 0, 0, 2},
        {"header, seven times", {{bm_1, 7}}, 0, 0, 0, 2},
        // A slot is read with its block, and then by itself.
        {"last slot, eight times", {{slot_1, 8}}, 0, 1, 0, 2},
        {"both slots, seven times", {{slot_0, 7}, {slot_1, 8}}, 0, 1, 0, 2},
        {"both slots, eight times", {{slot_0, 8}, {slot_1, 8}}, 41, 0, 1, 1},
        {"blank slot, five times more", {{slot_2, 6}}, 1, 0, 0, 2},
        {"first chunk, seven times", {{first, 7}}, 1, 0, 41, 2},
        // Every continuation chunk bears the length that stands for no file, and its block is sound.
        {"second chunk, seven times", {{second + 4, 7}}, 1, 0, 2, 2},
        {"block of a blank chunk, seven times", {{of_block, 7}}, 1, 0, 0, 41},
    };
    for (const auto& [name, misread, slot, force, read_status, size_status] : cases) {
        SCOPED_TRACE(name);
        chip.misreads = misread;
        const auto status = EFS_init(0);
        EXPECT_EQ(status == 0 ? (efs_ctx.bme_offset - 16) / 22 : status, slot);
        EXPECT_EQ(efs_ctx.force_bm_switch, force);
        EXPECT_EQ(read(), read_status);
        std::uint32_t size = 0;
        EXPECT_EQ(EFS_get_file_size(1, &size), size_status);
        for (const auto& [at, times] : chip.misreads) EXPECT_EQ(times, 0U) << at;
    }
    chip.misreads.clear();
    ASSERT_EQ(EFS_init(0), 0U);
    chip.reset_counters();
    EXPECT_EQ(read(), 0U);
    EXPECT_EQ(chip.counters().reads, 4U) << "header and payload of two chunks, nothing else";
    for (unsigned n = 1; n <= 4; ++n) {
        chip.fail(chip_call::read, n, chip_fault::before);
        EXPECT_EQ(read(), 1U) << n;
    }
    EXPECT_EQ(chip.counters().reads, 4U + 0 + 1 + 2 + 3);
    chip.fail(chip_call::read, 3, chip_fault::before); // both headers, then the block
    EXPECT_EQ(EFS_init(0), 1U);
    use_efs_chip(nullptr);
}

TEST(EfsFaults, WithoutMemoryNothingLeaksAndNothingDangles)
{
    const blob table = make_autogen_table();
    const std::function<std::uint32_t()> calls[] = {
        [&] { return load_autogen_data(table.data(), 8, static_cast<std::uint32_t>(table.size())); },
        [] { return EFS_init(1); },
        [&] { return EFS_write(0, 0, 6, table.data()); },
        [] { return EFS_delete(0); },
        [] { return EFS_wear_leveling(0, 0); },
        [] { return EFS_do_format(); },
        [] { return EFS_init(0); },
    };
    for (const auto& call : calls) ASSERT_EQ(call(), 0U);
    const std::int64_t live = live_blocks;
    for (const auto& call : calls) {
        unsigned n = 0;
        do {
            fail_allocation(++n);
            const auto status = call();
            EXPECT_EQ(status, allocation_failed ? 12U : 0U);
            EXPECT_TRUE(status == 0 || EFS_is_initialized() != 0 || efs_ctx.block_status == nullptr);
        } while (allocation_failed && n < 20);
        EXPECT_GT(n, 1U);
        EXPECT_EQ(live_blocks, live);
    }
    std::uint32_t size = 0;
    fail_allocation(1);
    EXPECT_EQ(EFS_get_file_size(0, &size), 2U);
    EXPECT_FALSE(allocation_failed) << "a read allocates nothing";
}

} // namespace yfs::test::efs_fault
