// Which map a mount takes, what it refuses, and what it leaves behind; and the medium under it.
#include "tests/support/efs_builder.h"
#include "tests/support/volume_builder.h"
#include "yfs/medium.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <optional>

namespace {

using namespace yfs::efs;
using namespace yfs::test;
using blob = std::vector<std::uint8_t>;

constexpr geometry usual = {2, 7, 3};
constexpr std::uint8_t layout = 0x5A;
const std::vector<efs_file_t> files = {efs_entry(1, 10, 300)};

// In a buffer of exactly that size, so that a sanitizer sees each access behind it.
std::uint32_t mount(const blob& image)
{
    static std::unique_ptr<std::uint8_t[]> exact;
    exact = std::make_unique<std::uint8_t[]>(image.size());
    std::copy(image.begin(), image.end(), exact.get());
    const auto status = EFS_init_tools(exact.get());
    EXPECT_TRUE(std::equal(image.begin(), image.end(), exact.get())) << "a mount writes nothing";
    return status;
}

void expect_nothing_mounted()
{
    std::uint32_t size = 4711;
    EXPECT_EQ(EFS_get_file_size(0, &size), 1U);
    EXPECT_EQ(EFS_read(0, 0, nullptr, nullptr), 1U);
    EXPECT_EQ(EFS_read_and_verify_file(200, 0, 1, 0), 1U);
    EXPECT_EQ(EFS_read_and_verify_data_block_header_and_footer(100), 1U);
    EXPECT_EQ(size, 4711U);
    EXPECT_EQ(EFS_read(0, 0, &size, nullptr), 1U);
    EXPECT_EQ(size, 0U);
}

TEST(EfsMount, TakesTheRightMapOrNone)
{
    struct taken {
        std::uint32_t bm, sequence, slot;
        bool force = false;
    };
    const struct {
        const char* name;
        std::function<void(efs_volume&)> make;
        std::optional<taken> wanted; // none: 41
    } cases[] = {
        {"as a format leaves it", [](auto& v) { v.bm(0); }, taken{0, 1, 0}},
        {"a slot later", [](auto& v) { v.bm(0, 1, 2); }, taken{0, 1, 1}},
        {"higher sequence behind", [](auto& v) { v.bm(0).bm(1, 2); }, taken{1, 2, 0}},
        {"higher sequence in front", [](auto& v) { v.bm(0, 3).bm(1, 2); }, taken{0, 3, 0}},
        {"equal sequences", [](auto& v) { v.bm(0, 9).bm(1, 9); }, taken{0, 9, 0}},
        {"sequence 0", [](auto& v) { v.bm(0, 0); }, {}},
        {"the last sequence", [](auto& v) { v.bm(0).bm(1, 0xFFFFFFFF); }, taken{1, 0xFFFFFFFF, 0}},
        {"header with a bad CRC", [](auto& v) { v.bm(0, 2).bm(1).image[12] ^= 1; }, taken{1, 1, 0}},
        {"header still to come", [](auto& v) { v.bm(0).bm(1, 2).fill(4096, 16, 0xFF); }, taken{0, 1, 0}},
        {"one retired", [](auto& v) { v.bm(0).bm(1, 2).fill(0, 16, 0); }, taken{1, 2, 0}},
        {"all retired", [](auto& v) { v.bm(0).fill(0, 16, 0); }, {}},
        {"other version, other SKU",
         [](auto& v) {
             v.bm(0, 1, 1, {{0, 7}, {2, 99}});
         },
         taken{0, 1, 0}},
        {"more BMs",
         [](auto& v) {
             v.bm(0, 1, 1, {{8, 3}});
         },
         {}},
        {"more logical blocks",
         [](auto& v) {
             v.bm(0, 1, 1, {{9, 8}});
         },
         {}},
        {"fewer spares in the lower sequence",
         [](auto& v) {
             v.bm(0, 1, 1, {{10, 2}}).bm(1, 2);
         },
         {}},
        {"another layout in the lower sequence",
         [](auto& v) {
             v.bm(0, 2).bm(1, 1, 1, {{11, 1}});
         },
         {}},
        {"another layout under a bad CRC",
         [](auto& v) {
             v.bm(0, 2).bm(1, 1, 1, {{11, 1}}).fill(4108, 1, 0);
         },
         taken{0, 2, 0}},
        {"no slot at all", [](auto& v) { v.bm(0, 1, 0); }, {}},
        {"the only slot torn", [](auto& v) { v.bm(0, 1, 0).torn(0); }, {}},
        {"torn after a byte", [](auto& v) { v.bm(0).torn(0, 1); }, taken{0, 1, 0, true}},
        {"torn before its last byte", [](auto& v) { v.bm(0).torn(0, 21); }, taken{0, 1, 0, true}},
        {"two torn at the end", [](auto& v) { v.bm(0).torn(0).torn(0); }, {}},
        {"torn before a sound one", [](auto& v) { v.bm(0).torn(0).slot(0); }, taken{0, 1, 2}},
        {"torn in the higher sequence", [](auto& v) { v.bm(0).bm(1, 2, 0).torn(1); }, {}},
        {"all slots", [](auto& v) { v.bm(0, 1, 185); }, taken{0, 1, 184}},
        {"all slots, the last torn", [](auto& v) { v.bm(0, 1, 184).torn(0); }, taken{0, 1, 183, true}},
        {"a block twice", [](auto& v) { v.tables[6] = 5, v.bm(0); }, {}},
        {"a block in both tables", [](auto& v) { v.tables[9] = 0, v.bm(0).torn(0); }, {}},
        {"a block behind the image", [](auto& v) { v.tables[9] = 10, v.bm(0); }, {}},
        {"any order", [](auto& v) { std::swap(v.tables[0], v.tables[9]), v.bm(0); }, taken{0, 1, 0}},
        {"damaged data blocks", [](auto& v) { v.bm(0).fill(8192, 40960, 0x33); }, taken{0, 1, 0}},
        {"blank", [](auto&) {}, {}},
        {"zeros", [](auto& v) { v.fill(0, 49152, 0); }, {}},
        {"a foreign image", [](auto& v) { v.image = bytes(49152); }, {}},
    };
    use_efs_table(usual, files, layout);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        efs_volume v(usual, layout);
        c.make(v);
        EXPECT_EQ(mount(v.image), c.wanted ? 0U : 41U);
        EXPECT_EQ(EFS_is_initialized(), c.wanted ? 1 : 0);
        if (!c.wanted) {
            expect_nothing_mounted();
            continue;
        }
        EXPECT_EQ(efs_ctx.current_bm, c.wanted->bm);
        EXPECT_EQ(efs_ctx.bm_sequence, c.wanted->sequence);
        EXPECT_EQ(efs_ctx.bme_offset, 16 + c.wanted->slot * 22);
        EXPECT_EQ(efs_ctx.force_bm_switch, c.wanted->force ? 1 : 0);
        EXPECT_EQ(std::memcmp(efs_ctx.current_bme.valid_table, v.tables.data(), 7), 0);
        EXPECT_EQ(std::memcmp(efs_ctx.current_bme.non_valid_table, v.tables.data() + 7, 3), 0);
    }
}

TEST(EfsMount, CountsThatAByteCarries)
{
    const struct {
        geometry geo;
        bool fits;
    } cases[] = {
        {{255, 200, 56}, true},    {{1, 255, 1}, true},  {{2, 1, 0}, true},           {{2, 8, 4}, true},
        {{256, 7, 3}, false},      {{2, 256, 0}, false}, {{2, 0, 256}, false},        {{2, 255, 2}, false},
        {{0x100002, 7, 3}, false}, {{0, 7, 3}, false},   {{2, 0xFFFFFFFF, 3}, false}, {{2, 7, 0xFFFFFFFE}, false},
    };
    for (const auto& [geo, fits] : cases) {
        SCOPED_TRACE(testing::Message() << geo.bm_num << ' ' << geo.valid_block_num << ' ' << geo.non_valid_block_num);
        use_efs_table(geo, files, layout);
        EXPECT_EQ(EFS_get_efs_size(), std::min<std::uint64_t>(geo.image_bytes(), 0xFFFFFFFF));
        if (fits) {
            efs_volume v(geo, layout);
            const auto slots = 4080 / geo.bme_bytes();
            EXPECT_EQ(mount(v.bm(geo.bm_num - 1, 1, slots).image), 0U);
            EXPECT_EQ(efs_ctx.current_bm, geo.bm_num - 1);
            // A slot that ends with the block's last byte is not used, whatever stands there.
            EXPECT_EQ(efs_ctx.bme_offset, 16 + (slots - (geo.data_blocks() == 12 ? 2 : 1)) * geo.bme_bytes());
        } else {
            EXPECT_EQ(mount(blob(geo.bm_num == 0 ? geo.image_bytes() : 16)), 41U);
            expect_nothing_mounted();
        }
    }
}

TEST(EfsMount, NeedsATableAnImageAndItsGeometry)
{
    use_efs_table(usual, files, layout);
    efs_volume v(usual, layout);
    blob& image = v.bm(0).chunk(1, 10, yfs::efs::no_file, {}).image;
    ASSERT_EQ(EFS_init_tools(image.data()), 0U);
    EXPECT_EQ(EFS_init_tools(nullptr), 22U);
    EXPECT_EQ(EFS_read_and_verify_data_block_header_and_footer(10), 22U);
    std::uint32_t size = 0;
    for (std::uint32_t* count : {&g_efs_bm_num, &g_efs_valid_block_num, &g_efs_non_valid_block_num}) {
        *count += 200; // would lead outside the image and its tables
        expect_nothing_mounted();
        *count -= 200;
        EXPECT_EQ(EFS_get_file_size(0, &size), 2U);
    }
    ASSERT_EQ(EFS_init(0), 0U); // again, on the image that it holds

    const blob before = image;
    ASSERT_EQ(EFS_init(1), 0U); // a new image of its own: the caller's stays, and stays the caller's
    std::uint8_t* const made = efs_image;
    EXPECT_NE(made, image.data());
    efs_image = image.data(); // what it made lives on meanwhile
    made[0] = 0;
    g_efs_non_valid_block_num = 256;
    EXPECT_EQ(EFS_physical_init(1), 41U);
    EXPECT_EQ(EFS_physical_init(0), 41U);
    EXPECT_EQ(efs_image, image.data());
    g_efs_non_valid_block_num = 3;
    ASSERT_EQ(EFS_physical_init(1), 0U);
    EXPECT_EQ(blob(efs_image, efs_image + efs_size), blob(49152, 0xFF));
    EXPECT_EQ(image, before);

    EFS_files = nullptr; // a mount looks at no file
    EXPECT_EQ(EFS_init_tools(image.data()), 0U);
    EXPECT_EQ(EFS_get_file_size(0, &size), 22U);
    g_efs_autogen_data_loaded = 0;
    EXPECT_EQ(EFS_init(0), 1U);
    expect_nothing_mounted();
    g_efs_autogen_data_loaded = 1;
    efs_image = nullptr;
    EXPECT_EQ(EFS_init(0), 1U);
    EXPECT_EQ(EFS_physical_read(0, 1, image.data()), 22U);
}

TEST(EfsMount, TheMediumKeepsToItsImage)
{
    const blob pattern = bytes(8192), written(8192, 0xA5);
    const struct {
        std::uint32_t address, length;
        bool inside, whole_blocks;
    } cases[] = {
        {0, 8192, true, true},      {4096, 4096, true, true},      {8191, 1, true, false},
        {1, 4096, true, false},     {0, 4097, true, false},        {0, 0, false, false},
        {8192, 1, false, false},    {8191, 2, false, false},       {0, 8193, false, false},
        {4096, 8192, false, false}, {0xFFFFFFFF, 1, false, false}, {4096, 0xFFFFF000, false, false},
    };
    for (const auto& [address, length, inside, whole_blocks] : cases) {
        SCOPED_TRACE(testing::Message() << address << ' ' << length);
        blob image = pattern, buffer = written, wanted = pattern;
        efs_image = image.data();
        efs_size = 8192;
        EXPECT_EQ(EFS_physical_read(address, length, buffer.data()), inside ? 0U : 22U);
        EXPECT_EQ(std::memcmp(buffer.data(), inside ? &pattern[address] : written.data(), inside ? length : 8192), 0);
        EXPECT_EQ(EFS_physical_write(address, length, written.data()), inside ? 0U : 22U);
        if (inside) std::memset(&wanted[address], 0xA5, length);
        EXPECT_EQ(image, wanted);
        EXPECT_EQ(EFS_physical_erase(address, length), whole_blocks ? 0U : 22U);
        if (whole_blocks) std::memset(&wanted[address], 0xFF, length);
        EXPECT_EQ(image, wanted);
        EXPECT_EQ(EFS_physical_read(address, length, nullptr), 22U);
        EXPECT_EQ(EFS_physical_write(address, length, nullptr), 22U);
    }
    efs_image = nullptr;
}

} // namespace
