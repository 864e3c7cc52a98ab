// The checksums against literal values and against a reference that goes bit by bit.
#include "tests/support/efs_builder.h"
#include "tests/support/volume_builder.h"
#include "yfs/medium.h"

#include <gtest/gtest.h>

namespace {

using bytes = std::vector<std::uint8_t>;

const auto& slow = yfs::test::plain_crc;

TEST(Checksums, LiteralValues)
{
    using words = std::vector<unsigned>;
    const std::uint8_t zeros[2] = {}, bc[2] = {'b', 'c'};
    EXPECT_EQ((words{crc8("", 0), crc8("abc", 3), crc14("", 0), crc14("abc", -3), crc14("abc", 3), crc14(zeros, 2)}),
              (words{0x01, 0x34, 0x3FFF, 0x3FFF, 0x3A71, 0x0B5B}));
    EXPECT_EQ((words{crc16("a", 1, bc), crc16("x", 0, zeros), crc16("x", -1, zeros), crc16("x", INT32_MIN, zeros)}),
              (words{0x514A, 0x1D0F, 0x1D0F, 0x1D0F}));
}

// The bytewise tables and the steps of eight bytes, at every length and alignment around a page.
TEST(Checksums, AgreeWithABitwiseReference)
{
    const bytes all = yfs::test::bytes(600, 7);
    for (int i = 0; i < 9 * 301; ++i) {
        const int at = i / 301, len = i % 301;
        const bytes part(all.begin() + at, all.begin() + at + len);
        bytes keyed = part;
        keyed.insert(keyed.end(), &all[310], &all[312]);
        SCOPED_TRACE(testing::Message() << len << " bytes at " << at);
        ASSERT_EQ(crc8(&all[at], static_cast<unsigned>(len)), slow(part, 8, 0x07, 0xFF, 1));
        ASSERT_EQ(crc14(&all[at], len), slow(part, 16, 0x1021, 0x3FFF, 0x3FFF));
        ASSERT_EQ(crc16(&all[at], len, &all[310]), slow(keyed, 16, 0x1021, 0xFFFF, 0xFFFF));
    }
    for (std::uint8_t x = 0; x < 16; ++x) {
        EXPECT_EQ(gCrc8_low[x], slow({x}, 8, 7, 0xFF, 0));
        EXPECT_EQ(gCrc8_high[x], slow({static_cast<std::uint8_t>(x << 4)}, 8, 7, 0xFF, 0));
    }
}

} // namespace
