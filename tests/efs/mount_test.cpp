// Which map a mount takes, what it refuses, and what it leaves behind; and the medium under it.
#include "tests/support/efs_builder.h"
#include "tests/support/volume_builder.h"
#include "yfs/efs.h"
#include "yfs/medium.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <numeric>

namespace {

using namespace yfs::efs;
using namespace yfs::test;
using blob = std::vector<std::uint8_t>;

constexpr geometry usual = {2, 7, 3};
constexpr std::uint8_t layout = 0x5A;
constexpr std::uint32_t slot_bytes = 22;
constexpr std::uint32_t slot_count = 185;

class EfsMount : public testing::Test {
protected:
    void SetUp() override { use_efs_table(usual, files_, layout); }
    void TearDown() override
    {
        EFS_files = nullptr;
        efs_image = nullptr;
    }
    // In a buffer of exactly that size, so that a sanitizer sees each access behind it.
    std::uint32_t mount(const blob& image)
    {
        exact_ = std::make_unique<std::uint8_t[]>(image.size());
        std::memcpy(exact_.get(), image.data(), image.size());
        return EFS_init_tools(exact_.get());
    }
    static void expect_nothing_mounted()
    {
        EXPECT_EQ(EFS_is_initialized(), 0);
        EXPECT_EQ(efs_ctx.block_ec, nullptr);
        EXPECT_EQ(efs_ctx.block_status, nullptr);
        EXPECT_EQ(efs_ctx.current_bme.valid_table, nullptr);
        EXPECT_EQ(efs_ctx.current_bme.non_valid_table, nullptr);
        std::uint32_t size = 4711;
        EXPECT_EQ(EFS_get_file_size(0, &size), 1U);
        EXPECT_EQ(size, 4711U);
        EXPECT_EQ(EFS_read(0, 0, &size, nullptr), 1U);
        EXPECT_EQ(size, 0U);
        EXPECT_EQ(EFS_read(0, 0, nullptr, nullptr), 1U);
        EXPECT_EQ(EFS_read_and_verify_file(0, 0, 1, 0), 1U);
        EXPECT_EQ(EFS_read_and_verify_data_block_header_and_footer(0), 1U);
    }
    std::vector<efs_file_t> files_ = {efs_entry(1, 10, 300)};
    std::unique_ptr<std::uint8_t[]> exact_;
};

struct taken {
    std::uint32_t bm, sequence, slot;
    bool force = false;
};

TEST_F(EfsMount, TakesTheRightMapOrNone)
{
    const auto map = [](const char* digits) { // both tables, back to back
        blob tables;
        for (; *digits != 0; ++digits) tables.push_back(yfs::low8(*digits - '0'));
        return tables;
    };
    constexpr geometry more_bms = {3, 7, 3}, more_blocks = {2, 8, 3}, fewer_spares = {2, 7, 2};
    const auto fill = [](efs_volume& v, std::uint32_t slots) {
        while (v.bm(0).slots() < slots) v.bm(0).entry();
    };
    const struct {
        const char* name;
        std::function<void(efs_volume&)> make;
        std::optional<taken> wanted; // none: 41
    } cases[] = {
        {"as a format leaves it", [](auto& v) { v.bm(0).entry(); }, taken{0, 1, 0}},
        {"a slot later", [](auto& v) { v.bm(0).entry().entry(); }, taken{0, 1, 1}},
        {"higher sequence behind", [](auto& v) { v.bm(0).entry(), v.bm(1).sequence(2).entry(); }, taken{1, 2, 0}},
        {"higher sequence in front", [](auto& v) { v.bm(0).sequence(3).entry(), v.bm(1).sequence(2).entry(); },
         taken{0, 3, 0}},
        {"equal sequences", [](auto& v) { v.bm(0).sequence(9).entry(), v.bm(1).sequence(9).entry(); }, taken{0, 9, 0}},
        {"sequence 0", [](auto& v) { v.bm(0).sequence(0).entry(); }, {}},
        {"sequence 0 beside another", [](auto& v) { v.bm(0).sequence(0).entry(), v.bm(1).entry(); }, taken{1, 1, 0}},
        {"the last sequence", [](auto& v) { v.bm(1).sequence(0xFFFFFFFF).entry(), v.bm(0).entry(); },
         taken{1, 0xFFFFFFFF, 0}},
        {"header with a bad CRC", [](auto& v) { v.bm(0).sequence(2).entry().wrong_crc(), v.bm(1).entry(); },
         taken{1, 1, 0}},
        {"header still to come", [](auto& v) { v.bm(0).entry(), v.bm(1).sequence(2).entry().no_header(); },
         taken{0, 1, 0}},
        {"one retired", [](auto& v) { v.bm(0).entry().retired(), v.bm(1).sequence(2).entry(); }, taken{1, 2, 0}},
        {"all retired", [](auto& v) { v.bm(0).entry().retired(), v.bm(1).entry().retired(); }, {}},
        {"other version, other SKU", [](auto& v) { v.bm(0).version(7).sku(99).entry(); }, taken{0, 1, 0}},
        {"more BMs", [&](auto& v) { v.bm(0).entry().counts(more_bms); }, {}},
        {"more logical blocks", [&](auto& v) { v.bm(0).entry().counts(more_blocks); }, {}},
        {"fewer spares in the lower sequence",
         [&](auto& v) { v.bm(0).entry().counts(fewer_spares), v.bm(1).sequence(2).entry(); },
         {}},
        {"another layout in the lower sequence",
         [](auto& v) { v.bm(1).layout(layout + 1).entry(), v.bm(0).sequence(2).entry(); },
         {}},
        {"another layout under a bad CRC",
         [](auto& v) { v.bm(1).layout(layout + 1).entry().wrong_crc(), v.bm(0).sequence(2).entry(); }, taken{0, 2, 0}},
        {"no slot at all", [](auto& v) { v.bm(0); }, {}},
        {"the only slot torn", [](auto& v) { v.bm(0).torn(); }, {}},
        {"the second torn", [](auto& v) { v.bm(0).entry().torn(); }, taken{0, 1, 0, true}},
        {"cut after a byte", [](auto& v) { v.bm(0).entry().entry().cut(1); }, taken{0, 1, 1, true}},
        {"cut before its last byte", [](auto& v) { v.bm(0).entry().entry().cut(slot_bytes - 1); },
         taken{0, 1, 1, true}},
        {"two torn at the end", [](auto& v) { v.bm(0).entry().torn().torn(); }, {}},
        {"torn before a sound one", [](auto& v) { v.bm(0).entry().torn().entry(); }, taken{0, 1, 2}},
        {"torn BM in front does not send back", [](auto& v) { v.bm(0).entry(), v.bm(1).sequence(2).torn(); }, {}},
        {"all slots", [&](auto& v) { fill(v, slot_count); }, taken{0, 1, slot_count - 1}},
        {"all slots, the last torn", [&](auto& v) { fill(v, slot_count - 1), v.bm(0).torn(); },
         taken{0, 1, slot_count - 2, true}},
        {"a block twice", [&](auto& v) { v.bm(0).entry(map("0123455789")); }, {}},
        {"a block in both tables", [&](auto& v) { v.bm(0).entry(map("0123456780")); }, {}},
        {"a block behind the image", [&](auto& v) { v.bm(0).entry(map("012345678:")); }, {}},
        {"any order", [&](auto& v) { v.bm(0).entry(map("9876543210")); }, taken{0, 1, 0}},
        {"a bad map before the torn slot", [&](auto& v) { v.bm(0).entry(map("0123455789")).torn(); }, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        efs_volume v(usual, layout);
        c.make(v);
        const blob image = v.image();
        EXPECT_EQ(mount(image), c.wanted ? 0U : 41U);
        EXPECT_EQ(std::memcmp(exact_.get(), image.data(), image.size()), 0) << "a mount writes nothing";
        if (!c.wanted) {
            expect_nothing_mounted();
            continue;
        }
        EXPECT_EQ(EFS_is_initialized(), 1);
        EXPECT_EQ(efs_ctx.current_bm, c.wanted->bm);
        EXPECT_EQ(efs_ctx.bm_sequence, c.wanted->sequence);
        EXPECT_EQ(efs_ctx.bme_offset, 16 + c.wanted->slot * slot_bytes);
        EXPECT_EQ(efs_ctx.force_bm_switch, c.wanted->force ? 1 : 0);
        EXPECT_EQ(efs_ctx.read_retries, 7U);
        EXPECT_EQ(efs_ctx.next_bm_state, 0);
        EXPECT_EQ(efs_ctx.scan_done, 0);
        const std::uint8_t* slot = image.data() + c.wanted->bm * block_bytes + efs_ctx.bme_offset;
        EXPECT_EQ(std::memcmp(efs_ctx.current_bme.valid_table, slot, 7), 0);
        EXPECT_EQ(std::memcmp(efs_ctx.current_bme.non_valid_table, slot + 7, 3), 0);
        EXPECT_EQ(efs_ctx.current_bme.crc, yfs::load<yfs::le32>(slot + 18));
    }
}

TEST_F(EfsMount, ATornCommitLeavesTheFilesAsTheyWere)
{
    efs_volume v(usual, layout);
    v.file(files_[0], bytes(300, 1)).bm(0).entry();
    v.move(1, 8).file(files_[0], bytes(20, 2)).bm(0).torn();
    for (const bool torn : {true, false}) {
        if (!torn) v.bm(0).entry();
        ASSERT_EQ(mount(v.image()), 0U);
        blob out(300);
        std::uint32_t length = 300;
        ASSERT_EQ(EFS_read(0, 0, &length, out.data()), 0U);
        out.resize(length);
        EXPECT_EQ(out, torn ? bytes(300, 1) : bytes(20, 2));
    }
}

// A slot that ends with the block's last byte is not used, whatever stands there.
TEST_F(EfsMount, TheLastByteOfABlockBelongsToNoSlot)
{
    constexpr geometry exact = {2, 8, 4}; // 170 slots of 24 bytes fill the block
    use_efs_table(exact, files_, layout);
    efs_volume v(exact, layout);
    while (v.bm(0).slots() < 170) v.bm(0).entry();
    ASSERT_EQ(mount(v.image()), 0U);
    EXPECT_EQ(efs_ctx.bme_offset, 16 + 168 * 24U);
}

TEST_F(EfsMount, ForeignImages)
{
    for (const blob& image : {blob(49152, 0xFF), blob(49152, 0x00), blob(49152, 0x41), bytes(49152, 3)}) {
        EXPECT_EQ(mount(image), 41U);
        expect_nothing_mounted();
    }
}

TEST_F(EfsMount, DamagedDataBlocksAreNoneOfItsBusiness)
{
    efs_volume v(usual, layout);
    v.bm(0).entry();
    blob image = v.image();
    std::fill(image.begin() + 2 * block_bytes, image.end(), std::uint8_t{0x33});
    EXPECT_EQ(mount(image), 0U);
    EXPECT_EQ(EFS_read_and_verify_data_block_header_and_footer(0), 41U);
    EXPECT_EQ(EFS_read_and_verify_data_block_header_and_footer(10), 22U);
    EXPECT_EQ(EFS_read_and_verify_data_block_header_and_footer(0xFFFFFFFF), 22U);
}

TEST_F(EfsMount, CountsThatAByteCarries)
{
    const struct {
        geometry geo;
        bool fits;
    } cases[] = {
        {{255, 200, 56}, true},    {{1, 255, 1}, true},  {{2, 1, 0}, true},           {{2, 0, 1}, true},
        {{256, 7, 3}, false},      {{2, 256, 0}, false}, {{2, 0, 256}, false},        {{2, 255, 2}, false},
        {{0x100002, 7, 3}, false}, {{0, 7, 3}, false},   {{2, 0xFFFFFFFF, 3}, false}, {{2, 7, 0xFFFFFFFE}, false},
    };
    blob none(16);
    for (const auto& [geo, fits] : cases) {
        SCOPED_TRACE(testing::Message() << geo.bm_num << ' ' << geo.valid_block_num << ' ' << geo.non_valid_block_num);
        use_efs_table(geo, files_, layout);
        const std::uint64_t size = geo.image_bytes();
        EXPECT_EQ(EFS_get_efs_size(), std::min<std::uint64_t>(size, 0xFFFFFFFF));
        if (fits) {
            efs_volume v(geo, layout);
            v.bm(geo.bm_num - 1).entry();
            EXPECT_EQ(mount(v.image()), 0U);
            EXPECT_EQ(efs_ctx.current_bm, geo.bm_num - 1);
        } else {
            EXPECT_EQ(geo.bm_num == 0 ? mount(blob(size)) : EFS_init_tools(none.data()), 41U);
            expect_nothing_mounted();
        }
    }
}

TEST_F(EfsMount, NeedsATableAndAnImage)
{
    efs_volume v(usual, layout);
    v.bm(0).entry();
    blob image = v.image();
    ASSERT_EQ(EFS_init_tools(image.data()), 0U);
    EXPECT_EQ(EFS_init_tools(nullptr), 22U);
    EXPECT_EQ(EFS_is_initialized(), 1);
    ASSERT_EQ(EFS_init(0), 0U); // again, on the image that it holds

    EXPECT_EQ(EFS_init(1), 0U); // a new image of its own: the caller's stays, and stays the caller's
    EXPECT_NE(efs_image, image.data());
    EXPECT_EQ(image, v.image());

    efs_image = image.data();
    ASSERT_EQ(EFS_init(0), 0U);
    g_efs_autogen_data_loaded = 0;
    EXPECT_EQ(EFS_init(0), 1U);
    expect_nothing_mounted();
    g_efs_autogen_data_loaded = 1;
    efs_image = nullptr;
    EXPECT_EQ(EFS_init(0), 1U);

    EFS_files = nullptr; // a mount looks at no file
    EXPECT_EQ(EFS_init_tools(image.data()), 0U);
    std::uint32_t size = 0;
    EXPECT_EQ(EFS_get_file_size(0, &size), 22U);
}

// Tables of another geometry than the mount's would lead outside the image and its tables.
TEST_F(EfsMount, AnotherGeometryEndsTheUseOfAMount)
{
    efs_volume v(usual, layout);
    v.no_file(files_[0]).bm(0).entry();
    ASSERT_EQ(mount(v.image()), 0U);
    std::uint32_t size = 0;
    for (std::uint32_t* count : {&g_efs_bm_num, &g_efs_valid_block_num, &g_efs_non_valid_block_num}) {
        *count += 200;
        EXPECT_EQ(EFS_get_file_size(0, &size), 1U);
        EXPECT_EQ(EFS_read(0, 0, &size, nullptr), 1U);
        EXPECT_EQ(EFS_read_and_verify_file(200, 0, 1, 0), 1U);
        EXPECT_EQ(EFS_read_and_verify_data_block_header_and_footer(100), 1U);
        *count -= 200;
        EXPECT_EQ(EFS_get_file_size(0, &size), 2U);
    }
}

TEST_F(EfsMount, TheMediumKeepsToItsImage)
{
    const blob pattern = bytes(2 * block_bytes);
    blob image = pattern;
    efs_image = image.data();
    efs_size = static_cast<std::uint32_t>(image.size());
    blob buffer(2 * block_bytes);
    const struct {
        std::uint32_t address, length;
        bool inside, whole_blocks;
    } cases[] = {
        {0, 1, true, false},
        {8191, 1, true, false},
        {0, 8192, true, true},
        {4096, 4096, true, true},
        {0, 0, false, false},
        {8192, 1, false, false},
        {8191, 2, false, false},
        {0, 8193, false, false},
        {1, 4096, true, false},
        {0, 4097, true, false},
        {4096, 8192, false, false},
        {0xFFFFFFFF, 1, false, false},
        {4096, 0xFFFFF000, false, false},
    };
    for (const auto& [address, length, inside, whole_blocks] : cases) {
        SCOPED_TRACE(testing::Message() << address << ' ' << length);
        EXPECT_EQ(EFS_physical_read(address, length, buffer.data()), inside ? 0U : 22U);
        if (inside) {
            EXPECT_EQ(std::memcmp(buffer.data(), pattern.data() + address, length), 0);
        }
        EXPECT_EQ(EFS_physical_write(address, length, blob(2 * block_bytes, 0xA5).data()), inside ? 0U : 22U);
        blob wanted = pattern;
        if (inside) std::memset(wanted.data() + address, 0xA5, length);
        EXPECT_EQ(image, wanted);
        EXPECT_EQ(EFS_physical_erase(address, length), inside && whole_blocks ? 0U : 22U);
        if (inside && whole_blocks) std::memset(wanted.data() + address, 0xFF, length);
        EXPECT_EQ(image, wanted);
        image = pattern;
    }
    EXPECT_EQ(EFS_physical_read(0, 1, nullptr), 22U);
    EXPECT_EQ(EFS_physical_write(0, 1, nullptr), 22U);
    efs_image = nullptr;
    EXPECT_EQ(EFS_physical_read(0, 1, buffer.data()), 22U);
}

TEST_F(EfsMount, OnlyAnImageThatItMadeIsReleased)
{
    blob own = bytes(49152);
    efs_image = own.data();
    EXPECT_EQ(EFS_physical_init(0), 0U);
    EXPECT_EQ(efs_size, 49152U);
    ASSERT_EQ(EFS_physical_init(1), 0U);
    EXPECT_NE(efs_image, own.data());
    EXPECT_EQ(blob(efs_image, efs_image + efs_size), blob(49152, 0xFF));
    EXPECT_EQ(own, bytes(49152));

    std::uint8_t* const made = efs_image;
    efs_image = own.data(); // what it made lives on meanwhile
    made[0] = 0;
    g_efs_non_valid_block_num = 256;
    EXPECT_EQ(EFS_physical_init(1), 41U);
    EXPECT_EQ(EFS_physical_init(0), 41U);
    EXPECT_EQ(efs_size, 49152U);
    EXPECT_EQ(efs_image, own.data());
    g_efs_non_valid_block_num = 3;
    ASSERT_EQ(EFS_physical_init(1), 0U);
    EXPECT_EQ(efs_image[0], 0xFF);
}

} // namespace
