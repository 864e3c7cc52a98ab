// The changing side of EFS: a format, statuses in their order, the scan and its repair, wear levelling
// and its ties, the switch to the next map, background work.
#include "tests/efs/rig.h"

#include <cstring>
#include <optional>

namespace yfs::test::efs_change {

constexpr efs::geometry usual = {2, 7, 3};

class EfsChange : public testing::Test {
protected:
    // An image whose data blocks were erased as often as `counts` tells, mounted.
    void start(const std::vector<std::uint32_t>& counts = {})
    {
        efs_volume v(usual);
        v.image = fresh_image(usual, usual_files(usual), 9);
        for (unsigned p = 0; p < counts.size(); ++p) v.block_header(p, counts[p]);
        rig_.emplace(v.image);
        rig_->chip.keep_journal(true);
        ASSERT_EQ(rig_->mount(), 0U);
    }
    std::uint32_t write(std::uint32_t size) { return rig_->perform({efs_call::write, 0, bytes(size, size)}); }
    std::uint8_t* block(std::uint32_t physical) { return rig_->image.data() + usual.data_block_at(physical); }
    std::size_t changes() const { return rig_->chip.journal().size(); }

    std::optional<efs_rig> rig_;
};

TEST_F(EfsChange, FormatGivesTheSameBytesByEveryWay)
{
    use_efs_table(usual, {efs_entry(0, 0, 50), efs_entry(1, 4072, 0), efs_entry(9, 0, 50)});
    efs_volume v(usual);
    v.bm(0).chunk(0, 0, efs::no_file, {}).chunk(1, 4072, efs::no_file, {});
    blob made(49152, 7);
    ASSERT_EQ(yfs_make_efs(made.data(), 49152), 0U);
    EXPECT_EQ(made, v.image);
    ASSERT_EQ(EFS_init(1), 0U);
    EXPECT_EQ(blob(efs_image, efs_image + efs_size), made);

    EXPECT_EQ(yfs_make_efs(nullptr, 49152) + yfs_make_efs(made.data(), 49151), 44U);
    EFS_files[1].offset = 4073;
    EXPECT_EQ(yfs_make_efs(made.data(), 49152) + EFS_init(1), 198U);
    EXPECT_TRUE(made == v.image && EFS_is_initialized() == 0);
}

TEST_F(EfsChange, StatusesInTheirOrder)
{
    // Offset, size, status, and whether it comes to the scan.
    using row = std::tuple<const char*, efs_file_t, std::uint32_t, std::uint32_t, std::uint32_t, bool>;
    for (const auto& [name, entry, offset, size, status, scanned] :
         {row{"at an offset", efs_entry(0, 0, 300), 1, 5, 22, false},
          row{"not in use", {0, 0, 300, 0, 0}, 0, 5, 22, false},
          row{"header behind its area", efs_entry(0, 4073, 300), 0, 5, 41, false},
          row{"above the largest", efs_entry(0, 0, 300), 0, 301, 34, true},
          row{"the length of no file", efs_entry(0, 0, 0xFFFF), 0, 0xFFFF, 34, true},
          row{"one byte for four blocks", efs_entry(0, 0, 0xFFFF), 0, 3 * 4072 - 3, 34, true},
          row{"three blocks", efs_entry(0, 0, 0xFFFF), 0, 3 * 4072 - 4, 0, true},
          row{"past the last block", efs_entry(6, 4000, 5000), 0, 100, 22, true}}) {
        start();
        EFS_files[0] = entry;
        EXPECT_EQ(EFS_write(0, offset, size, bytes(0xFFFF).data()), status) << name;
        EXPECT_EQ(efs_ctx.scan_done != 0, scanned) << name;
    }
    start();
    const auto all = [](std::uint32_t wanted, auto... status) { return ((status == wanted) && ...); };
    EXPECT_TRUE(all(22, EFS_write(0, 0, 1, nullptr), EFS_delete(99), EFS_write_with_read_check(0, 4097, block(0), 0),
                    EFS_check_next_BM_state(2), EFS_erase_next_BM(2), EFS_select_free_page_for_write(nullptr),
                    EFS_write_with_read_check(0, 1, nullptr, 0), EFS_write_data_block(0, nullptr),
                    EFS_write_data_block(10, block(0)), EFS_write_data_footer(0, nullptr),
                    EFS_write_data_footer(10, block(0)), EFS_erase_data_block(10, 0)));
    std::uint32_t position = 0;
    efs_bme_t* const bme = &efs_ctx.current_bme;
    efs_bme_t twice = *bme, half = *bme, none{}; // names the blocks of the first table twice
    twice.non_valid_table = twice.valid_table;
    half.non_valid_table = nullptr;
    EXPECT_TRUE(all(
        22, EFS_commit_BME(&none, 0, 0), EFS_switch_BM(&half), EFS_bme_swap_and_write_new_block(bme, 0, nullptr),
        EFS_bme_swap_and_write_new_block(bme, 7, block(0)), EFS_bme_swap_and_write_new_block(nullptr, 0, block(0))));
    EXPECT_TRUE(all(22, EFS_commit_BME(&twice, 0, 0), EFS_switch_BM(&twice), EFS_switch_BM(nullptr),
                    EFS_bme_swap_and_write_new_block(&twice, 0, block(0)), EFS_commit_BME(nullptr, 0, 0)));
    g_efs_layout_id = 1; // mounted for another layout
    EXPECT_TRUE(all(1, EFS_write(0, 0, 1, block(0)), EFS_delete(0), EFS_commit_BME(bme, 0, 0), EFS_switch_BM(bme),
                    EFS_bme_swap_and_write_new_block(bme, 0, block(0)), EFS_erase(), EFS_wear_leveling(0, 0),
                    EFS_select_free_page_for_write(&position), EFS_erase_dirty_block(), EFS_idle_reclaim(),
                    EFS_scan_for_Data_Blocks_status_and_EC(), EFS_check_next_BM_state(0), EFS_erase_next_BM(0),
                    EFS_erase_data_block(0, 0), EFS_write_data_block(0, block(0)), EFS_write_data_footer(0, block(0)),
                    EFS_do_format(), EFS_write_RTFD_marker()));
    EXPECT_EQ(changes(), 0U);
}

// Counts that don't fit their bytes, and no map at all: nothing is mounted, formatted or touched.
TEST_F(EfsChange, GeometriesThatTheFormatCantCarry)
{
    start();
    for (const efs::geometry& geo : {efs::geometry{0, 7, 3}, {256, 7, 3}, {2, 256, 0}, {2, 0, 256}, {2, 200, 57}}) {
        use_efs_table(geo, {efs_entry(0, 0, 9)});
        EXPECT_TRUE(rig_->mount() == 41 && EFS_do_format() == 41 && yfs_make_efs(block(0), EFS_get_efs_size()) == 41);
        if (geo.bm_num == 0) continue;
        for (const std::uint32_t status :
             {EFS_erase_data_block(0, 0), EFS_write_data_block(0, block(0)), EFS_write_data_footer(0, block(0)),
              EFS_check_next_BM_state(0), EFS_erase_next_BM(0)})
            EXPECT_EQ(status, 22U);
    }
    EXPECT_EQ(changes(), 0U);
}

// What it tells of free and dirty spares is compared with the second reader wherever files are.
TEST_F(EfsChange, TheScanMendsOneSpareAndNoMore)
{
    start({5, 5, 5, 5, 5, 5, 5, 5, 99, 13});
    std::memset(block(8), 0xFF, 900);
    EXPECT_EQ(EFS_scan_for_Data_Blocks_status_and_EC(), 0U);
    EXPECT_EQ(efs_ctx.block_ec[8], 5U) << "the mean of the others, truncated";
    EXPECT_EQ(rig_->trouble(), "");
    for (const std::uint32_t spare : {8U, 9U}) std::memset(block(spare), 0xFF, 16);
    EXPECT_EQ(EFS_scan_for_Data_Blocks_status_and_EC(), 41U) << "one cut leaves one";
    EXPECT_TRUE(efs_ctx.block_status[1] == 1 && efs_ctx.block_status[2] == 1) << "told as free before";
    start();
    std::memset(block(3), 0, 2);
    EXPECT_TRUE(write(1) == 41 && efs_ctx.scan_done == 0) << "a block in use";
}

TEST_F(EfsChange, BlocksGoByTheirWear)
{
    start({5, 5, 5, 5, 5, 5, 5, 9, 4, 4});
    std::uint32_t position = 0;
    EXPECT_EQ(EFS_erase_dirty_block(), 41U) << "none is dirty";
    EXPECT_TRUE(EFS_select_free_page_for_write(&position) == 0 && position == 1);
    rig_->chip.fail(chip_call::write, 1, chip_fault::silent);
    EXPECT_TRUE(EFS_erase_data_block(9, 4) == 41 && changes() == 0) << "its header would pass after a cut";
    ASSERT_EQ(EFS_scan_for_Data_Blocks_status_and_EC(), 0U);
    std::memset(efs_ctx.block_status, 1, 3);
    EXPECT_EQ(EFS_select_free_page_for_write(&position), 41U);
    EXPECT_TRUE(EFS_erase_dirty_block() == 0 && efs_ctx.block_status[1] == 2) << "the least worn, the lower position";
    start({10, 10, 11, 10, 11, 11, 11, 20, 20, 10});
    EXPECT_TRUE(EFS_wear_leveling(0, 0) == 0 && efs_ctx.current_bme.valid_table[3] == 8) << "the last of equals, twice";
}

TEST_F(EfsChange, SwitchesAndTheEndOfTheMaps)
{
    start();
    rig_->image[4096 + 100] = 0; // the next BM isn't blank
    efs_ctx.bme_offset = 2856 - 22;
    EXPECT_TRUE(EFS_idle_reclaim() == 0 && changes() == 0);
    ++efs_ctx.bme_offset;
    rig_->chip.fail(chip_call::write, 1, chip_fault::before, 2);
    EXPECT_TRUE(EFS_idle_reclaim() == 1 && EFS_switch_BM(&efs_ctx.current_bme) == 1) << "the medium's own status";
    EXPECT_TRUE(EFS_idle_reclaim() == 0 && changes() == 2) << "its crc, its erase";
    start();
    efs_ctx.force_bm_switch = 1;
    ASSERT_EQ(write(4), 0U);
    EXPECT_EQ(efs_ctx.current_bm, 1U);
    EXPECT_EQ(efs_ctx.bm_sequence, 2U);
    EXPECT_EQ(blob(rig_->image.begin(), rig_->image.begin() + 16), blob(16, 0)) << "retired";
    efs_ctx.bm_sequence = 0xFFFFFFFF; // appends go on, only the switch fails
    EXPECT_EQ(write(5), 0U);
    efs_ctx.force_bm_switch = 1;
    EXPECT_EQ(write(6), 5U);
    const auto before = changes();
    EXPECT_TRUE(EFS_erase() == 0 && changes() == before + 4);
    EXPECT_EQ(rig_->chip.journal().back().addr, 4096U) << "the map in force goes last";
    EXPECT_EQ(rig_->mount(), 41U);
    const auto mounted = changes();
    EXPECT_TRUE(EFS_erase() == 0 && changes() > mounted) << "without a mount too";
    EXPECT_TRUE(EFS_do_format() == 0 && rig_->mount() == 0);
    rig_->chip.plain_copy(true);
    rig_->chip.violations_fail_test(false);
    ASSERT_EQ(EFS_write_RTFD_marker(), 0U);
    EXPECT_EQ(read_mounted(), efs_contents()) << "the mount goes on";
    EXPECT_EQ(rig_->mount(), 41U);

    efs_rig only(fresh_image({1, 3, 2}, {efs_entry(0, 0, 9)}, 9));
    ASSERT_EQ(only.mount(), 0U);
    efs_ctx.force_bm_switch = 1;
    EXPECT_EQ(only.perform({efs_call::write, 0, bytes(4)}), 41U) << "it would erase the only map";
    efs_ctx.bme_offset = 3000;
    EXPECT_EQ(EFS_idle_reclaim(), 41U);
    EXPECT_EQ(only.mount(), 0U);
}

} // namespace yfs::test::efs_change
