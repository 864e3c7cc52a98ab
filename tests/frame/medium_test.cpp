// The built-in medium over one pointer, and the memory primitives.
#include "frame/medium_bound.h"
#include "tests/support/volume_builder.h"
#include "yfs/medium.h"

#include <gtest/gtest.h>

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace {

using yfs::test::bytes;

// Whatever a call does, all other bytes of the image stay; addresses count from the pointer, wherever it stands.
TEST(Medium, TouchesExactlyItsRange)
{
    auto image = bytes(5 * 4096 + 33), model = image;
    const auto news = bytes(9000, 2);
    EXPECT_EQ(SpiFlashDrvInitialize(image.data() + 1), 0U);
    for (const auto& [addr, len] :
         {std::pair(0U, 1U), {0, 0}, {1, 66}, {4095, 2}, {4096, 4096}, {17, 9000}, {20511, 1}}) {
        std::vector<std::uint8_t> got(len + 2, 0xEE), want(len + 2, 0xEE);
        std::copy_n(model.begin() + 1 + addr, len, want.begin() + 1);
        EXPECT_EQ(SpiDrvRead(addr, len, got.data() + 1), 0U);
        EXPECT_EQ(got, want) << addr;
        std::copy_n(news.begin(), len, model.begin() + 1 + addr); // sets bits too: a plain copy
        EXPECT_EQ(SpiDrvWrite(addr, len, news.data()), 0U);
        EXPECT_EQ(image, model) << addr;
    }
    for (const std::uint32_t addr : {0U, 1U, 4096U, 16384U}) {
        std::fill_n(model.begin() + 1 + addr, 4096, std::uint8_t{0xFF});
        EXPECT_EQ(SpiDrvEraseBlock(addr), 0U);
        EXPECT_EQ(image, model) << "erase at " << addr;
    }
    SpiFlashDrvDeinitialize();
    EXPECT_TRUE(image == model && gpBuffer == image.data() + 1);
    SpiFlashDrvInitialize(nullptr); // without an image every call fails
    std::uint8_t byte = 0;
    EXPECT_TRUE(SpiDrvRead(0, 1, &byte) != 0 && SpiDrvWrite(0, 1, &byte) != 0 && SpiDrvEraseBlock(0) != 0);
}

// The bound is the mounted flash; it holds for that image alone, and a new one begins without any.
TEST(Medium, EndsWhereItsFlashEnds)
{
    auto image = bytes(3 * 4096);
    const auto answers = [&](std::uint32_t at, std::uint32_t len) {
        std::vector<std::uint8_t> piece(len);
        return SpiDrvRead(at, len, piece.data()) + SpiDrvWrite(at, len, piece.data());
    };
    SpiFlashDrvInitialize(image.data());
    yfs::bound_medium(8192);
    EXPECT_EQ(answers(8000, 192), 0U);
    for (const std::uint32_t at : {8001U, 8192U, 0xFFFFFF50U}) EXPECT_EQ(answers(at, 192), 2U) << at;
    EXPECT_TRUE(SpiDrvEraseBlock(8192) != 0 && SpiDrvEraseBlock(4097) != 0 && SpiDrvEraseBlock(4096) == 0);
    SpiFlashDrvInitialize(image.data());
    EXPECT_EQ(answers(8192, 192), 0U);
}

TEST(Memory, Primitives)
{
    auto* zeroed = static_cast<std::uint8_t*>(LtAllocateZeroMemory(5000));
    EXPECT_EQ(std::count(zeroed, zeroed + 5000, 0), 5000);
    EXPECT_EQ(LtSetMemory(zeroed + 1, 0x1A5, 3), zeroed + 1);
    EXPECT_EQ(LtSetMemory(zeroed + 4, -2, 1), zeroed + 4);
    EXPECT_EQ(LtCompareMemory(zeroed, "\0\xA5\xA5\xA5\xFE\0", 6), 0);
    EXPECT_TRUE(LtCompareMemory("\x80", "\x7F", 1) > 0 && LtCompareMemory("a", "b", 1) < 0); // bytes are unsigned
    EXPECT_EQ(LtCompareMemory("a", "b", 0), 0);
    LtFreeMemory(zeroed);
    LtFreeMemory(nullptr);
    LtFreeMemory(std::memset(LtAllocateMemory(4096), 0xC3, 4096));

    const char* const xyz = "xyz";
    std::array<char, 8> to{};
    using row = std::tuple<char*, const char*, std::size_t, std::size_t, std::uint32_t>;
    for (const auto& [dst, src, room, count, status] :
         {row{to.data(), xyz, 8, 3, 0}, row{to.data(), xyz, 3, 3, 0}, row{to.data(), xyz, 0, 0, 0},
          row{to.data(), xyz, 2, 3, 40}, row{nullptr, xyz, 2, 3, 3}, row{to.data(), nullptr, 2, 3, 3},
          row{nullptr, xyz, 0, 0, 3}}) {
        to.fill(0);
        EXPECT_EQ(ByteCopy(dst, room, src, count), status) << room << " " << count;
        EXPECT_STREQ(to.data(), status == 0 && count != 0 ? xyz : "");
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
    auto* const wanted = std::bit_cast<void*>(place);
    void* page = mmap(wanted, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    if (page != wanted) GTEST_SKIP() << "the address is taken";
    const auto a = static_cast<std::uint32_t>(std::min<std::uint64_t>(place, 0xFFFFF000));
    const auto b = static_cast<std::uint32_t>(place - a + 100);
    char got[9] = "........";
    EXPECT_EQ(mg_copyto(1, a, b, "storage!", 2, 7) + mg_copyfrom(3, a, b + 3, got, 4, 4), 0U);
    EXPECT_STREQ(static_cast<char*>(page) + 100, "storage");
    EXPECT_STREQ(got, "rage....");
    EXPECT_EQ(mg_copyto(0, a, b, nullptr, 0, 0), 0U);
    munmap(page, 4096);
}

} // namespace
