// The format against literal bytes, and the checksums against their definitions.
#include "efs/layout.h"
#include "tests/support/efs_builder.h"
#include "tests/support/volume_builder.h"
#include "yfs/efs.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

using namespace yfs::efs;
using namespace yfs::test;
using blob = std::vector<std::uint8_t>;

blob part(const blob& image, std::size_t at, std::size_t count)
{
    return {image.begin() + static_cast<std::ptrdiff_t>(at), image.begin() + static_cast<std::ptrdiff_t>(at + count)};
}

TEST(EfsChecksum, KnownAnswers)
{
    const blob abc = {'a', 'b', 'c'};
    EXPECT_EQ(EFS_crc32(0, abc.data(), 3), 0xCA6598D0U);
    EXPECT_EQ(EFS_crc16(0, abc.data(), 3), 0x9DD6);
    EXPECT_EQ(EFS_crc32(0x12345678, nullptr, 0), 0x12345678U);
    EXPECT_EQ(EFS_crc16(0x1234, nullptr, 0), 0x1234);
    // The two ends of what the library offers for a non-existent file's chunk.
    for (unsigned logical = 0; logical < 256; ++logical) {
        EXPECT_EQ(EFS_crc16(static_cast<uint16_t>(logical), blob(2, 0xFF).data(), 2),
                  gCrc16_table[logical ^ 0xE1U] ^ 0xF000);
    }
}

TEST(EfsChecksum, EveryLengthAndPlaceAgreesWithTheDefinition)
{
    const blob data = bytes(90, 7);
    for (std::size_t at = 0; at < 9; ++at) {
        for (std::size_t count = 0; at + count <= data.size(); ++count) {
            const blob some = part(data, at, count);
            ASSERT_EQ(EFS_crc16(0xA55A, data.data() + at, static_cast<uint32_t>(count)), plain_crc16(0xA55A, some));
            const auto split = static_cast<uint32_t>(count / 3);
            const uint32_t head = EFS_crc32(0, data.data() + at, split);
            ASSERT_EQ(EFS_crc32(head, data.data() + at + split, static_cast<uint32_t>(count) - split),
                      plain_crc32(some));
        }
    }
}

TEST(EfsFormat, GoldenBytesOfAnImage)
{
    const efs_file_t in_block_0 = efs_entry(0, 0, 100);
    const efs_file_t in_block_1 = efs_entry(1, 6, 100);
    efs_volume v({2, 7, 3});
    v.no_file(in_block_0).no_file(in_block_1).bm(0).entry();
    const blob image = v.image();

    ASSERT_EQ(image.size(), 49152U);
    EXPECT_EQ(part(image, 0, 16), (blob{1, 0, 0, 0, 1, 0, 0, 0, 2, 7, 3, 0, 0x3C, 0xC1, 0x64, 0xD3}));
    EXPECT_EQ(part(image, 16, 22),
              (blob{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0x9D, 0xFE, 0x8A, 0x6C}));
    EXPECT_EQ(part(image, 2 * 4096, 16), (blob{1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x6F, 0x4C, 0xA5, 0x9B}));
    EXPECT_EQ(part(image, 2 * 4096 + 16, 4), (blob{0xFF, 0xFF, 0x0F, 0x1D}));
    EXPECT_EQ(part(image, 3 * 4096 + 16 + 6, 4), (blob{0xFF, 0xFF, 0x2E, 0x0D}));
    // The library reads them so, too.
    EXPECT_EQ(EFS_crc32(0, image.data(), 12), 0xD364C13CU);
    EXPECT_EQ(EFS_crc32(0, image.data() + 16, 18), 0x6C8AFE9DU);
    EXPECT_EQ(EFS_crc32(0, image.data() + 2 * 4096, 12), 0x9BA54C6FU);
    EXPECT_EQ(yfs::load<efs_bm_header_t>(image.data()).sequence, 1U);
}

} // namespace
