// Volumes made from nothing: their geometry for every number of EUs, and that they open.
#include "tests/afs/afs_bench.h"
#include "yfs/make_volume.h"

namespace yfs::test {
namespace {

TEST(MakeVolume, GeometryOfEverySize)
{
    for (unsigned eus = 4; eus <= 255; ++eus) {
        for (const unsigned files : {65U, 1024U, 2048U}) {
            SCOPED_TRACE(testing::Message() << eus << " EUs, " << files << " files");
            unsigned data = eus - 1 - eus / 12, fat = 0;
            for (;; --data) {
                fat = 14 + 2 * (files + 122 * data);
                fat += (64 - fat % 64) % 64;
                if (eus - 1 - data >= (fat / 64 + 119) / 120 + 1) break;
            }
            std::vector<std::uint8_t> image(eus * std::size_t{8192}, 0x33);
            ASSERT_EQ(yfs_make_volume(image.data(), eus * 8192, files), 0U);
            bench b(image);
            ASSERT_EQ(b.open(), 0U);
            ASSERT_EQ(b.ctx.fat_size, fat);
            ASSERT_EQ(b.ctx.volume_size, fat + 7808 * data);
            ASSERT_EQ(b.ctx.chunks, 122 * data);
            ASSERT_EQ(b.ctx.files, files);
            ASSERT_EQ(b.ctx.ftl->spare_eu, eus - 1);
            ASSERT_EQ(b.ctx.ftl->log_eu_count, eus - 1 - data);
            ASSERT_EQ(b.ctx.ftl->log_eu * 1000 + b.ctx.ftl->log_slot, 1U);
            ASSERT_EQ(b.ctx.ftl->alloc_next, 122 * (data - 1));
            if (eus % 10 != 5 && eus != 4) continue;
            ASSERT_EQ(b.write(5, 0, bytes(10000)), data > 1 ? 0U : 28U);
            ASSERT_EQ(b.write(static_cast<int>(files) - 1, 0, bytes(500)), 0U);
            ASSERT_EQ(b.reopen(), 0U);
            ASSERT_EQ(b.read(static_cast<int>(files) - 1), bytes(500));
            ASSERT_TRUE(b.sound());
        }
    }
}

TEST(MakeVolume, ArgumentsAndBytes)
{
    std::vector<std::uint8_t> image(0x202000, 0x33);
    const auto before = image;
    struct row {
        const char* name;
        std::uint32_t size, files, status;
    };
    for (const row& r :
         {row{"no bytes", 0, 100, 22}, row{"three EUs", 0x6000, 100, 22}, row{"a byte short", 0x7FFF, 100, 22},
          row{"64 files", 0x8000, 64, 22}, row{"2049 files", 0x8000, 2049, 22}, row{"256 EUs", 0x200000, 100, 22},
          row{"257", 0x202000, 100, 22}, row{"all bits", 0xFFFFFFFF, 0xFFFFFFFF, 22}}) {
        EXPECT_EQ(yfs_make_volume(image.data(), r.size, r.files), r.status) << r.name;
        EXPECT_EQ(image, before) << r.name;
    }
    EXPECT_EQ(yfs_make_volume(nullptr, 0x8000, 100), 22U);

    EXPECT_EQ(yfs_make_volume(image.data(), 0xC000 + 5000, 100), 0U);
    std::vector<std::uint8_t> six(image.begin(), image.begin() + 0xC000);
    volume v(6, 3, 100); // the builder lays the same bytes
    EXPECT_EQ(six, v.image());
    EXPECT_EQ(std::count(image.begin() + 0xC000, image.begin() + 0xC000 + 5000, 0xFF), 5000);
    EXPECT_EQ(image[0xC000 + 5000], 0x33);
}

} // namespace
} // namespace yfs::test
