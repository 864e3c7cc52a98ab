// What afs_init accepts, refuses, creates and repairs.
#include "tests/afs/afs_bench.h"
#include "yfs/dfs.h"
#include "yfs/medium.h"

namespace yfs::test::afs_open {

// 366 chunks, a FAT of 960 bytes; EUs 0 and 1 are log, 2 to 4 data, 5 is the spare.
volume small()
{
    volume v(6, 3, 100);
    v.file(file, bytes(300)).in_chunks({4, 9, 5, 6, 7});
    return v.empty(8);
}

// Page size, lines, files, flash size, flags: which of them is another, and the status.
TEST(AfsOpen, ArgumentsAndHeadersThatMakeNoSense)
{
    for (const words& r :
         {words{0, 0, 22}, words{0, 63, 22}, words{0, 96, 22}, words{0, 65536, 22}, words{1, 1, 22}, words{1, 2, 0},
          words{1, 1000, 0}, words{1, 1001, 22}, words{2, 64, 22}, words{2, 65, 0}, words{2, 2048, 0},
          words{2, 2049, 22}, words{3, 0x7FFF, 22}, words{3, 0x200001, 22}, words{4, 0x21, 22}, words{4, 0x23, 22},
          words{4, 0x27, 22}, words{4, 0x05, 22}}) { // 0x05: no FTL yet
        words with{64, 10, 100, 0xC000, 0x25};
        with[r[0]] = r[1];
        bench b(small());
        EXPECT_EQ(afs_init(&b.ctx, b.image.data(), with[0], with[1], with[2], 0, with[3], with[4], 0, 0), r[2]) << r[1];
    }
    EXPECT_EQ(afs_init(nullptr, nullptr, 64, 10, 100, 0, 0xC000, 0x25, 0, 0), 22U);

    // EUs, and of the header the size of the volume and the number of files.
    constexpr std::uint32_t most = 255 * 8192;
    for (const words& r :
         {words{6, 24384, 65, 0}, words{6, 24384, 64, 5}, words{6, 24384, 0, 5}, words{6, 0xC000, 100, 0},
          words{6, 0xC001, 100, 5}, words{6, 0xFFFFFFFF, 100, 5}, words{6, 0, 100, 5}, // above the flash, nothing
          words{6, 213, 100, 5}, words{6, 255, 100, 5},                                // short of the FAT
          words{6, 0xC000, 0xFFFF, 5}, words{255, most, 34943, 0}, words{255, most, 34944, 5}}) { // ids to 0xFFFD
        volume v(r[0], 0, 100);
        v.header().volume_size = r[1];
        v.header().files = low16(r[2]);
        bench b(v);
        const auto before = b.image;
        EXPECT_EQ(b.open(), r[3]) << r[1] << " " << r[2];
        EXPECT_EQ(b.image, before);
    }
    volume v = small();
    v.header().magic = 0x724F6202;
    EXPECT_EQ(bench(v).open(), 5U);
}

// What a FAT entry may hold, as the head of file 7, and as the end of its chain, whose chunk is 5: statuses, and the
// file's size.
TEST(AfsOpen, FatValues)
{
    constexpr std::uint32_t absent = 1000;
    for (const words& r :
         {words{0, 0, absent, 0, 0}, words{1, 5, 0, 0, 1}, words{64, 5, 0, 0, 64}, words{65, 5, 0, 5, 0},
          words{99, 5, 0, 5, 0}, words{100, 0, 0, 0, 64}, words{465, 0, 0, 0, 64}, words{466, 5, 0, 5, 0},
          words{0xFFFD, 5, 0, 5, 0}, words{0xFFFE, 0, absent, 5, 0}, words{0xFFFF, 0, 0, 5, 0}}) {
        for (const bool of_head : {true, false}) {
            SCOPED_TRACE(testing::Message() << (of_head ? "head " : "chain ") << r[0]);
            volume v(6, 3, 100);
            v.dead(0).dead(365); // ids 100 and 465 have entries of 0: a last chunk without bytes
            if (of_head) v.fat(file, low16(r[0]));
            if (!of_head) v.file(file, bytes(10)).in_chunks({5}).last_entry(low16(r[0]));
            const std::uint32_t status = r[of_head ? 1 : 3], due = r[of_head ? 2 : 4];
            const std::uint32_t answer = status == 0 && due == absent ? 2 : status;
            EXPECT_EQ(bench(v).open(), status);
            // Without a scan the volume opens, and the walk itself finds out.
            bench blind(v);
            ASSERT_EQ(blind.open(0x2C), 0U);
            std::uint16_t next = 0; // the caller has the bad value too
            std::uint32_t size = due, len = 1000;
            content buf(1000);
            EXPECT_EQ((words{afs_get_next_cid(&blind.ctx, of_head ? file : 105, &next), next,
                             afs_getfilesize(&blind.ctx, file, &size), size,
                             afs_readfile(&blind.ctx, file, 0, &len, buf.data()), len}),
                      (words{status, r[0], answer, due, answer, answer == 0 ? due : 1000}));
        }
    }
    // A chain that doesn't end within `chunks` steps: its length and what its last entry says.
    for (const auto& [chunks, last, status] : {std::tuple(365U, 64U, 0U), {366, 64, 5}, {3, 100, 5}, {3, 102, 5}}) {
        volume v(6, 3, 100);
        v.file(file, bytes(chunks * 64)).last_entry(low16(last));
        EXPECT_EQ(bench(v).open(), status) << chunks << " chunks, then " << last;
    }
}

TEST(AfsOpen, Flags)
{
    for (const std::uint32_t flags : {0x25U, 0x24U, 0x2DU, 0x2CU}) {
        SCOPED_TRACE(flags);
        const bool sizes = (flags & 1) != 0, read_only = (flags & 8) != 0;
        bench b(small());
        const auto before = b.image;
        ASSERT_EQ(b.open(flags), 0U);
        EXPECT_EQ((words{b.ctx.file_sizes != nullptr, b.ctx.alloc_map == nullptr, b.ctx.no_alloc_map}),
                  (words{sizes, read_only, read_only}));
        EXPECT_TRUE(b.read(file) == bytes(300) && b.read(8) == content() && b.read(9) == std::nullopt);
        cache_invalidate(&b.ctx);
        b.chip.fail(chip_call::read, 1, chip_fault::before);
        std::uint32_t size = 0;
        EXPECT_EQ(afs_getfilesize(&b.ctx, file, &size), sizes ? 0U : 5U); // with the sizes kept, no flash is read
        b.chip.power_on();
        const words refused{b.write(9, 0, bytes(10)), afs_force_full_reclaim(&b.ctx), afs_force_dirty_erase(&b.ctx)};
        EXPECT_EQ(refused, read_only ? (words{28, 22, 22}) : (words{0, 11, 0}));
        EXPECT_EQ(b.image, read_only ? before : b.image);
        afs_free_file_size_table(&b.ctx);
        EXPECT_EQ(b.read(file), bytes(300));
    }
    volume v = small();
    v.log(0).wrong_crc(14);
    bench ahead(v);
    ASSERT_EQ(ahead.open(0x20025 | 0x80, 15), 0U); // read ahead; page 14 can't be read: ignored
    EXPECT_EQ(gpBuffer, ahead.image.data());
    ahead.chip.reset_counters();
    void* line = nullptr;
    EXPECT_EQ((words{cache_ptr(&ahead.ctx, 13, &line), cache_ptr(&ahead.ctx, 0, &line),
                     low32(ahead.chip.counters().reads), cache_ptr(&ahead.ctx, 14, &line)}),
              (words{0, 0, 0, 5}));

    bench again(small());
    again.ctx.idle_reclaim_enabled = 1;
    EXPECT_EQ((words{again.open(), again.open(0x05), again.ctx.idle_reclaim_enabled}), (words{0, 0, 1})); // its own FTL
    EXPECT_EQ(again.read(file), bytes(300));
    afs_free_context(&again.ctx);
    EXPECT_TRUE(again.open(0x65) == 0 && again.ctx.idle_reclaim_enabled == 0 && again.ctx.staging == nullptr); // zeroed
}

TEST(AfsOpen, CreatesAndFormats)
{
    const content blank(0xC000, 0xFF), full = small().image(), headless = volume(6, 0, 100).without_header().image();
    // Writes and erases: a format writes two pieces of 6 headers, a volume header is a page of the log.
    using row = std::tuple<const content&, unsigned, unsigned, unsigned, unsigned>;
    for (const auto& [image, flags, status, writes, erases] :
         {row{headless, 0x25, 5, 0, 0}, row{headless, 0x35, 0, 3, 0}, row{blank, 0x35, 5, 0, 0},
          row{blank, 0x40025, 5, 12, 0}, row{blank, 0x40035, 0, 15, 0}, row{blank, 0x80035, 0, 15, 12},
          row{full, 0x35, 0, 0, 0}, row{full, 0x125, 5, 0, 0}, row{full, 0x80125, 0, 15, 12}}) {
        SCOPED_TRACE(flags);
        bench b(image);
        EXPECT_EQ((words{b.open(flags), low32(b.chip.counters().writes), low32(b.chip.counters().erases)}),
                  (words{status, writes, erases}));
        if (status != 0 || writes == 0) continue;
        EXPECT_EQ(b.ctx.header_word, 0x0ABC5AU);
        content page(64), want{0x01, 0x62, 0x4F, 0x72, 0x5A, 0xBC, 0x0A, 0, 0, 0xC0, 0, 0, 100, 0};
        want.resize(64);
        EXPECT_EQ(b.ctx.handler->read_page(&b.ctx, 0, 64, page.data(), 0), 0U);
        EXPECT_EQ(page, want);
        EXPECT_EQ(b.read(file), std::nullopt);
        EXPECT_EQ(b.write(file, 0, {}) + b.reopen(), 0U); // an empty file needs no chunk
        EXPECT_EQ(b.read(file), content());
    }
}

// Exported fields as a program may leave them. Statuses of size, read, write, delete, an allocation and a flush; what
// isn't done leaves the file.
TEST(AfsOpen, FieldsThatAProgramHasTaken)
{
    const std::tuple<const char*, void (*)(afs_context&), words> rows[] = {
        {"lines", [](afs_context& c) { c.line_table = nullptr; }, {0, 99, 99, 99, 0, 99}},
        {"bytes of the lines", [](afs_context& c) { c.cache_data = nullptr; }, {0, 99, 99, 99, 0, 99}},
        {"page size", [](afs_context& c) { c.page_size = 0; }, {0, 99, 99, 99, 0, 0}},
        {"map", [](afs_context& c) { c.alloc_map = nullptr; }, {0, 0, 28, 0, 65533, 0}},
        {"allocator", [](afs_context& c) { c.ftl_allocator = 0; }, {0, 0, 5, 0, 0, 0}},
        {"chunks", [](afs_context& c) { c.chunks = 0; }, {0, 5, 5, 5, 28, 0}},
        {"files", [](afs_context& c) { c.files = 0; }, {22, 22, 22, 22, 22, 0}},
    };
    for (const auto& [name, take, due] : rows) {
        bench b(small());
        ASSERT_EQ(b.open(), 0U);
        const afs_context kept = b.ctx;
        take(b.ctx);
        std::uint32_t size = 0, len = 300;
        std::uint16_t cid = 0;
        content out(300);
        EXPECT_EQ((words{afs_getfilesize(&b.ctx, file, &size), afs_readfile(&b.ctx, file, 0, &len, out.data()),
                         b.write(9, 0, bytes(70)), afs_deletefile(&b.ctx, 8), afs_allocate_chunk(&b.ctx, &cid),
                         cache_flush(&b.ctx)}),
                  due)
            << name;
        b.ctx = kept; // its memory
        ASSERT_EQ(b.reopen(), 0U) << name;
        EXPECT_TRUE(b.read(file) == bytes(300) && b.read(9).has_value() == (due[2] == 0)) << name;
    }
}

TEST(AfsOpen, ZombiesEnd)
{
    volume v = small();
    bench b(v.zombie(20).zombie(21));
    const auto before = b.image;
    ASSERT_EQ(b.open(), 0U);
    EXPECT_EQ(b.image, before); // in the cache, until something else is written
    EXPECT_EQ(b.write(20, 0, bytes(5)), 0U);
    EXPECT_TRUE(clean(b.image) && holds(b.image, {{7, bytes(300)}, {8, {}}, {20, bytes(5)}}));
    // An eviction could write the cleared entries: not before the whole volume has proved sound.
    bench corrupt(v.fat(99, 65));
    const auto image = corrupt.image;
    EXPECT_EQ(corrupt.open(0x25, 2), 5U);
    EXPECT_EQ(corrupt.image, image);
}

// A reclaim cut between the end of its source and its commit byte: a writable open finishes it, as its last act.
TEST(AfsOpen, WritesAMissingCommitByte)
{
    for (const words& r : {words{0, 0x25, 0}, words{0, 0x2D, 0}, words{1, 0x25, 5}, words{2, 0x25, 5}}) {
        const std::uint32_t flags = r[1], status = r[2];
        volume v = small();
        if (r[0] == 1) v.fat(9, 65);                        // a head that can't be
        if (r[0] == 2) v.file(9, bytes(5)).record(0, 0x7F); // a page that isn't complete
        v.swap(2, 5).eu(2).base_page(15);                   // given up; EU 5 takes over
        v.eu(5).seq(6).src(2).commit(0xFF);
        bench b(v);
        auto want = b.image;
        if (status == 0 && flags == 0x25) want[5 * 8192 + 17] = 0;
        EXPECT_EQ(b.open(flags), status);
        EXPECT_EQ(b.image, want);
        if (status != 0) continue;
        EXPECT_EQ(b.read(file), bytes(300));
        bench again(v);
        again.chip.fail(chip_call::write, 1, chip_fault::before);
        EXPECT_EQ(again.open(flags), flags == 0x25 ? 5U : 0U);
    }
}

TEST(AfsOpen, EveryReadAndAllocationCanFail)
{
    // Chains that meet, and a zombie: whatever can't be read or has no memory, the mount is whole or there is none.
    volume v(6, 3, 100);
    v.file(1, bytes(640)).in_chunks({0, 2, 1, 4, 3, 6, 5, 8, 7, 9});
    v.fat(2, low16(v.chunk_id(1))).fat(3, low16(v.chunk_id(7))).zombie(4);
    for (const std::uint32_t flags : {0x25U, 0x2DU}) {
        unsigned opened = 0;
        for (unsigned n = 1; n <= 60; ++n) {
            bench b(v);
            const bool of_memory = n <= 14;
            of_memory ? fail_allocation(n) : b.chip.fail(chip_call::read, n - 14, chip_fault::before, 1 + n % 2);
            const std::uint32_t status = b.open(flags, 2);
            fail_allocation(0);
            b.chip.power_on();
            EXPECT_TRUE(status == 0 || status == 5 || (status == 12 && of_memory)) << n << ": " << status;
            opened += status == 0;
            EXPECT_TRUE(status != 0 || b.read(2)->size() == 512) << n;
            EXPECT_TRUE(b.reopen() == 0 && b.read(3)->size() == 128 && b.read(2)->size() == 512);
        }
        EXPECT_TRUE(opened > 10 && opened < 50) << opened;
    }
    // 3 and 3 of the FTL, 2 of the cache, sizes and map; a first mount that fails could be formatted over. Dispatch has
    // two of its own in front: context and staging.
    const auto held = live_blocks;
    std::uint32_t size = 0;
    for (unsigned n = 1; n <= 11; ++n) {
        bench b(small());
        fail_allocation(n);
        EXPECT_EQ(b.open(), n <= 3 ? 5U : n <= 10 ? 12U : 0U) << n;
        fail_allocation(0);
        EXPECT_EQ(b.open(), 0U); // over the same context: keeps nothing of the first
        EXPECT_EQ(live_blocks, held + 7);
    }
    afs_free_context(nullptr);
    afs_free_file_size_table(nullptr);
    bench b(small());
    for (unsigned n = 1; n <= 13; ++n) {
        fail_allocation(n);
        EXPECT_EQ(dfs_init(b.image.data(), 0xC000), n == 1    ? ~0U
                                                    : n == 2  ? 12U
                                                    : n <= 5  ? 5U
                                                    : n <= 12 ? 12U
                                                              : 0U)
            << n;
        fail_allocation(0);
        EXPECT_EQ(dfs_getsize(file, &size), dfs_context == nullptr ? 2U : n <= 12 ? 22U : 0U) << n;
    }
    EXPECT_EQ(dfs_init(b.image.data(), 0xC000), 0U); // releases what was mounted before
    EXPECT_EQ(live_blocks, held + 9);
}

} // namespace yfs::test::afs_open
