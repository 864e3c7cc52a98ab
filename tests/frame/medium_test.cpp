// The built-in medium over one pointer, and the memory primitives.
#include "tests/support/volume_builder.h"
#include "yfs/medium.h"

#include <gtest/gtest.h>

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace {

using yfs::test::bytes;

// Whatever a call does, all other bytes of the image stay.
TEST(Medium, TouchesExactlyItsRange)
{
    const std::vector<std::uint8_t> before = bytes(5 * 4096 + 33, 1);
    const std::vector<std::uint8_t> news = bytes(9000, 2);
    struct row {
        std::uint32_t addr, len;
    };
    for (const auto [addr, len] : {row{0, 1}, row{0, 0}, row{1, 66}, row{4095, 2}, row{4096, 4096}, row{17, 9000},
                                   row{static_cast<std::uint32_t>(before.size()) - 2, 1}}) {
        SCOPED_TRACE(testing::Message() << len << " at " << addr);
        auto image = before, model = before;
        EXPECT_EQ(SpiFlashDrvInitialize(image.data() + 1), 0U); // addresses count from the pointer, wherever it stands
        EXPECT_EQ(gpBuffer, image.data() + 1);

        std::vector<std::uint8_t> got(len + 2, 0xEE), want(len + 2, 0xEE);
        std::copy_n(model.begin() + 1 + addr, len, want.begin() + 1);
        EXPECT_EQ(SpiDrvRead(addr, len, got.data() + 1), 0U);
        EXPECT_EQ(got, want);

        std::copy_n(news.begin(), len, model.begin() + 1 + addr); // sets bits too: a plain copy
        EXPECT_EQ(SpiDrvWrite(addr, len, news.data()), 0U);
        EXPECT_EQ(image, model);
        SpiFlashDrvDeinitialize();
        EXPECT_EQ(image, model);
        EXPECT_EQ(gpBuffer, image.data() + 1);
    }
    for (const std::uint32_t addr : {0U, 1U, 4096U, 16384U}) {
        auto image = before, model = before;
        SpiFlashDrvInitialize(image.data());
        std::fill_n(model.begin() + addr, 4096, std::uint8_t{0xFF});
        EXPECT_EQ(SpiDrvEraseBlock(addr), 0U);
        EXPECT_EQ(image, model) << "erase at " << addr;
    }
    SpiFlashDrvInitialize(nullptr); // without an image every call fails
    std::uint8_t byte = 0;
    EXPECT_TRUE(SpiDrvRead(0, 1, &byte) != 0 && SpiDrvWrite(0, 1, &byte) != 0 && SpiDrvEraseBlock(0) != 0);
}

TEST(Memory, Primitives)
{
    auto* zeroed = static_cast<std::uint8_t*>(LtAllocateZeroMemory(5000));
    EXPECT_TRUE(std::all_of(zeroed, zeroed + 5000, [](std::uint8_t b) { return b == 0; }));
    EXPECT_EQ(LtSetMemory(zeroed + 1, 0x1A5, 3), zeroed + 1);
    EXPECT_EQ(LtSetMemory(zeroed + 4, -2, 1), zeroed + 4);
    const std::uint8_t want[] = {0, 0xA5, 0xA5, 0xA5, 0xFE, 0};
    EXPECT_EQ(LtCompareMemory(zeroed, want, sizeof want), 0);
    EXPECT_GT(LtCompareMemory("\x80", "\x7F", 1), 0); // bytes are unsigned
    EXPECT_LT(LtCompareMemory("a", "b", 1), 0);
    EXPECT_EQ(LtCompareMemory("a", "b", 0), 0);
    LtFreeMemory(zeroed);
    LtFreeMemory(nullptr);
    void* block = LtAllocateMemory(4096);
    std::memset(block, 0xC3, 4096);
    LtFreeMemory(block);
}

TEST(Memory, ByteCopyTestsItsArgumentsInOrder)
{
    struct row {
        const char* name;
        bool dst, src;
        std::size_t dst_size, count;
        std::uint32_t status;
    };
    for (const row& r :
         {row{"fits", true, true, 8, 3, 0}, row{"fills", true, true, 3, 3, 0}, row{"nothing", true, true, 0, 0, 0},
          row{"too long", true, true, 2, 3, 40}, row{"no destination", false, true, 2, 3, 3},
          row{"no source", true, false, 2, 3, 3}, row{"nothing to nowhere", false, true, 0, 0, 3}}) {
        std::array<char, 8> to{}, before{};
        EXPECT_EQ(ByteCopy(r.dst ? to.data() : nullptr, r.dst_size, r.src ? "xyz" : nullptr, r.count), r.status)
            << r.name;
        if (r.status == 0) std::memcpy(before.data(), "xyz", r.count);
        EXPECT_EQ(to, before) << r.name;
    }
}

// Both halves have 32 bits and their sum has more.
TEST(Memory, HostAddressIsTheSumOfTwoHalves)
{
#if defined(__SANITIZE_ADDRESS__)
    constexpr std::uint64_t place = 0x60000000; // above 4 GiB stands the sanitizer's own memory
#else
    constexpr std::uint64_t place = 0x123450000;
#endif
    auto* wanted = reinterpret_cast<void*>(place);
    void* page = mmap(wanted, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    if (page != wanted) GTEST_SKIP() << "the address is taken";
    const auto a = static_cast<std::uint32_t>(std::min<std::uint64_t>(place, 0xFFFFF000));
    const auto b = static_cast<std::uint32_t>(place - a + 100);
    char got[9] = "........";
    EXPECT_EQ(mg_copyto(1, a, b, "storage!", 2, 7), 0U);
    EXPECT_STREQ(static_cast<char*>(page) + 100, "storage");
    EXPECT_EQ(mg_copyfrom(3, a, b + 3, got, 4, 4), 0U);
    EXPECT_STREQ(got, "rage....");
    EXPECT_EQ(mg_copyto(0, a, b, nullptr, 0, 0), 0U);
    munmap(page, 4096);
}

} // namespace
