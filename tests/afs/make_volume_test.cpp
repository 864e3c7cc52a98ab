// Volumes made from nothing: their geometry for every number of EUs, and that they open.
#include "tests/afs/afs_bench.h"
#include "yfs/make_volume.h"

namespace yfs::test::afs_make_volume {

TEST(MakeVolume, GeometryOfEverySize)
{
    for (unsigned i = 4 * 3; i < 256 * 3; ++i) {
        const unsigned eus = i / 3, files = i % 3 == 0 ? 65 : i % 3 * 1024;
        SCOPED_TRACE(testing::Message() << eus << " EUs, " << files << " files");
        unsigned data = eus - 1 - eus / 12, fat = 0;
        for (;; --data) {
            fat = (14 + 2 * (files + 122 * data) + 63) / 64 * 64;
            if (eus - 1 - data >= (fat / 64 + 119) / 120 + 1) break;
        }
        content image(eus * std::size_t{8192}, 0x33);
        ASSERT_EQ(yfs_make_volume(image.data(), eus * 8192, files), 0U);
        bench b(image);
        ASSERT_EQ(b.open(), 0U);
        const ftl_context& ftl = *b.ctx.ftl;
        ASSERT_EQ((words{b.ctx.fat_size, b.ctx.volume_size, b.ctx.chunks, b.ctx.files, ftl.spare_eu, ftl.log_eu_count,
                         ftl.log_eu, ftl.log_slot, ftl.alloc_next}),
                  (words{fat, fat + 7808 * data, 122 * data, files, eus - 1, eus - 1 - data, 0, 1, 122 * (data - 1)}));
    }
}

TEST(MakeVolume, ArgumentsAndBytes)
{
    content image(0x202000, 0x33);
    const auto before = image;
    for (const auto& [size, files] : {std::pair(0U, 100U),
                                      {0x6000, 100},
                                      {0x7FFF, 100},
                                      {0x8000, 64},
                                      {0x8000, 2049},
                                      {0x200000, 100},
                                      {0x202000, 100},
                                      {0xFFFFFFFF, 0xFFFFFFFF}})
        EXPECT_EQ(yfs_make_volume(image.data(), size, files), 22U) << size << " " << files;
    EXPECT_EQ(yfs_make_volume(nullptr, 0x8000, 100), 22U);
    EXPECT_EQ(image, before);
    EXPECT_EQ(yfs_make_volume(image.data(), 0xC000 + 5000, 100), 0U);
    EXPECT_EQ(content(image.begin(), image.begin() + 0xC000), volume(6, 3, 100).image()); // the builder lays the same
    EXPECT_EQ(std::count(image.begin() + 0xC000, image.end(), 0xFF), 5000);
    EXPECT_EQ(image[0xC000 + 5000], 0x33);
}

} // namespace yfs::test::afs_make_volume
