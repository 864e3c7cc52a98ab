// The changing side of EFS: literal bytes of a format, statuses in their order, where blocks and maps go, the scan and
// its repair, wear levelling and its ties, background work.
#include "tests/efs/rig.h"
#include "tests/support/efs_builder.h"
#include "tests/support/volume_builder.h"
#include "yfs/make_efs.h"
#include "yfs/status.h"

#include <cstring>
#include <functional>
#include <optional>

namespace yfs::test {
namespace {

using kind = efs_operation::kind;
using blob = std::vector<std::uint8_t>;

constexpr efs::geometry usual = {2, 7, 3};

class EfsChange : public testing::Test {
protected:
    // A fresh image, mounted, every file but the last written.
    void start(const efs::geometry& geo = usual, std::uint32_t threshold = 1000000)
    {
        table_.emplace(geo, usual_files(geo), threshold);
        rig_.emplace(table_->fresh_image());
        ASSERT_EQ(rig_->mount(), 0U);
        for (unsigned i = 0; i + 1 < table_->files.size(); ++i)
            ASSERT_EQ(rig_->perform({kind::write, i, bytes(20 + i, i)}), 0U);
    }
    void TearDown() override
    {
        rig_.reset();
        table_.reset();
    }
    std::uint32_t write(unsigned file, std::uint32_t size, std::uint32_t offset = 0)
    {
        const blob data = bytes(size + 1, size);
        return EFS_write(file, offset, size, data.data());
    }
    std::uint8_t* block(std::uint32_t physical) { return rig_->image.data() + table_->geo.data_block_at(physical); }
    void set_count(std::uint32_t physical, std::uint32_t count)
    {
        efs::efs_block_header_t header{};
        header.erase_count = count;
        const blob covered(reinterpret_cast<std::uint8_t*>(&header), reinterpret_cast<std::uint8_t*>(&header) + 12);
        header.crc = plain_crc32(covered);
        std::memcpy(block(physical), &header, sizeof header);
    }
    std::uint32_t spare(std::uint32_t position) const { return efs_ctx.current_bme.non_valid_table[position]; }
    std::size_t changes_since(const std::function<void()>& what)
    {
        rig_->chip.clear_journal();
        rig_->chip.keep_journal(true);
        what();
        rig_->chip.keep_journal(false);
        return rig_->chip.journal().size();
    }

    std::optional<efs_table> table_;
    std::optional<efs_rig> rig_;
};

TEST_F(EfsChange, FormatGivesTheLiteralBytesByEveryWay)
{
    const efs_table table(usual, {efs_entry(0, 0, 50), efs_entry(1, 4072, 0), efs_entry(9, 0, 50)}, 100);
    const blob made = table.fresh_image();
    const blob header = {1, 0, 0, 0, 1, 0, 0, 0, 2, 7, 3, 0, 0x3C, 0xC1, 0x64, 0xD3};
    const blob entry = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0x9D, 0xFE, 0x8A, 0x6C};
    const blob erased_once = {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x6F, 0x4C, 0xA5, 0x9B};
    EXPECT_TRUE(std::equal(header.begin(), header.end(), made.begin()));
    EXPECT_TRUE(std::equal(entry.begin(), entry.end(), made.begin() + 16));
    for (std::uint32_t p = 0; p < 10; ++p)
        EXPECT_TRUE(std::equal(erased_once.begin(), erased_once.end(), made.begin() + usual.data_block_at(p))) << p;
    const blob no_file = {0xFF, 0xFF, 0x0F, 0x1D}, in_block_1 = {0xFF, 0xFF, 0x2E, 0x0D};
    EXPECT_TRUE(std::equal(no_file.begin(), no_file.end(), made.begin() + usual.data_block_at(0) + 16));
    EXPECT_TRUE(std::equal(in_block_1.begin(), in_block_1.end(), made.begin() + usual.data_block_at(1) + 16 + 4072));

    nor_chip chip(const_cast<blob&>(made));
    ASSERT_EQ(EFS_init(1), 0U);
    EXPECT_EQ(blob(efs_image, efs_image + efs_size), made);
    std::uint32_t size = 0;
    EXPECT_EQ(EFS_get_file_size(0, &size), 2U);
    EXPECT_EQ(EFS_delete(1), 2U);
    EXPECT_EQ(EFS_get_file_size(2, &size), 22U);
    EXPECT_EQ(efs_ctx.bme_offset, 16U);

    blob other(made.size(), 7);
    EXPECT_EQ(yfs_make_efs(nullptr, 49152), 22U);
    EXPECT_EQ(yfs_make_efs(other.data(), 49151), 22U);
    EFS_files[1].offset = 4073;
    EXPECT_EQ(yfs_make_efs(other.data(), 49152), 99U);
    EXPECT_EQ(other, blob(made.size(), 7));
    EXPECT_EQ(EFS_init(1), 99U);
    EXPECT_EQ(EFS_is_initialized(), 0);
}

TEST_F(EfsChange, StatusesOfWriteAndDelete)
{
    start();
    const unsigned last = static_cast<unsigned>(table_->files.size()) - 1;
    const std::uint8_t byte = 0;
    EXPECT_EQ(EFS_write(99, 0, 1, &byte), 22U);
    EXPECT_EQ(EFS_write(0, 0, 0, nullptr), 22U);
    ASSERT_EQ(rig_->mount(), 0U);
    EXPECT_EQ(changes_since([&] { EXPECT_EQ(write(0, 5, 1), 22U); }), 0U);
    EXPECT_EQ(efs_ctx.scan_done, 0) << "an argument out of range comes before the scan";
    EXPECT_EQ(write(0, table_->files[0].max_size + 1U), 34U);
    EXPECT_EQ(efs_ctx.scan_done, 1) << "a size out of range comes after it";
    EXPECT_EQ(EFS_delete(99), 22U);
    while (efs_ctx.free_block_count < 3) ASSERT_EQ(EFS_idle_reclaim(), 0U);
    EXPECT_EQ(changes_since([&] { EXPECT_EQ(EFS_delete(last), 2U); }), 0U) << "never written";
    EXPECT_EQ(write(last, 0), 0U);
    EXPECT_EQ(EFS_delete(last), 0U);
    EXPECT_EQ(EFS_delete(last), 2U);

    table_->files[0].flags = 0;
    EXPECT_EQ(write(0, 1), 22U);
    table_->files[0] = efs_entry(0, 4073, 10);
    EXPECT_EQ(write(0, 1), 41U);
    EXPECT_EQ(EFS_delete(0), 41U);
    table_->files[0] = efs_entry(6, 4000, 5000);
    EXPECT_EQ(write(0, 100), 22U) << "it would run past the last logical block";
    table_->files[0] = efs_entry(0, 0, 0xFFFF);
    EXPECT_EQ(write(0, 0xFFFF), 34U);
    EXPECT_EQ(changes_since([&] { EXPECT_EQ(write(0, 3 * 4072), 34U); }), 0U) << "four blocks asked for, three spares";
    EXPECT_EQ(write(0, 3 * 4072 - 4), 0U) << "three";

    g_efs_valid_block_num = 8;
    EXPECT_EQ(write(0, 1), 1U) << "mounted for another geometry";
    EXPECT_EQ(EFS_delete(0), 1U);
    EXPECT_EQ(EFS_erase(), 1U);
    g_efs_valid_block_num = 7;
    EXPECT_EQ(write(0, 1), 0U);
}

TEST_F(EfsChange, BeforeAMountNothingIsTouched)
{
    const efs_table table(usual, usual_files(usual), 100);
    EFS_init(0); // there is no image
    std::uint8_t tables[16] = {};
    efs_bme_t bme = {tables, tables, 0, 0, 0};
    const blob data_area(4076);
    std::uint32_t position = 77;
    EXPECT_EQ(EFS_select_free_page_for_write(&position), 1U);
    EXPECT_EQ(EFS_bme_swap_and_write_new_block(&bme, 0, data_area.data()), 1U);
    EXPECT_EQ(EFS_commit_BME(&bme, 0, 0), 1U);
    EXPECT_EQ(EFS_switch_BM(&bme), 1U);
    EXPECT_EQ(EFS_erase_dirty_block(), 1U);
    EXPECT_EQ(EFS_scan_for_Data_Blocks_status_and_EC(), 1U);
    EXPECT_EQ(EFS_wear_leveling(0, 0), 1U);
    EXPECT_EQ(EFS_idle_reclaim(), 1U);
    EXPECT_EQ(EFS_erase(), 1U);
    EXPECT_EQ(EFS_write_RTFD_marker(), 1U);
    EXPECT_EQ(EFS_write_with_read_check(0, 4097, data_area.data(), 0), 22U);
    EXPECT_EQ(EFS_check_next_BM_state(2), 22U);
    EXPECT_EQ(EFS_erase_next_BM(2), 22U);
    EXPECT_EQ(position, 77U);
}

TEST_F(EfsChange, ACommitFillsTheMapAndGoesOnToTheNext)
{
    start();
    while (efs_ctx.bme_offset != 16 + 184 * 22) ASSERT_EQ(write(0, 3), 0U);
    EXPECT_EQ(efs_ctx.bm_sequence, 1U);
    ASSERT_EQ(write(0, 4), 0U);
    EXPECT_EQ(efs_ctx.current_bm, 1U);
    EXPECT_EQ(efs_ctx.bm_sequence, 2U);
    EXPECT_EQ(efs_ctx.bme_offset, 16U);
    EXPECT_EQ(blob(rig_->image.begin(), rig_->image.begin() + 16), blob(16, 0)) << "retired";

    // The end of the sequence numbers: appends go on, only the switch fails.
    efs_ctx.bm_sequence = 0xFFFFFFFF;
    ASSERT_EQ(write(0, 5), 0U);
    efs_ctx.force_bm_switch = 1;
    EXPECT_EQ(write(0, 6), 5U);
    EXPECT_EQ(efs_ctx.force_bm_switch, 1);
    rig_->files[0] = bytes(6, 5);
    rig_->files[0].resize(5);
    EXPECT_TRUE(efs_file_reads_as(rig_->files, 0));
}

TEST_F(EfsChange, AFailedAppendSwitchesNextTime)
{
    start();
    while (efs_ctx.free_block_count < 3) ASSERT_EQ(EFS_idle_reclaim(), 0U);
    const std::uint32_t offset = efs_ctx.bme_offset;
    rig_->chip.fail(chip_call::write, 3, chip_fault::before); // data area, footer, entry
    EXPECT_NE(write(0, 10), 0U);
    EXPECT_EQ(efs_ctx.force_bm_switch, 1);
    EXPECT_EQ(efs_ctx.bme_offset, offset);
    EXPECT_TRUE(efs_file_reads_as(rig_->files, 0));
    ASSERT_EQ(write(0, 11), 0U);
    EXPECT_EQ(efs_ctx.current_bm, 1U);
    EXPECT_EQ(efs_ctx.force_bm_switch, 0);
}

TEST_F(EfsChange, OneMapCannotSwitch)
{
    start({1, 3, 2});
    while (table_->geo.slot_fits(efs_ctx.bme_offset + table_->geo.bme_bytes())) ASSERT_EQ(write(0, 3), 0U);
    EXPECT_EQ(write(0, 4), 41U);
    EXPECT_EQ(EFS_idle_reclaim(), 41U) << "an erase ahead of need";
    EXPECT_EQ(EFS_init_tools(rig_->image.data()), 0U);
    rig_->files[0] = bytes(4, 3);
    rig_->files[0].resize(3);
    EXPECT_TRUE(efs_file_reads_as(rig_->files, 0));
}

TEST_F(EfsChange, TheScanTellsFreeFromDirtyAndMendsOneSpare)
{
    struct row {
        const char* name;
        std::function<void(std::uint8_t*)> damage; // of the spare at position 1
        std::uint32_t status, free, count;
    };
    const auto fill = [](std::uint32_t at, std::uint32_t length, std::uint8_t value) {
        return [=](std::uint8_t* block) { std::memset(block + at, value, length); };
    };
    for (const row& r :
         {row{"free", fill(0, 0, 0), 0, 3, 5}, row{"a byte written", fill(4000, 1, 0x7F), 0, 2, 5},
          row{"only the footer", fill(4095, 1, 0), 0, 2, 5}, row{"blank header", fill(0, 16, 0xFF), 0, 3, 5},
          row{"torn erase", fill(0, 900, 0xFF), 0, 3, 5}, row{"zeroed crc", fill(12, 4, 0), 0, 3, 5}}) {
        SCOPED_TRACE(r.name);
        table_.emplace(usual, usual_files(usual), 1000);
        rig_.emplace(table_->fresh_image());
        for (std::uint32_t p = 0; p < 10; ++p) set_count(p, 5);
        ASSERT_EQ(EFS_init_tools(rig_->image.data()), 0U);
        r.damage(block(8));
        EXPECT_EQ(EFS_scan_for_Data_Blocks_status_and_EC(), r.status);
        EXPECT_EQ(efs_ctx.free_block_count, r.free);
        EXPECT_EQ(efs_ctx.block_ec[8], r.count);
        EXPECT_EQ(load<le32>(block(8)), r.count) << "as its header tells it";
    }
    std::memset(block(8), 0xFF, 16);
    std::memset(block(9), 0xFF, 16);
    const blob before = rig_->image;
    EXPECT_EQ(EFS_scan_for_Data_Blocks_status_and_EC(), 41U) << "one cut leaves one";
    EXPECT_EQ(rig_->image, before);
    set_count(8, 5);
    set_count(9, 5);
    std::memset(block(3), 0, 2);
    EXPECT_EQ(write(0, 1), 41U) << "a block in use";
    EXPECT_EQ(efs_ctx.scan_done, 0);
}

TEST_F(EfsChange, WearLevellingMovesAtTheThreshold)
{
    struct row {
        const char* name;
        std::vector<std::uint32_t> counts; // by physical block: 7 in use, 3 spare
        std::uint32_t cold, hot;           // 99: nothing moves
    };
    for (const row& r : {row{"one below", {10, 10, 10, 10, 10, 10, 10, 10, 19, 10}, 99, 99},
                         row{"at the threshold", {10, 11, 11, 11, 11, 11, 11, 10, 20, 10}, 0, 8},
                         row{"last of equals", {10, 10, 11, 10, 11, 11, 11, 20, 20, 10}, 3, 8},
                         row{"colder spares", {30, 30, 30, 30, 30, 30, 30, 10, 10, 10}, 99, 99}}) {
        SCOPED_TRACE(r.name);
        table_.emplace(usual, usual_files(usual), 10);
        rig_.emplace(table_->fresh_image());
        for (std::uint32_t p = 0; p < 10; ++p) set_count(p, r.counts[p]);
        ASSERT_EQ(rig_->mount(), 0U);
        const auto writes = changes_since([] { EXPECT_EQ(EFS_wear_leveling(0, 0), 0U); });
        if (r.cold == 99) {
            EXPECT_EQ(writes, 0U);
            continue;
        }
        EXPECT_EQ(efs_ctx.current_bme.valid_table[r.cold], r.hot);
        EXPECT_EQ(spare(r.hot - 7), r.cold);
        EXPECT_EQ(efs_ctx.block_status[r.hot - 7], 1);
        EXPECT_EQ(writes, 2U) << "the copy and one entry";
        EXPECT_TRUE(efs_clean(rig_->image));
        // A dirty target is erased first, and counts once more.
        set_count(r.cold, 1000);
        ASSERT_EQ(rig_->mount(), 0U);
        EXPECT_EQ(EFS_wear_leveling(0, 0), 0U);
        EXPECT_EQ(efs_ctx.block_ec[r.cold], 1001U);
    }
}

TEST_F(EfsChange, FreeBlocksByLeastWear)
{
    start();
    ASSERT_EQ(EFS_scan_for_Data_Blocks_status_and_EC(), 0U);
    while (efs_ctx.free_block_count < 3) ASSERT_EQ(EFS_erase_dirty_block(), 0U);
    EXPECT_EQ(EFS_erase_dirty_block(), 41U) << "none is dirty";
    std::uint32_t position = 0;
    efs_ctx.block_ec[spare(0)] = 9;
    efs_ctx.block_ec[spare(1)] = efs_ctx.block_ec[spare(2)] = 4;
    EXPECT_EQ(EFS_select_free_page_for_write(&position), 0U);
    EXPECT_EQ(position, 1U);
    EXPECT_EQ(EFS_select_free_page_for_write(nullptr), 22U);
    for (unsigned i = 0; i < 3; ++i) efs_ctx.block_status[i] = 1;
    EXPECT_EQ(EFS_select_free_page_for_write(&position), 41U);
    efs_ctx.free_block_count = 0;
    EXPECT_EQ(EFS_erase_dirty_block(), 0U);
    EXPECT_EQ(efs_ctx.block_status[1], 2) << "the least worn, the lower position";
}

TEST_F(EfsChange, IdleWorkStepByStep)
{
    start();
    while (efs_ctx.free_block_count < 3) ASSERT_EQ(EFS_idle_reclaim(), 0U);
    EXPECT_EQ(changes_since([] { EXPECT_EQ(EFS_idle_reclaim(), 0U); }), 0U) << "nothing to do";
    EXPECT_EQ(efs_ctx.next_bm_state, 1);

    std::memset(rig_->image.data() + 4096 + 100, 0, 8); // the next BM isn't blank
    efs_ctx.next_bm_state = 0;
    efs_ctx.bme_offset = 2856 - 22;
    EXPECT_EQ(changes_since([] { EXPECT_EQ(EFS_idle_reclaim(), 0U); }), 0U);
    EXPECT_EQ(efs_ctx.next_bm_state, 2);
    efs_ctx.bme_offset = 2857 - 22;
    EXPECT_EQ(changes_since([] { EXPECT_EQ(EFS_idle_reclaim(), 0U); }), 2U) << "its crc, its erase";
    EXPECT_EQ(efs_ctx.next_bm_state, 1);
    EXPECT_EQ(blob(rig_->image.begin() + 4096, rig_->image.begin() + 8192), blob(4096, 0xFF));
}

TEST_F(EfsChange, TheMarkerAndTheEndOfAllMaps)
{
    start();
    rig_->chip.plain_copy(true);
    rig_->chip.violations_fail_test(false);
    ASSERT_EQ(EFS_write_RTFD_marker(), 0U);
    unsigned file = 0;
    EXPECT_TRUE(efs_reads_as(rig_->files, file)) << "the mount goes on";
    EXPECT_EQ(rig_->mount(), 41U);

    start();
    efs_ctx.force_bm_switch = 1;
    ASSERT_EQ(rig_->perform({kind::write, 0, bytes(9, 9)}), 0U);
    const auto changes = changes_since([] { EXPECT_EQ(EFS_erase(), 0U); });
    EXPECT_EQ(changes, 4U);
    EXPECT_EQ(rig_->chip.journal().back().addr, 4096U) << "the map in force goes last";
    EXPECT_EQ(EFS_is_initialized(), 0);
    EXPECT_EQ(rig_->mount(), 41U);
    EXPECT_EQ(EFS_erase(), 0U) << "without a mount too";
    EXPECT_EQ(EFS_do_format(), 0U);
    EXPECT_EQ(rig_->mount(), 0U);
}

} // namespace
} // namespace yfs::test
