// The page cache over a flash layer of its own that tells what reaches it.
#include "tests/afs/afs_bench.h"

#include <sstream>

namespace yfs::test {
namespace {

std::string s_log;
std::string s_broken; // "r5": page 5 can't be read; "w5": it can't be written
std::uint8_t s_pages[256];

std::uint32_t note(char what, std::uint32_t va, std::uint8_t& to, std::uint8_t from)
{
    const std::string call = what + std::to_string(va / 64);
    s_log += (s_log.empty() ? "" : " ") + call;
    if (call == s_broken) return 5;
    to = from;
    return 0;
}

// Runs words: a page number gets that page, "+n" gets and marks it written, "flush", "drop". A failure is noted as "!".
std::string run(afs_context& ctx, const std::string& script, const std::string& broken = "")
{
    s_log.clear();
    s_broken = broken;
    std::istringstream in(script);
    for (std::string word; in >> word;) {
        std::uint32_t status = word == "flush" ? cache_flush(&ctx) : 0;
        if (word == "drop") cache_invalidate(&ctx);
        if (const auto page = static_cast<std::uint16_t>(std::atoi(word.c_str())); page != 0) {
            void* line = nullptr;
            status = cache_ptr(&ctx, page, &line);
            EXPECT_TRUE(status != 0 || *static_cast<std::uint8_t*>(line) == s_pages[page]) << word << " of " << script;
            if (status == 0 && word[0] == '+') cache_line_written(&ctx, static_cast<std::uint8_t*>(line) + 63);
        }
        if (status != 0) s_log += "!";
    }
    return s_log;
}

struct AfsCache : testing::Test {
    afs_context ctx{};
    afs_physical_handler handler = afs_physical_spi_handler;
    void SetUp() override
    {
        for (unsigned i = 0; i < 256; ++i) s_pages[i] = low8(i);
        ctx.page_size = 64;
        handler.read_page = [](afs_context*, std::uint32_t va, std::uint32_t, void* buf, std::uint32_t) {
            return note('r', va, *static_cast<std::uint8_t*>(buf), s_pages[va / 64]);
        };
        handler.write_page = [](afs_context*, std::uint32_t va, std::uint32_t, const void* buf, std::uint32_t) {
            return note('w', va, s_pages[va / 64], *static_cast<const std::uint8_t*>(buf));
        };
        ctx.handler = &handler;
    }
    void TearDown() override { afs_free_context(&ctx); }
};

TEST_F(AfsCache, LeastRecentlyUsedGoesFirst)
{
    using row = std::tuple<const char*, const char*, const char*>;
    for (const auto& [script, log, broken] : {
             row{"1 2 3 1 2 3", "r1 r2 r3", ""},
             {"1 2 3 1 4 1 3 2", "r1 r2 r3 r4 r2", ""}, // 2 had to go, then 4
             {"1 2 3 4 1", "r1 r2 r3 r4 r1", ""},
             {"7 +7 8 9 9 7 8", "r7 r8 r9", ""},
             {"+1 2 3 4", "r1 r2 r3 w1 r4", ""}, // written before the new one is read
             {"+1 +1 2 3 4 flush", "r1 r2 r3 w1 r4", ""},
             {"+3 +1 +2 flush flush", "r3 r1 r2 w3 w1 w2", ""},
             {"+3 +1 +2 3 flush", "r3 r1 r2 w1 w2 w3", ""}, // a look counts as use
             {"+3 1 +2 drop flush 3", "r3 r1 r2 r3", ""},
             {"+1 2 3 drop 4 5 6", "r1 r2 r3 r4 r5 r6", ""},        // a line that isn't valid is never written
             {"+1 2 3 4 4 1 flush", "r1 r2 r3 w1! r4 w1!", "w1"},   // a line that can't be written keeps its page
             {"1 2 3 9 9 9 1 2 3", "r1 r2 r3 r9! r9! r9!", "r9"},   // and so does one that can't be filled
             {"+1 +2 +3 flush flush", "r1 r2 r3 w1 w2! w2!", "w2"}, // what wasn't written stays dirty
         }) {
        ASSERT_EQ(cache_init(&ctx, 64, 3), 0U);
        EXPECT_EQ(run(ctx, script, broken), log) << script;
        run(ctx, "drop");
    }
}

TEST_F(AfsCache, MadeAnew)
{
    for (const words& r : {words{64, 1, 22}, words{64, 1001, 22}, words{100, 9, 22}, words{65536, 9, 22},
                           words{64, 1000, 0}, words{65472, 2, 0}, words{64, 2, 0}}) {
        const words before{r[2], ctx.page_size, ctx.line_count};
        EXPECT_EQ((words{afs_setcache(&ctx, r[0], r[1]), ctx.page_size, ctx.line_count}),
                  r[2] == 0 ? (words{0, r[0], r[1]}) : before);
    }
    EXPECT_EQ(afs_setcache(nullptr, 64, 10), 22U);

    EXPECT_EQ(run(ctx, "+1 +2"), "r1 r2");
    EXPECT_EQ(afs_setcache(&ctx, 64, 4), 0U);
    EXPECT_EQ(s_log, "r1 r2 w1 w2"); // flushed, and empty after that
    EXPECT_EQ(run(ctx, "1 +2", "w2"), "r1 r2");
    EXPECT_EQ(afs_setcache(&ctx, 64, 5), 5U);
    s_broken.clear();
    const auto held = live_blocks;
    for (unsigned n = 1; n <= 2; ++n) {
        fail_allocation(n);
        EXPECT_EQ(afs_setcache(&ctx, 64, 5), 12U);
        EXPECT_EQ(live_blocks, held);
        EXPECT_EQ(run(ctx, "1 2"), ""); // the old one is still there
    }
    fail_allocation(0);
    EXPECT_EQ(ctx.line_count, 4);
    cache_line_entry* table = std::exchange(ctx.line_table, nullptr);
    void* line = nullptr; // half a cache
    EXPECT_EQ((words{afs_setcache(&ctx, 64, 5), cache_ptr(&ctx, 1, &line), cache_flush(&ctx)}), (words{99, 99, 99}));
    ctx.line_table = table;
}

} // namespace
} // namespace yfs::test
