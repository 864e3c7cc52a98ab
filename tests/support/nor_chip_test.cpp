#include "tests/support/nor_chip.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>

namespace yfs::test {
namespace {

class NorChip : public testing::Test {
protected:
    NorChip() { chip.violations_fail_test(false); }
    std::uint32_t put(std::uint32_t addr, std::vector<std::uint8_t> what)
    {
        return chip.write(addr, static_cast<std::uint32_t>(what.size()), what.data());
    }
    std::vector<std::uint8_t> at(std::uint32_t addr, std::size_t len) const
    {
        return {image.begin() + addr, image.begin() + addr + static_cast<std::ptrdiff_t>(len)};
    }
    using row = std::vector<std::uint8_t>;
    std::vector<std::uint8_t> image = std::vector<std::uint8_t>(3 * nor_chip::block, 0xFF);
    nor_chip chip{image};
};

TEST_F(NorChip, ProgramsErasesAndCounts)
{
    chip.keep_journal(true);
    EXPECT_EQ(put(10, {0xF0, 0x0F}), 0U);
    EXPECT_EQ(put(10, {0x30, 0x0F}), 0U);
    row got(3);
    EXPECT_EQ(chip.read(9, 3, got.data()), 0U);
    EXPECT_EQ(got, (row{0xFF, 0x30, 0x0F}));
    EXPECT_EQ(put(4095, {0, 0}), 0U);
    EXPECT_EQ(chip.erase(0), 0U);
    EXPECT_EQ(at(4094, 3), (row{0xFF, 0xFF, 0}));
    EXPECT_TRUE(chip.violations().empty());

    const auto& c = chip.counters();
    EXPECT_EQ(
        (std::array<std::uint64_t, 6>{c.reads, c.writes, c.erases, c.bytes_read, c.bytes_programmed, c.bytes_erased}),
        (std::array<std::uint64_t, 6>{1, 3, 1, 3, 6, 4096}));
    ASSERT_EQ(chip.journal().size(), 4U);
    EXPECT_EQ(chip.journal()[1].bytes, (row{0x30, 0x0F}));
    EXPECT_EQ(chip.journal()[3].kind, chip_call::erase);
}

TEST_F(NorChip, NamesEveryBrokenRule)
{
    using rule = chip_violation::rule;
    const auto size = static_cast<std::uint32_t>(image.size());
    ASSERT_EQ(put(100, {0x00}), 0U);
    const struct {
        const char* name;
        std::function<std::uint32_t()> call;
        rule broken;
        std::uint32_t addr, status;
    } cases[] = {
        {"0 to 1",
         [&] {
             return put(98, {1, 2, 0x10, 4});
         },
         rule::programs_one, 100, 0},
        {"read over the end",
         [&] {
             row r(2);
             return chip.read(size - 1, 2, r.data());
         },
         rule::out_of_range, size - 1, 1},
        {"read that wraps",
         [&] {
             row r(2);
             return chip.read(0xFFFFFFFF, 2, r.data());
         },
         rule::out_of_range, 0xFFFFFFFF, 1},
        {"write over the end", [&] { return put(size, {0}); }, rule::out_of_range, size, 1},
        {"erase behind the end", [&] { return chip.erase(size); }, rule::out_of_range, size, 1},
        {"erase off the grid", [&] { return chip.erase(512); }, rule::unaligned_erase, 512, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        chip.forget_violations();
        EXPECT_EQ(c.call(), c.status);
        ASSERT_EQ(chip.violations().size(), 1U);
        EXPECT_EQ(chip.violations()[0].broken, c.broken);
        EXPECT_EQ(chip.violations()[0].addr, c.addr);
    }
    EXPECT_EQ(at(98, 4), (row{1, 2, 0, 4})) << "the bit stays 0, the rest lands";
    chip.plain_copy(true);
    EXPECT_EQ(put(100, {0x10}), 0U);
    EXPECT_EQ(at(100, 1), row{0x10});
}

TEST_F(NorChip, CanFailTheTest)
{
    chip.violations_fail_test(true);
    static nor_chip* s_chip;
    s_chip = &chip;
    EXPECT_NONFATAL_FAILURE(s_chip->erase(1), "erase address not on a block at address 1, change 1");
}

TEST_F(NorChip, PowerGoesInTheMiddle)
{
    const struct {
        const char* name;
        chip_call kind;
        std::uint32_t bytes;
        std::uint8_t unfinished;
        row expected; // four bytes at 4096, which read F0 F0 F0 F0 before
    } cases[] = {
        {"write, nothing", chip_call::write, 0, 0xFF, {0xF0, 0xF0, 0xF0, 0xF0}},
        {"write, two bytes", chip_call::write, 2, 0xFF, {0x10, 0x20, 0xF0, 0xF0}},
        {"write, two bytes and half", chip_call::write, 2, 0xC0, {0x10, 0x20, 0xF0, 0xF0}},
        {"write, two bytes and another half", chip_call::write, 2, 0x80, {0x10, 0x20, 0xB0, 0xF0}},
        {"write, all", chip_call::write, 4, 0xFF, {0x10, 0x20, 0x30, 0x40}},
        {"erase, one byte", chip_call::erase, 1, 0xFF, {0xFF, 0xF0, 0xF0, 0xF0}},
        {"erase, one byte and half", chip_call::erase, 1, 0x0C, {0xFF, 0xF3, 0xF0, 0xF0}},
        {"erase, all", chip_call::erase, 4096, 0xFF, {0xFF, 0xFF, 0xFF, 0xFF}},
    };
    const row before{0xF0, 0xF0, 0xF0, 0xF0}, wanted{0x10, 0x20, 0x30, 0x40};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::fill(image.begin(), image.end(), std::uint8_t{0xFF});
        chip.power_on();
        ASSERT_EQ(put(4096, before), 0U);
        std::vector<std::uint8_t> copy = image;
        chip.cut_power(2, c.bytes, c.unfinished);
        EXPECT_EQ(put(0, {1}), 0U) << "the change before";
        EXPECT_EQ(c.kind == chip_call::write ? put(4096, wanted) : chip.erase(4096), 1U);
        EXPECT_EQ(at(4096, 4), c.expected);
        EXPECT_TRUE(chip.power_is_off());
        row r(1);
        EXPECT_EQ(chip.read(0, 1, r.data()) + put(0, {0}) + chip.erase(0), 3U);
        EXPECT_EQ(image[0], 1);

        const bool erases = c.kind == chip_call::erase;
        replay_cut(copy, {chip_call::write, 0, 1, {1}}, 1);
        replay_cut(copy, {c.kind, 4096, erases ? 4096U : 4U, erases ? row{} : wanted}, c.bytes, c.unfinished);
        EXPECT_EQ(copy, image);
    }
    EXPECT_TRUE(chip.violations().empty());
}

TEST_F(NorChip, FailsTheNthCall)
{
    const auto try_write = [&](std::uint32_t addr) { return std::pair(put(addr, {0x0F}), image[addr]); };
    using result = std::pair<std::uint32_t, std::uint8_t>;
    chip.fail(chip_call::write, 2, chip_fault::before);
    chip.fail(chip_call::write, 3, chip_fault::after);
    chip.fail(chip_call::write, 4, chip_fault::silent);
    chip.fail(chip_call::write, 5, chip_fault::garbled, 2);
    const result expected[] = {{0, 0x0F}, {1, 0xFF}, {1, 0x0F}, {0, 0xFF}, {0, 0xF0}, {0, 0xF0}, {0, 0x0F}};
    for (std::uint32_t i = 0; i < std::size(expected); ++i) EXPECT_EQ(try_write(i), expected[i]) << "write " << i + 1;

    chip.fail(chip_call::read, 1, chip_fault::garbled);
    chip.fail(chip_call::read, 2, chip_fault::before);
    row r{0xAA};
    EXPECT_EQ(chip.read(0, 1, r.data()), 0U);
    EXPECT_EQ(r[0], 0xF0);
    EXPECT_EQ(chip.read(0, 1, r.data()), 1U);
    EXPECT_EQ(chip.read(0, 1, r.data()), 0U);
    EXPECT_EQ(r[0], 0x0F);

    chip.fail(chip_call::erase, 1, chip_fault::silent);
    EXPECT_EQ(chip.erase(0), 0U);
    EXPECT_EQ(image[0], 0x0F);
    chip.fail(chip_call::erase, 1, chip_fault::before);
    chip.power_on();
    EXPECT_EQ(chip.erase(0), 0U);
    EXPECT_EQ(image[0], 0xFF);
}

} // namespace
} // namespace yfs::test
