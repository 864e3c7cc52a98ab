// The page cache made anew, in place of the one that a volume has.
#include "tests/afs/afs_bench.h"

#include <cstring>

namespace yfs::test::afs_cache {

TEST(AfsCache, MadeAnew)
{
    bench b(volume(6, 3, 100));
    ASSERT_EQ(b.open(), 0U);
    afs_context& ctx = b.ctx;
    for (const words& r : {words{64, 1, 22}, words{64, 1001, 22}, words{100, 9, 22}, words{65536, 9, 22},
                           words{64, 1000, 0}, words{65472, 2, 0}, words{64, 2, 0}}) {
        const words before{r[2], ctx.page_size, ctx.line_count};
        EXPECT_EQ((words{afs_setcache(&ctx, r[0], r[1]), ctx.page_size, ctx.line_count}),
                  r[2] == 0 ? (words{0, r[0], r[1]}) : before);
    }
    EXPECT_EQ((words{afs_setcache(nullptr, 64, 10), afs_setcache(&ctx, 64, 4)}), (words{22, 0}));

    // What is in it goes out first; what can't go out stays, and so does what stood before a failure.
    std::uint8_t* first = nullptr;
    void* line = nullptr;
    for (const std::uint16_t page : {std::uint16_t{1}, std::uint16_t{2}}) {
        ASSERT_EQ(cache_ptr(&ctx, page, &line), 0U);
        first = page == 1 ? static_cast<std::uint8_t*>(line) : first;
        std::memset(line, 0xFF, 2); // the head of an empty file
        cache_line_written(&ctx, static_cast<std::uint8_t*>(line) + 63);
    }
    const auto held = live_blocks;
    b.chip.fail(chip_call::write, 1, chip_fault::before);
    EXPECT_EQ((words{afs_setcache(&ctx, 64, 5), ctx.line_count}), (words{5, 4}));
    EXPECT_EQ(cache_flush(&ctx), 0U);
    for (unsigned n = 1; n <= 2; ++n) {
        fail_allocation(n);
        EXPECT_EQ((words{afs_setcache(&ctx, 64, 5), ctx.line_count, low32(live_blocks - held)}), (words{12, 4, 0}));
    }
    fail_allocation(0);
    EXPECT_TRUE(cache_ptr(&ctx, 1, &line) == 0 && line == first);
    cache_line_entry* table = std::exchange(ctx.line_table, nullptr); // half a cache
    EXPECT_EQ((words{afs_setcache(&ctx, 64, 5), cache_ptr(&ctx, 1, &line), cache_flush(&ctx)}), (words{99, 99, 99}));
    ctx.line_table = table;
    EXPECT_EQ(b.reopen(), 0U);
    EXPECT_TRUE(b.read(25) == content() && b.read(57) == content());
}

} // namespace yfs::test::afs_cache
