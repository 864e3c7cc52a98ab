// Which map a mount takes, what it refuses, and what it leaves behind; and the medium under it.
#include "tests/support/efs_builder.h"
#include "tests/support/volume_builder.h"
#include "yfs/medium.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>

namespace yfs::test::efs_mount {

using blob = std::vector<std::uint8_t>;
constexpr std::uint8_t layout = 0x5A;
const std::vector<efs_file_t> files = {efs_entry(1, 10, 300)};

void expect_nothing_mounted()
{
    std::uint32_t size = 4711;
    EXPECT_EQ((std::array{EFS_get_file_size(0, &size), EFS_read_and_verify_file(200, 0, 1, 0),
                          EFS_read_and_verify_data_block_header_and_footer(100), EFS_read(0, 0, &size, nullptr), size}),
              (std::array{1U, 1U, 1U, 1U, 0U}));
}

TEST(EfsMount, TakesTheRightMapOrNone)
{
    using taken = std::array<std::uint32_t, 4>; // BM, sequence, slot, whether the next commit switches
    constexpr taken none = {41};
    using row = std::tuple<const char*, std::function<void(efs_volume&)>, taken>;
    const row cases[] = {
        {"higher sequence behind", [](auto& v) { v.bm(0).bm(1, 2); }, {1, 2, 0}},
        {"equal sequences", [](auto& v) { v.bm(0, 9).bm(1, 9); }, {0, 9, 0}},
        {"sequence 0", [](auto& v) { v.bm(0, 0); }, none},
        {"header with a bad CRC", [](auto& v) { v.bm(0, 2).bm(1).fill(12, 1, 0); }, {1, 1, 0}},
        {"header still to come", [](auto& v) { v.bm(0).bm(1, 2).fill(4096, 16, 0xFF); }, {0, 1, 0}},
        {"retired", [](auto& v) { v.bm(0).bm(1, 2).fill(0, 16, 0); }, {1, 2, 0}},
        {"other version", [](auto& v) { v.bm(0, 1, 1, 0, 7); }, {0, 1, 0}},
        {"other SKU", [](auto& v) { v.bm(0, 1, 1, 2, 99); }, {0, 1, 0}},
        {"more BMs", [](auto& v) { v.bm(0, 1, 1, 8, 3); }, none},
        {"more logical blocks", [](auto& v) { v.bm(0, 1, 1, 9, 8); }, none},
        {"fewer spares in the lower sequence", [](auto& v) { v.bm(0, 1, 1, 10, 2).bm(1, 2); }, none},
        {"another layout in the lower sequence", [](auto& v) { v.bm(0, 2).bm(1, 1, 1, 11, 1); }, none},
        {"another layout, bad CRC", [](auto& v) { v.bm(0, 2).bm(1, 1, 1, 11, 1).fill(4108, 1, 0); }, {0, 2, 0}},
        {"no slot at all", [](auto& v) { v.bm(0, 1, 0); }, none},
        {"the only slot torn", [](auto& v) { v.bm(0).bm(1, 2, 0).torn(1); }, none},
        {"torn after a byte", [](auto& v) { v.bm(0).torn(0, 1); }, {0, 1, 0, 1}},
        {"torn before its last byte", [](auto& v) { v.bm(0).torn(0, 21); }, {0, 1, 0, 1}},
        {"two torn at the end", [](auto& v) { v.bm(0).torn(0).torn(0); }, none},
        {"torn before a sound one", [](auto& v) { v.bm(0).torn(0).slot(0); }, {0, 1, 2}},
        {"all slots, the last torn", [](auto& v) { v.bm(0, 1, 184).torn(0); }, {0, 1, 183, 1}},
        {"a block twice", [](auto& v) { v.tables[6] = v.tables[5], v.bm(0); }, none},
        {"a block in both tables", [](auto& v) { v.tables[9] = v.tables[0], v.bm(0).torn(0); }, none},
        {"a block behind the image", [](auto& v) { v.tables[9] = 10, v.bm(0); }, none},
        {"a foreign image", [](auto& v) { v.image = bytes(49152); }, none},
    };
    use_efs_table({2, 7, 3}, files, layout);
    for (const auto& [name, make, wanted] : cases) {
        SCOPED_TRACE(name);
        efs_volume v({2, 7, 3}, layout);
        std::reverse(v.tables.begin(), v.tables.end());
        make(v);
        const blob before = v.image;
        taken seen = {EFS_init_tools(v.image.data())};
        EXPECT_EQ(v.image, before) << "a mount writes nothing";
        if (seen[0] == 0) {
            seen = {efs_ctx.current_bm, efs_ctx.bm_sequence, (efs_ctx.bme_offset - 16) / 22, efs_ctx.force_bm_switch};
            EXPECT_TRUE(std::equal(v.tables.begin(), v.tables.begin() + 7, efs_ctx.current_bme.valid_table));
            EXPECT_TRUE(std::equal(v.tables.begin() + 7, v.tables.end(), efs_ctx.current_bme.non_valid_table));
        } else {
            expect_nothing_mounted();
        }
        EXPECT_EQ(seen, wanted);
    }
}

TEST(EfsMount, TakesCountsThatAByteCarries)
{
    for (const efs::geometry& geo : std::vector<efs::geometry>{{255, 200, 56}, {1, 255, 1}, {2, 1, 0}, {2, 8, 4}}) {
        SCOPED_TRACE(geo.valid_block_num);
        use_efs_table(geo, files, layout);
        efs_volume v(geo, layout);
        EXPECT_EQ(EFS_get_efs_size(), v.image.size());
        const auto slots = 4080 / geo.bme_bytes();
        EXPECT_EQ(EFS_init_tools(v.bm(geo.bm_num - 1, 1, slots).image.data()), 0U);
        EXPECT_EQ(efs_ctx.current_bm, geo.bm_num - 1);
        // A slot that ends with the block's last byte is not used, whatever stands there.
        EXPECT_EQ(efs_ctx.bme_offset, 16 + (slots - (geo.data_blocks() == 12 ? 2 : 1)) * geo.bme_bytes());
    }
    blob small(16);
    for (const efs::geometry& geo : std::vector<efs::geometry>{
             {256, 7, 3}, {2, 256, 0}, {2, 0, 256}, {2, 255, 2}, {2, 7, 0xFFFFFFFE}, {0, 0, 0}}) {
        use_efs_table(geo, files, layout);
        EXPECT_EQ(EFS_init_tools(small.data()), 41U);
        EXPECT_EQ(EFS_get_efs_size(), std::min<std::uint64_t>(geo.image_bytes(), 0xFFFFFFFF));
        expect_nothing_mounted();
    }
}

TEST(EfsMount, NeedsATableAnImageAndItsGeometry)
{
    use_efs_table({2, 7, 3}, files);
    efs_volume v({2, 7, 3});
    v.bm(0).chunk(1, 10, efs::no_file, {});
    const blob before = v.image;
    ASSERT_EQ(EFS_init_tools(v.image.data()), 0U);
    EXPECT_EQ(EFS_init_tools(nullptr), 22U);
    for (std::uint32_t* count : {&g_efs_bm_num, &g_efs_valid_block_num, &g_efs_non_valid_block_num}) {
        *count += 200; // would lead outside the image and its tables
        expect_nothing_mounted();
        *count -= 200;
    }
    ASSERT_EQ(EFS_init(1), 0U); // a new image of its own: the caller's stays, and stays the caller's
    std::uint8_t* const made = std::exchange(efs_image, v.image.data());
    made[0] = 0; // it lives on
    g_efs_non_valid_block_num = 256;
    EXPECT_TRUE(EFS_physical_init(1) == 41 && efs_image == v.image.data());
    g_efs_non_valid_block_num = 3;
    ASSERT_EQ(EFS_physical_init(1), 0U);
    EXPECT_TRUE(blob(efs_image, efs_image + efs_size) == blob(49152, 0xFF) && v.image == before);
    g_efs_autogen_data_loaded = 0;
    EXPECT_EQ(EFS_init_tools(v.image.data()), 1U);
    expect_nothing_mounted();
    g_efs_autogen_data_loaded = 1;
    efs_image = nullptr;
    EXPECT_EQ(EFS_init(0) + EFS_physical_read(0, 1, made), 23U);
}

TEST(EfsMount, TheMediumKeepsToItsImage)
{
    const blob pattern = bytes(8192), written(8192, 0xA5);
    using row = std::tuple<std::uint32_t, std::uint32_t, bool, bool>; // inside the image, whole blocks
    for (const auto& [address, length, inside, whole] :
         {row{0, 8192, true, true}, row{4096, 4096, true, true}, row{8191, 1, true, false}, row{1, 4096, true, false},
          row{0, 4097, true, false}, row{0, 0, false, false}, row{8192, 1, false, false}, row{8191, 2, false, false},
          row{4096, 8192, false, false}, row{4096, 0xFFFFF000, false, false}}) {
        SCOPED_TRACE(testing::Message() << address << ' ' << length);
        blob image = pattern, buffer = written, read = written, wanted = pattern;
        efs_image = image.data(), efs_size = 8192;
        const std::uint32_t status = inside ? 0 : 22;
        if (inside) std::memcpy(read.data(), &pattern[address], length);
        EXPECT_EQ(EFS_physical_read(address, length, buffer.data()), status);
        EXPECT_EQ(buffer, read);
        if (inside) std::memset(&wanted[address], 0xA5, length);
        EXPECT_EQ(EFS_physical_write(address, length, written.data()), status);
        EXPECT_EQ(image, wanted);
        if (whole) std::memset(&wanted[address], 0xFF, length);
        EXPECT_EQ(EFS_physical_erase(address, length), whole ? 0U : 22U);
        EXPECT_EQ(image, wanted);
        EXPECT_EQ(EFS_physical_read(address, length, nullptr) + EFS_physical_write(address, length, nullptr), 44U);
    }
    efs_image = nullptr;
}

} // namespace yfs::test::efs_mount
