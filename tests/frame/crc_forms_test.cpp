// Every form of a checksum gives the value of the plain one: byte by byte from the table, on random contents, lengths
// and addresses, from random registers, whole and in parts.
#include "frame/crc.h"
#include "frame/crc_lanes.h"
#include "tests/support/volume_builder.h"
#include "yfs/efs.h"
#include "yfs/medium.h"

#include <gtest/gtest.h>

#include <random>

namespace {

std::uint32_t crc32_by_bytes(std::uint32_t crc, const std::uint8_t* data, std::size_t length)
{
    for (; length != 0; --length, ++data) crc = (crc >> 8) ^ gCrc32_table[(crc ^ *data) & 0xFFU];
    return crc;
}

TEST(ChecksumForms, AgreeOnRandomPieces)
{
    const auto all = yfs::test::bytes(9000, 11);
    std::mt19937 random(3);
    for (int i = 0; i < 6000; ++i) {
        const std::size_t length = random() % (i % 8 == 0 ? 4200 : 300);
        const std::uint8_t* const at = &all[random() % (all.size() - length)];
        const std::size_t cut = length == 0 ? 0 : random() % length;
        const auto start = static_cast<std::uint32_t>(random());
        const auto start16 = static_cast<std::uint16_t>(start);
        SCOPED_TRACE(testing::Message() << length << " bytes from " << start << ", cut at " << cut);

        const std::uint16_t plain16 = yfs::crc16_by_bytes(start16, at, length);
        ASSERT_EQ(yfs::crc16_by_slices(start16, at, length), plain16);
        ASSERT_EQ(yfs::add_crc16(start16, at, length), plain16);
        ASSERT_EQ(yfs::add_crc16(yfs::add_crc16(start16, at, cut), at + cut, length - cut), plain16);
        ASSERT_EQ(EFS_crc16(start16, at, static_cast<std::uint32_t>(length)), plain16);

        const std::uint32_t plain32 = crc32_by_bytes(start, at, length);
        ASSERT_EQ(EFS_crc32(start, at, static_cast<std::uint32_t>(length)), plain32);

        const std::size_t blocks = length / yfs::lane_bytes;
        if (!yfs::has_lanes || blocks == 0) continue;
        ASSERT_EQ(yfs::crc16_lanes(start16, at, blocks), yfs::crc16_by_bytes(start16, at, blocks * 16));
        const auto rest = yfs::crc32_lanes(start, at, blocks);
        ASSERT_EQ(crc32_by_bytes(0, rest.bytes, sizeof rest.bytes), crc32_by_bytes(start, at, blocks * 16));
    }
}

TEST(ChecksumForms, APageIsItsBytesAndItsKey)
{
    const auto all = yfs::test::bytes(600, 12);
    for (std::size_t at = 0; at < 500; ++at) {
        const std::uint8_t* const key = &all[at + 70];
        const std::uint16_t plain = yfs::crc16_by_bytes(yfs::crc16_by_bytes(0xFFFF, &all[at], 64), key, 2);
        const auto page = static_cast<std::uint16_t>(key[0] | key[1] << 8);
        ASSERT_EQ(yfs::crc16_of_page(&all[at], page), plain);
        ASSERT_EQ(yfs::crc16_of_page_by_slices(&all[at], page), plain);
    }
}

TEST(ChecksumForms, APairIsTwoBytes)
{
    for (unsigned pair = 0; pair <= 0xFFFF; ++pair) {
        const std::uint8_t bytes[2] = {static_cast<std::uint8_t>(pair & 0xFFU), static_cast<std::uint8_t>(pair >> 8)};
        ASSERT_EQ(yfs::crc14_of_pair(static_cast<std::uint16_t>(pair)), crc14(bytes, 2));
    }
}

} // namespace
