#include "tests/support/nor_chip.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

namespace yfs::test::support_nor_chip {

using row = std::vector<std::uint8_t>;

// Two blocks; bytes go to the second one's start.
struct NorChip : testing::Test {
    std::uint32_t put(const row& what, std::uint32_t at = 4096)
    {
        return chip.write(at, static_cast<std::uint32_t>(what.size()), what.data());
    }
    row image = row(2 * nor_chip::block, 0xFF), buf = row(4);
    nor_chip chip{image};
};

TEST_F(NorChip, ProgramsErasesAndSaysWhatIsBroken)
{
    static nor_chip* s_chip;
    s_chip = &chip;
    EXPECT_NONFATAL_FAILURE(s_chip->erase(512), "flash: erase address not on a block at address 512");
    chip.violations_fail_test(false);
    EXPECT_EQ(put({0}) + put({1, 2, 3}), 0U);
    EXPECT_EQ(row(&image[4096], &image[4099]), (row{0, 2, 3})) << "the bits stay 0, the rest lands";
    EXPECT_EQ(chip.violations().at(1), "programs a 0 to 1 at address 4096, change 3");
    EXPECT_TRUE(put({0, 0}, 8191) == 1 && chip.read(~0U, 2, buf.data()) == 1 && chip.violations().size() == 4);
}

// 10 20 goes over F0 F0, then the block is erased; one of the two is cut.
TEST_F(NorChip, LosesPowerInTheMiddle)
{
    using cut = std::tuple<unsigned, unsigned, unsigned, row>; // in which change, after how many bytes, bits unfinished
    for (const auto& [change, done, unfinished, expected] :
         {cut{1, 0, 0xFF, {0xF0, 0xF0}}, cut{1, 1, 0xFF, {0x10, 0xF0}}, cut{1, 1, 0x80, {0x10, 0xA0}},
          cut{1, 2, 0xFF, {0x10, 0x20}}, cut{2, 1, 0xFF, {0xFF, 0x20}}, cut{2, 1, 0x0C, {0xFF, 0xF3}}}) {
        chip.power_on();
        ASSERT_EQ(chip.erase(4096) + put({0xF0, 0xF0}), 0U);
        chip.cut_power(change, done, static_cast<std::uint8_t>(unfinished));
        EXPECT_EQ(put({0x10, 0x20}), 2 - change);
        EXPECT_EQ(chip.erase(4096) + chip.read(0, 1, buf.data()) + put({0}) + chip.erase(4096), 4U);
        EXPECT_EQ(row(&image[4096], &image[4098]), expected);
    }
}

} // namespace yfs::test::support_nor_chip
