// Changing files: what becomes of contents and chain, and what a failure leaves.
#include "tests/afs/afs_bench.h"

namespace yfs::test {
namespace {

// What a write makes of a file, byte by byte.
content changed(content old, std::uint32_t offset, const content& news, std::uint32_t flags)
{
    const std::size_t end = offset + news.size();
    if (news.empty() && flags != trunc) return old;
    if (old.size() < end || flags == trunc) old.resize(end);
    std::copy(news.begin(), news.end(), old.begin() + offset);
    return old;
}

std::vector<std::uint16_t> chunks_of(bench& b, int number)
{
    std::vector<std::uint16_t> out;
    std::uint16_t at = static_cast<std::uint16_t>(number);
    while (afs_get_next_cid(&b.ctx, at, &at) == 0 && at > 64 && at < afs::zombie) out.push_back(at);
    return out;
}

// Only chunks with a changed byte are replaced: the first ones stay, new ones follow, and behind them the old rest. A
// gap begins in the old last chunk, even where that is full.
TEST(AfsWrite, AgainstAModel)
{
    for (const unsigned old_size : {0U, 1U, 63U, 64U, 65U, 127U, 128U, 130U, 192U, 200U}) {
        volume v(6, 3, 100);
        if (old_size != 0) v.file(file, bytes(old_size));
        const auto image = v.image();
        for (const std::uint32_t offset : {0U, 1U, 63U, 64U, 65U, 100U, 127U, 128U, 130U, 192U, 200U, 260U})
            for (const std::uint32_t len : {0U, 1U, 2U, 63U, 64U, 65U, 128U, 200U})
                for (const std::uint32_t flags : {0U, trunc}) {
                    SCOPED_TRACE(testing::Message() << old_size << ": " << len << " at " << offset << ", " << flags);
                    bench b(image);
                    ASSERT_EQ(b.open(), 0U);
                    const auto before = chunks_of(b, file);
                    const content news = bytes(len, 5), model = changed(bytes(old_size), offset, news, flags);
                    ASSERT_EQ(b.write(file, offset, news, flags), 0U);
                    const auto after = chunks_of(b, file);
                    ASSERT_EQ(b.read(file), model);
                    ASSERT_EQ((words{b.in_use(), low32(after.size())}), words(2, low32(model.size() + 63) / 64));
                    const bool nothing = len == 0 && flags == 0;
                    ASSERT_EQ(b.chip.journal().empty(), nothing && old_size != 0);
                    const unsigned from = offset <= old_size ? offset / 64 : old_size == 0 ? 0 : (old_size - 1) / 64;
                    for (unsigned i = 0; i < after.size(); ++i) {
                        const bool kept = nothing || i < from || (i * 64 >= offset + len && flags == 0);
                        ASSERT_TRUE(kept ? before[i] == after[i] : std::ranges::count(before, after[i]) == 0) << i;
                    }
                    ASSERT_TRUE(holds(b.image, {{file, model}}));
                    ASSERT_EQ(b.reopen(), 0U);
                    ASSERT_EQ(b.read(file), model);
                }
    }
}

TEST(AfsWrite, Limits)
{
    bench b(volume(48, 40, 100)); // 4880 chunks
    ASSERT_EQ(b.open(), 0U);
    const content most = bytes(0x40000);
    using row = std::tuple<int, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t>;
    for (const auto& [number, offset, len, flags, status] :
         {row{file, 0, 0x40001, 0, 27}, row{file, 1, 0x40000, 0, 27}, row{file, 0x40001, 0, trunc, 27},
          row{file, 0x40000, 1, 0, 27}, row{file, 0xFFFFFFFF, 2, 0, 27}, row{file, 2, 0xFFFFFFFF, 0, 27}, // sums wrap
          row{file, 0x40001, 0, 0, 0}, row{-1, 0, 1, 0, 22}, row{100, 0, 1, 0, 22}, row{INT32_MAX, 0, 1, trunc, 22},
          row{100, 0, 0x40001, 0, 22}})
        EXPECT_EQ(afs_writefile(&b.ctx, number, offset, len, most.data(), flags), status) << offset << " " << len;
    EXPECT_EQ(afs_writefile(nullptr, file, 0, 1, most.data(), 0), 22U);
    EXPECT_EQ(afs_writefile(&b.ctx, file, 0, 1, nullptr, 0), 22U);
    EXPECT_EQ(b.read(file), content());
    EXPECT_EQ(b.write(file, 0, most), 0U);
    EXPECT_EQ(b.read(file), most);
    EXPECT_EQ(b.write(8, 0x3FFFF, content(1, 9)), 28U); // 4096 of 4880 chunks are taken
    EXPECT_EQ(b.write(file, 0, content(60000, 1), trunc), 28U);
    EXPECT_TRUE(clean(b.image) && b.read(file) == most && b.read(8) == std::nullopt);
    EXPECT_EQ(b.write(file, 0x3FFFF, content(1, 9)), 0U);
    EXPECT_EQ(b.write(file, 0x30000, {}, trunc), 0U); // a cut on a boundary needs no room
    EXPECT_EQ(b.read(file), content(most.begin(), most.begin() + 0x30000));
}

// Every call of the chip and every allocation fails in turn: the file is the old one or the new one, the rest stays.
TEST(AfsWrite, EveryCallCanFail)
{
    using row = std::tuple<std::uint32_t, std::uint32_t, std::uint32_t, bool>; // tight: both reclaims on the way
    for (const auto& [offset, len, flags, tight] :
         {row{0, 400, trunc, false}, row{100, 100, 0, false}, row{290, 200, 0, false}, row{128, 0, trunc, false},
          row{0, 0, trunc, false}, row{0, 400, trunc, true}, row{128, 0, trunc, true}}) {
        volume v(6, 3, 100);
        v.file(file, bytes(300)), v.file(50, bytes(700, 50));
        for (unsigned i = 16; i < 364 && tight; ++i) v.dead(i);
        if (tight) v.log(0).fill(14), v.log(1).fill(14, 117);
        const content news = bytes(len, 9), after = changed(bytes(300), offset, news, flags);
        const auto image = v.image();
        for (unsigned kind = 0, n = 1; kind < 4; ++n) { // read, write, erase, allocation
            SCOPED_TRACE(testing::Message() << len << " at " << offset << ", call " << kind << " number " << n);
            bench b(image);
            ASSERT_EQ(b.open(), 0U);
            const auto held = live_blocks();
            const unsigned in_use = b.in_use();
            if (kind == 3) fail_allocation(n);
            if (kind != 3) b.chip.fail(static_cast<chip_call>(kind), n, chip_fault::before);
            b.chip.reset_counters();
            const std::uint32_t status = b.write(file, offset, news, flags);
            const auto& calls = b.chip.counters();
            const std::uint64_t made[] = {calls.reads, calls.writes, calls.erases, 0};
            fail_allocation(0);
            b.chip.power_on();
            EXPECT_EQ(live_blocks(), held);
            EXPECT_TRUE(status == 0 || (status == (kind == 3 ? 12U : 5U) && b.in_use() == in_use)) << status;
            if (status != 0 && !tight) { // the run goes on with the old file, and so does the next one
                EXPECT_EQ(b.read(file), bytes(300));
                EXPECT_EQ(b.write(52, 0, bytes(64, 4)), 0U);
                EXPECT_EQ(b.read(file), bytes(300));
            }
            ASSERT_EQ(b.reopen(), 0U);
            const auto found = b.read(file);
            EXPECT_TRUE(found == after || (status != 0 && found == bytes(300)));
            EXPECT_TRUE(b.read(50) == bytes(700, 50) && b.write(51, 0, bytes(64, 3)) == 0);
            if (status != 0 || made[kind] >= n) continue;
            EXPECT_GE(n, kind == 2 ? (tight ? 3U : 1U) : kind == 3 ? 2U : 4U); // behind the last call
            ++kind, n = 0;
        }
    }
}

TEST(AfsWrite, PlainSearchWithoutTheFtl)
{
    bench b(volume(6, 3, 100));
    ASSERT_EQ(b.open(), 0U);
    b.ctx.ftl_allocator = 0;
    b.ctx.scan_next = 364;
    std::uint16_t cid = 0;
    const auto take = [&] { return afs_allocate_chunk(&b.ctx, &cid) == 0 ? cid : 0U; };
    EXPECT_EQ((words{take(), take(), take(), take(), b.ctx.scan_next}), (words{464, 465, 100, 101, 2}));
    b.ctx.scan_next = 365;
    for (unsigned i = 0; i < 361; ++i) take();
    EXPECT_EQ((words{take(), afs_allocate_chunk(&b.ctx, &cid)}), (words{463, 28}));
}

} // namespace
} // namespace yfs::test
