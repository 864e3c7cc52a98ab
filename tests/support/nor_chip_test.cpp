#include "tests/support/nor_chip.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

namespace yfs::test {
namespace {

using row = std::vector<std::uint8_t>;

// Two blocks; bytes go to the second one's start, where `cells` looks.
struct NorChip : testing::Test {
    std::uint32_t put(const row& what, std::uint32_t at = 4096)
    {
        return chip.write(at, static_cast<std::uint32_t>(what.size()), what.data());
    }
    row cells() const { return {image.begin() + 4096, image.begin() + 4100}; }
    row image = row(2 * nor_chip::block, 0xFF), buf = row(4);
    nor_chip chip{image};
};

TEST_F(NorChip, ProgramsErasesAndSaysWhatIsBroken)
{
    chip.keep_journal(true);
    EXPECT_EQ(put({0xF0, 0x0F}) + put({0x30, 0x0F}) + put({0, 0}, 4095) + chip.read(4096, 4, buf.data()), 0U);
    EXPECT_EQ(buf, (row{0, 0x0F, 0xFF, 0xFF}));
    EXPECT_EQ(chip.erase(4096), 0U);
    EXPECT_EQ(cells(), row(4, 0xFF));
    EXPECT_EQ(image[4095], 0);
    const auto& c = chip.counters();
    EXPECT_EQ(std::tuple(c.reads, c.writes, c.erases, c.bytes_read), std::tuple(1U, 3U, 1U, 4U));
    ASSERT_EQ(chip.journal().size(), 4U);
    EXPECT_EQ(chip.journal()[1].bytes, (row{0x30, 0x0F}));
    EXPECT_EQ(chip.journal()[3].kind, chip_call::erase);

    put({0});
    static NorChip* s_it;
    s_it = this;
    EXPECT_NONFATAL_FAILURE(EXPECT_EQ(s_it->put({1, 2, 3}), 0U), "flash: programs a 0 to 1 at address 4096, change 6");
    EXPECT_EQ(cells(), (row{0, 2, 3, 0xFF})) << "the bits stay 0, the rest lands";
    EXPECT_NONFATAL_FAILURE(EXPECT_EQ(s_it->chip.erase(512), 1U), "erase address not on a block at address 512");
    EXPECT_NONFATAL_FAILURE(EXPECT_EQ(s_it->chip.erase(8192), 1U), "outside the image at address 8192");
    EXPECT_NONFATAL_FAILURE(EXPECT_EQ(s_it->put({0, 0}, 8191), 1U), "outside the image at address 8191");
    EXPECT_NONFATAL_FAILURE(EXPECT_EQ(s_it->chip.read(~0U, 2, s_it->buf.data()), 1U), "outside the image");
    EXPECT_EQ(chip.violations().size(), 5U);
    chip.violations_fail_test(false);
    chip.plain_copy(true);
    EXPECT_EQ(put({1}), 0U);
    EXPECT_EQ(cells()[0], 1);
}

TEST_F(NorChip, LosesPowerInTheMiddle)
{
    const struct {
        chip_call kind;
        std::uint32_t done;
        std::uint8_t unfinished;
        row expected; // of F0 F0 F0 F0, when 10 20 30 40 is written or all erased
    } cases[] = {
        {chip_call::write, 0, 0xFF, {0xF0, 0xF0, 0xF0, 0xF0}}, {chip_call::write, 2, 0xFF, {0x10, 0x20, 0xF0, 0xF0}},
        {chip_call::write, 2, 0x80, {0x10, 0x20, 0xB0, 0xF0}}, {chip_call::write, 4, 0xFF, {0x10, 0x20, 0x30, 0x40}},
        {chip_call::erase, 1, 0xFF, {0xFF, 0xF0, 0xF0, 0xF0}}, {chip_call::erase, 1, 0x0C, {0xFF, 0xF3, 0xF0, 0xF0}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.expected));
        chip.power_on();
        ASSERT_EQ(chip.erase(4096) + put({0xF0, 0xF0, 0xF0, 0xF0}), 0U);
        chip.cut_power(2, c.done, c.unfinished);
        EXPECT_EQ(put({0x7F}, 0), 0U) << "the change before";
        EXPECT_EQ(c.kind == chip_call::write ? put({0x10, 0x20, 0x30, 0x40}) : chip.erase(4096), 1U);
        EXPECT_TRUE(chip.power_is_off());
        EXPECT_EQ(chip.read(0, 1, buf.data()) + put({0}) + chip.erase(4096), 3U);
        EXPECT_EQ(cells(), c.expected);
    }
}

TEST_F(NorChip, FailsTheNthCall)
{
    for (const chip_fault how : {chip_fault::before, chip_fault::after, chip_fault::silent})
        chip.fail(chip_call::write, 2 + static_cast<unsigned>(how), how);
    chip.fail(chip_call::write, 5, chip_fault::garbled, 2);
    const std::pair<unsigned, int> expected[] = {{0, 0x0F}, {1, 0xFF}, {1, 0x0F}, {0, 0xFF},
                                                 {0, 0xF0}, {0, 0xF0}, {0, 0x0F}};
    for (std::uint32_t i = 0; i < std::size(expected); ++i) {
        const auto status = put({0x0F}, i);
        EXPECT_EQ(std::pair(status, int{image[i]}), expected[i]) << "write " << i + 1;
    }
    chip.fail(chip_call::read, 1, chip_fault::garbled);
    chip.fail(chip_call::read, 2, chip_fault::before);
    chip.fail(chip_call::erase, 1, chip_fault::silent);
    EXPECT_EQ(chip.erase(0) + chip.read(0, 1, buf.data()), 0U);
    EXPECT_EQ(buf[0], 0xF0);
    EXPECT_EQ(chip.read(0, 1, buf.data()), 1U);
    chip.fail(chip_call::erase, 1, chip_fault::before);
    chip.power_on();
    EXPECT_EQ(chip.erase(0) + chip.read(0, 1, buf.data()), 0U);
    EXPECT_EQ(buf[0], 0xFF);
}

} // namespace
} // namespace yfs::test
