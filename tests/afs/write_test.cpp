// Changing files: what becomes of contents and chain, and what a failure leaves.
#include "afs/chain_step.h"
#include "ftl/ftl_internal.h"
#include "tests/afs/afs_bench.h"

namespace yfs::test::afs_write {

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
    EXPECT_EQ(afs_writefile(nullptr, file, 0, 1, most.data(), 0) + afs_writefile(&b.ctx, file, 0, 1, nullptr, 0), 44U);
    EXPECT_EQ(b.read(file), content());
    EXPECT_TRUE(b.write(file, 0, most) == 0 && b.read(file) == most);
    EXPECT_EQ(b.write(8, 0x3FFFF, content(1, 9)), 28U); // 4096 of 4880 chunks are taken
    EXPECT_EQ(b.write(file, 0, content(60000, 1), trunc), 28U);
    EXPECT_TRUE(clean(b.image) && b.read(file) == most && b.read(8) == std::nullopt);
    EXPECT_TRUE(b.write(file, 0x3FFFF, content(1, 9)) == 0 && b.write(file, 0x30000, {}, trunc) == 0); // no room needed
    EXPECT_EQ(b.read(file), content(most.begin(), most.begin() + 0x30000));
}

// Every allocation fails in turn, those of a reclaim of either kind too: the file is the old one, memory and chunks are
// given back, and the run goes on.
TEST(AfsWrite, WithoutMemory)
{
    volume v(6, 3, 100);
    v.file(file, bytes(300)), v.log(0).fill(14), v.log(1).fill(14, 117);
    for (unsigned i = 16; i < 364; ++i) v.dead(i);
    bench b(v);
    ASSERT_EQ(b.open(), 0U);
    const auto held = live_blocks;
    const unsigned in_use = b.in_use();
    unsigned n = 1;
    for (;; ++n) {
        fail_allocation(n);
        const std::uint32_t status = b.write(file, 0, bytes(400, 9), trunc);
        if (!allocation_failed) break;
        EXPECT_EQ((words{status, b.in_use()}), (words{12, in_use}));
        EXPECT_EQ(b.read(file), bytes(300));
        EXPECT_EQ(live_blocks, held);
    }
    fail_allocation(0);
    EXPECT_EQ(n, 4U); // the links and two reclaims
    EXPECT_TRUE(b.reopen() == 0 && b.read(file) == bytes(400, 9));
}

// A program has made a chain of a chunk that is free, and the write is given the same one: what stood in the line of
// the cache before must not get into it.
TEST(AfsWrite, AChainOfAFreeChunkShowsNothingOfOthers)
{
    bench b(volume(6, 3, 100));
    ASSERT_EQ(b.open(0x25, 4), 0U);
    ASSERT_EQ(b.write(8, 0, content(6400, 0xA5)), 0U);
    std::uint16_t cid = 0;
    ASSERT_EQ(afs_allocate_chunk(&b.ctx, &cid), 0U); // given, and not used: it is given once more
    b.ctx.ftl->alloc_next = cid - b.ctx.files;
    ASSERT_EQ(afs::write_fat_entry(b.ctx, file, cid) + afs::write_fat_entry(b.ctx, cid, 48), 0U);
    EXPECT_EQ(b.write(file, 50, content(4, 0x11)), 0U);
    const std::string all(b.image.begin(), b.image.end());
    EXPECT_NE(all.find(std::string(50, '\0') + std::string(4, '\x11') + std::string(10, '\0')), std::string::npos);
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

} // namespace yfs::test::afs_write
