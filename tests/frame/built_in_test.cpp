// This program has the library's own media: they are seen as such, and looked at in place, within the image's bounds.
#include "efs/medium_access.h"
#include "frame/blank.h"
#include "frame/chip.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

TEST(BuiltInChip, IsLookedAtInPlace)
{
    EXPECT_TRUE(yfs::chip::built_in);
    std::vector<std::uint8_t> image(200, 7);
    std::uint8_t buf[8] = {};
    SpiFlashDrvInitialize(nullptr);
    EXPECT_EQ(yfs::chip::look(0, 8, buf), nullptr);
    SpiFlashDrvInitialize(image.data());
    yfs::bound_medium(image.size());
    EXPECT_EQ(yfs::chip::look(192, 8, buf), &image[192]);
    EXPECT_EQ(yfs::chip::look(193, 8, buf), nullptr);
    EXPECT_EQ(yfs::chip::in_place(193, 8), nullptr);
    EXPECT_EQ(yfs::chip::look(UINT32_MAX, 8, buf), nullptr);
    EXPECT_TRUE(yfs::chip::read(10, 8, buf) && buf[7] == 7 && yfs::chip::write(20, 2, "ab") && image[21] == 'b');
    EXPECT_FALSE(yfs::chip::write(199, 2, "ab"));
    gpBuffer = image.data() + 100; // a program's own image has no bounds
    EXPECT_EQ(yfs::chip::look(0, 100, buf), &image[100]);
    SpiFlashDrvInitialize(nullptr);
}

TEST(BuiltInEfsMedium, IsLookedAtInPlace)
{
    EXPECT_TRUE(yfs::efs::medium_built_in);
    std::vector<std::uint8_t> image(200);
    std::uint8_t buf[8] = {};
    const std::uint8_t* seen = nullptr;
    efs_image = image.data();
    efs_size = 200;
    EXPECT_EQ(yfs::efs::look(192, 8, buf, seen), 0U);
    EXPECT_EQ(seen, &image[192]);
    for (const auto& [at, length] : {std::pair(193U, 8U), {200U, 1U}, {UINT32_MAX, 8U}, {0U, 0U}}) {
        EXPECT_EQ(yfs::efs::look(at, length, buf, seen), EFS_physical_read(at, length, buf));
    }
    efs_image = nullptr;
    efs_size = 0;
}

TEST(Blank, OneProgrammedByteIsSeenAnywhere)
{
    for (std::size_t count = 0; count < 80; ++count) {
        std::vector<std::uint8_t> bytes(count, 0xFF);
        EXPECT_TRUE(yfs::is_blank(bytes.data(), count));
        for (std::uint8_t& byte : bytes) {
            byte = 0xFE;
            EXPECT_FALSE(yfs::is_blank(bytes.data(), count));
            byte = 0xFF;
        }
    }
    std::vector<std::uint8_t> frame(66, 0xFF);
    EXPECT_TRUE(yfs::is_blank<66>(frame.data()));
    for (std::uint8_t& byte : frame) {
        byte = 0x7F;
        EXPECT_FALSE(yfs::is_blank<66>(frame.data()));
        byte = 0xFF;
    }
}

} // namespace
