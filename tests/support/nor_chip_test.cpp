#include "tests/support/nor_chip.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

namespace yfs::test {
namespace {

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
    chip.keep_journal(true);
    EXPECT_EQ(put({0xF0, 0x0F}) + put({0x30, 0x0F}) + put({0, 0}, 4095) + chip.read(4096, 4, buf.data()), 0U);
    EXPECT_EQ(buf, (row{0, 0x0F, 0xFF, 0xFF}));
    EXPECT_EQ(chip.erase(4096), 0U);
    EXPECT_EQ(row(&image[4095], &image[4098]), (row{0, 0xFF, 0xFF}));
    const auto& c = chip.counters();
    EXPECT_EQ(std::tuple(c.reads, c.writes, c.erases, c.bytes_read), std::tuple(1U, 3U, 1U, 4U));
    ASSERT_EQ(chip.journal().size(), 4U);
    EXPECT_EQ(chip.journal()[1].bytes, (row{0x30, 0x0F}));

    put({0});
    static NorChip* s_it;
    s_it = this;
    EXPECT_NONFATAL_FAILURE(EXPECT_EQ(s_it->put({1, 2, 3}), 0U), "flash: programs a 0 to 1 at address 4096, change 6");
    EXPECT_EQ(row(&image[4096], &image[4099]), (row{0, 2, 3})) << "the bits stay 0, the rest lands";
    EXPECT_NONFATAL_FAILURE(EXPECT_EQ(s_it->chip.erase(512), 1U), "erase address not on a block at address 512");
    EXPECT_NONFATAL_FAILURE(EXPECT_EQ(s_it->put({0, 0}, 8191), 1U), "outside the image at address 8191");
    EXPECT_NONFATAL_FAILURE(EXPECT_EQ(s_it->chip.read(~0U, 2, s_it->buf.data()), 1U), "outside the image");
    chip.plain_copy(true);
    chip.violations_fail_test(false);
    EXPECT_EQ(put({1}), 0U);
    EXPECT_EQ(image[4096], 1);
    EXPECT_EQ(chip.violations().size(), 5U);
}

// 10 20 goes over F0 F0, then the block is erased; one of the two is cut.
TEST_F(NorChip, LosesPowerInTheMiddle)
{
    const struct {
        std::uint64_t change; // 1: the write, 2: the erase
        std::uint32_t done;
        std::uint8_t unfinished;
        row expected;
    } cases[] = {
        {1, 0, 0xFF, {0xF0, 0xF0}}, {1, 1, 0xFF, {0x10, 0xF0}}, {1, 1, 0x80, {0x10, 0xA0}},
        {1, 2, 0xFF, {0x10, 0x20}}, {2, 1, 0xFF, {0xFF, 0x20}}, {2, 1, 0x0C, {0xFF, 0xF3}},
    };
    for (const auto& c : cases) {
        chip.power_on();
        ASSERT_EQ(chip.erase(4096) + put({0xF0, 0xF0}), 0U);
        chip.cut_power(c.change, c.done, c.unfinished);
        EXPECT_EQ(put({0x10, 0x20}), 2 - c.change);
        EXPECT_EQ(chip.erase(4096), 1U);
        EXPECT_TRUE(chip.power_is_off());
        EXPECT_EQ(chip.read(0, 1, buf.data()) + put({0}) + chip.erase(4096), 3U);
        EXPECT_EQ(row(&image[4096], &image[4098]), c.expected);
    }
}

} // namespace
} // namespace yfs::test
