// The checksums against literal values and against references that go bit by bit.
#include "tests/support/volume_builder.h"
#include "yfs/medium.h"

#include <gtest/gtest.h>

namespace {

using yfs::low16;
using yfs::low8;

unsigned shift_in(unsigned reg, unsigned byte, unsigned width, unsigned polynomial)
{
    reg ^= byte << (width - 8);
    for (int bit = 0; bit < 8; ++bit) {
        const bool top = (reg >> (width - 1)) & 1U;
        reg = (reg << 1) & ((1U << width) - 1);
        if (top) reg ^= polynomial;
    }
    return reg;
}

unsigned slow_crc8(const std::uint8_t* data, std::size_t len)
{
    unsigned reg = 1;
    for (std::size_t i = 0; i < len; ++i) reg = shift_in(reg, data[i], 8, 0x07);
    return reg;
}

unsigned slow_crc16(const std::uint8_t* data, std::size_t len, const std::uint8_t* key)
{
    unsigned reg = 0xFFFF;
    for (std::size_t i = 0; i < len; ++i) reg = shift_in(reg, data[i], 16, 0x1021);
    return shift_in(shift_in(reg, key[0], 16, 0x1021), key[1], 16, 0x1021);
}

unsigned slow_crc14(const std::uint8_t* data, std::size_t len)
{
    unsigned reg = 0x3FFF;
    for (std::size_t i = 0; i < len; ++i) reg = shift_in(reg, data[i], 16, 0x1021) & 0x3FFF;
    return reg;
}

TEST(Checksums, LiteralValues)
{
    const std::uint8_t zeros[2] = {}, erased[2] = {0xFF, 0xFF}, page_5[2] = {5, 0};
    const auto* bc = reinterpret_cast<const std::uint8_t*>("bc");
    EXPECT_EQ(crc8("", 0), 0x01);
    EXPECT_EQ(crc8("abc", 3), 0x34);
    EXPECT_EQ(crc14("", 0), 0x3FFF);
    EXPECT_EQ(crc14("abc", -3), 0x3FFF);
    EXPECT_EQ(crc14("abc", 3), 0x3A71);
    EXPECT_EQ(crc14(zeros, 2), 0x0B5B);
    EXPECT_EQ(crc16("a", 1, bc), 0x514A); // "abc", the last two of it as the key
    EXPECT_EQ(crc16("x", 0, zeros), 0x1D0F);
    EXPECT_EQ(crc16("x", -1, zeros), 0x1D0F);
    EXPECT_EQ(crc16("x", INT32_MIN, zeros), 0x1D0F);
    EXPECT_EQ(crc16("x", 0, erased), 0x0000);
    EXPECT_NE(crc16("x", 1, page_5), crc16("x", 1, zeros));
    const std::uint8_t page_256[2] = {0, 1}, page_1[2] = {1, 0};
    EXPECT_NE(crc16("x", 1, page_256), crc16("x", 1, page_1));
}

// The bytewise tables and the steps of eight bytes, at every length and alignment around a page.
TEST(Checksums, AgreeWithBitwiseReferences)
{
    const std::vector<std::uint8_t> data = yfs::test::bytes(600, 7);
    for (std::size_t at = 0; at < 9; ++at) {
        for (std::size_t len = 0; len <= 300; ++len) {
            const std::uint8_t* p = data.data() + at;
            const std::uint8_t* key = p + 301 + len % 7;
            SCOPED_TRACE(testing::Message() << len << " bytes at " << at);
            ASSERT_EQ(crc8(p, static_cast<std::uint32_t>(len)), slow_crc8(p, len));
            ASSERT_EQ(crc14(p, static_cast<std::int32_t>(len)), slow_crc14(p, len));
            ASSERT_EQ(crc16(p, static_cast<std::int32_t>(len), key), slow_crc16(p, len, key));
        }
    }
    for (unsigned x = 0; x < 16; ++x) {
        EXPECT_EQ(gCrc8_low[x], shift_in(0, x, 8, 7));
        EXPECT_EQ(gCrc8_high[x], shift_in(0, x << 4, 8, 7));
    }
}

} // namespace
