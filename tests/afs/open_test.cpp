// What afs_init accepts, refuses, creates and repairs.
#include "tests/afs/afs_bench.h"
#include "yfs/dfs.h"
#include "yfs/medium.h"

#include <functional>

namespace yfs::test {
namespace {

// 366 chunks, a FAT of 960 bytes; EUs 0 and 1 are log, 2 to 4 data, 5 is the spare.
volume small(const std::function<void(volume&)>& change = [](volume&) {})
{
    volume v(6, 3, 100);
    v.file(7, bytes(300)).in_chunks({4, 9, 5, 6, 7});
    v.empty(8);
    change(v);
    return v;
}

TEST(AfsOpen, Geometry)
{
    for (const auto& [eus, data_eus, files, chunks, fat_size, volume_size] :
         rows<6>{{4, 1, 65, 122, 448, 8256}, {6, 3, 512, 366, 1792, 25216}, {255, 233, 2048, 28426, 60992, 1880256}}) {
        bench b(volume(eus, data_eus, files));
        ASSERT_EQ(b.open(), 0U);
        EXPECT_EQ(b.ctx.chunks, chunks);
        EXPECT_EQ(b.ctx.fat_size, fat_size);
        EXPECT_EQ(b.ctx.volume_size, volume_size);
        EXPECT_EQ(b.ctx.files, files); // not the 100 of the argument
    }
    for (const auto& [files, chunks, fat_size] : rows<3>{{100, 493, 1216}, {100, 533, 1280}, {100, 534, 1344}})
        EXPECT_EQ(afs::fat_size_of(files, chunks), fat_size);
    for (const auto& [size, files, chunks] : rows<3>{{32768, 100, 493}, {213, 100, 0}, {279, 100, 0}, {280, 100, 1}})
        EXPECT_EQ(afs::chunks_of(size, files), chunks);
}

TEST(AfsOpen, Arguments)
{
    for (const auto& [page_size, lines, files, flash_size, flags, status] :
         rows<6>{{64, 2, 65, 0xC000, 0x25, 0},
                 {64, 1000, 2048, 0xC000, 0x25, 0},
                 {64, 1, 100, 0xC000, 0x25, 22},
                 {64, 1001, 100, 0xC000, 0x25, 22},
                 {0, 10, 100, 0xC000, 0x25, 22},
                 {63, 10, 100, 0xC000, 0x25, 22},
                 {96, 10, 100, 0xC000, 0x25, 22},
                 {65536, 10, 100, 0xC000, 0x25, 22},
                 {64, 10, 64, 0xC000, 0x25, 22},
                 {64, 10, 2049, 0xC000, 0x25, 22},
                 {64, 10, 100, 0x7FFF, 0x25, 22},
                 {64, 10, 100, 0x200001, 0x25, 22},
                 {64, 10, 100, 0xC000, 0x21, 22},
                 {64, 10, 100, 0xC000, 0x23, 22},
                 {64, 10, 100, 0xC000, 0x27, 22},
                 {64, 10, 100, 0xC000, 0x05, 22 /* no FTL yet */}}) {
        bench b(small());
        EXPECT_EQ(afs_init(&b.ctx, b.image.data(), page_size, lines, files, 0, flash_size, flags, 0, 0), status)
            << page_size << " " << lines << " " << files << " " << flash_size << " " << flags;
        EXPECT_EQ(afs_init(nullptr, b.image.data(), 64, 10, 100, 0, 0xC000, 0x25, 0, 0), 22U);
    }
}

TEST(AfsOpen, RefusesAHeaderThatMakesNoSense)
{
    constexpr std::uint32_t most = 255 * 8192;
    for (const auto& [eus, volume_size, files, status] : rows<4>{{6, 24384, 65, 0},
                                                                 {6, 24384, 64, 5},
                                                                 {6, 24384, 0, 5},
                                                                 {6, 0xC000, 100, 0},
                                                                 {6, 0xC001, 100, 5}, // above the flash
                                                                 {6, 0xFFFFFFFF, 100, 5},
                                                                 {6, 0, 100, 5},
                                                                 {6, 213, 100, 5}, // short of the heads
                                                                 {6, 255, 100, 5}, // short of the FAT's last page
                                                                 {6, 0xC000, 0xFFFF, 5},
                                                                 {255, most, 34943, 0}, // chunk ids up to 0xFFFD
                                                                 {255, most, 34944, 5}}) {
        volume v(eus, 0, 100);
        v.header().volume_size = volume_size;
        v.header().files = low16(files);
        bench b(v);
        const auto before = b.image;
        EXPECT_EQ(b.open(), status) << volume_size << " " << files;
        EXPECT_EQ(b.image, before);
    }
    bench b(small([](volume& v) { v.header().magic = 0x724F6202; }));
    EXPECT_EQ(b.open(), 5U);
}

// What a FAT entry may hold, as the head of file 7, and as the end of its chain, whose chunk is 5.
TEST(AfsOpen, FatValues)
{
    constexpr std::uint32_t absent = 1000;
    for (const auto& [value, head, head_size, chain, chain_size] : // statuses, and the file's size
         rows<5>{{0, 0, absent, 0, 0},
                 {1, 5, 0, 0, 1},
                 {64, 5, 0, 0, 64},
                 {65, 5, 0, 5, 0},
                 {99, 5, 0, 5, 0},
                 {100, 0, 0, 0, 64},
                 {465, 0, 0, 0, 64},
                 {466, 5, 0, 5, 0},
                 {0xFFFD, 5, 0, 5, 0},
                 {0xFFFE, 0, absent, 5, 0},
                 {0xFFFF, 0, 0, 5, 0}}) {
        for (const bool of_head : {true, false}) {
            SCOPED_TRACE(testing::Message() << (of_head ? "head " : "chain ") << value);
            volume v(6, 3, 100);
            v.dead(0).dead(365); // ids 100 and 465 have entries of 0: a last chunk without bytes
            if (of_head) {
                v.fat(7, low16(value));
            } else {
                v.file(7, bytes(10)).in_chunks({5}).last_entry(low16(value));
            }
            const std::uint32_t status = of_head ? head : chain, due = of_head ? head_size : chain_size;
            const std::uint32_t answer = status == 0 && due == absent ? 2 : status;
            bench b(v);
            EXPECT_EQ(b.open(), status);
            std::uint32_t size = due, len = 1000;
            if (status == 0) {
                EXPECT_EQ(afs_getfilesize(&b.ctx, 7, &size), answer);
                EXPECT_EQ(size, due);
            }
            // Without a scan the volume opens, and the walk itself finds out.
            content buf(1000);
            bench blind(v);
            ASSERT_EQ(blind.open(0x2C), 0U);
            std::uint16_t next = 0;
            EXPECT_EQ(afs_get_next_cid(&blind.ctx, of_head ? 7 : 105, &next), status);
            EXPECT_EQ(next, value); // the caller has the bad value too
            EXPECT_EQ(afs_getfilesize(&blind.ctx, 7, &size), answer);
            EXPECT_EQ(afs_readfile(&blind.ctx, 7, 0, &len, buf.data()), answer);
            EXPECT_EQ(len, answer == 0 ? due : 1000);
        }
    }
    // A chain that doesn't end within `chunks` steps: its length and what its last entry says.
    for (const auto& [chunks, last, status] : rows<3>{{365, 64, 0}, {366, 64, 5}, {3, 100, 5}, {3, 102, 5}}) {
        volume v(6, 3, 100);
        v.file(7, bytes(chunks * 64)).last_entry(low16(last));
        bench b(v);
        EXPECT_EQ(b.open(), status) << chunks << " chunks, then " << last;
    }
}

TEST(AfsOpen, ReadOnlyAndSizes)
{
    for (const std::uint32_t flags : {0x25U, 0x24U, 0x2DU, 0x2CU}) {
        SCOPED_TRACE(flags);
        const bool sizes = (flags & 1) != 0, read_only = (flags & 8) != 0;
        bench b(small());
        const auto before = b.image;
        ASSERT_EQ(b.open(flags), 0U);
        EXPECT_EQ(b.ctx.file_sizes != nullptr, sizes);
        EXPECT_EQ(b.ctx.alloc_map == nullptr, read_only);
        EXPECT_EQ(b.ctx.no_alloc_map + b.ctx.ftl_allocator * 2, read_only ? 1 : 2);
        EXPECT_EQ(b.read(7), bytes(300));
        EXPECT_EQ(b.read(8), content());
        EXPECT_EQ(b.read(9), std::nullopt);
        cache_invalidate(&b.ctx);
        b.chip.fail(chip_call::read, 1, chip_fault::before);
        std::uint32_t size = 0;
        EXPECT_EQ(afs_getfilesize(&b.ctx, 7, &size), sizes ? 0U : 5U); // with the sizes kept, no flash is read
        b.chip.power_on();
        if (read_only) {
            EXPECT_EQ(b.write(9, 0, bytes(10)), 28U);
            EXPECT_EQ(afs_force_full_reclaim(&b.ctx), 22U);
            EXPECT_EQ(afs_force_dirty_erase(&b.ctx), 22U);
            EXPECT_EQ(b.image, before);
        }
        afs_free_file_size_table(&b.ctx);
        EXPECT_EQ(b.read(7), bytes(300));
    }
}

TEST(AfsOpen, OtherFlags)
{
    bench b(small([](volume& v) { v.log(0).wrong_crc(14); }));
    ASSERT_EQ(b.open(0x20025 | 0x80, 15), 0U); // read ahead; page 14 can't be read: ignored
    EXPECT_EQ(gpBuffer, b.image.data());
    b.chip.reset_counters();
    void* line = nullptr;
    for (const unsigned page : {13U, 0U, 5U}) EXPECT_EQ(cache_ptr(&b.ctx, low16(page), &line), 0U);
    EXPECT_EQ(b.chip.counters().reads, 0U);
    EXPECT_EQ(cache_ptr(&b.ctx, 14, &line), 5U);

    bench again(small());
    again.ctx.idle_reclaim_enabled = 1;
    ASSERT_EQ(again.open(), 0U);
    EXPECT_EQ(again.open(0x05), 0U); // over the FTL that it has
    EXPECT_EQ(again.read(7), bytes(300));
    EXPECT_EQ(again.ctx.idle_reclaim_enabled, 1);
    afs_free_context(&again.ctx);
    EXPECT_EQ(again.open(0x65), 0U); // zeroed
    EXPECT_EQ(again.ctx.idle_reclaim_enabled, 0);
    EXPECT_EQ(again.ctx.staging, nullptr);
}

TEST(AfsOpen, CreatesAndFormats)
{
    const content blank(0xC000, 0xFF), full = small().image(), headless = volume(6, 0, 100).without_header().image();
    struct row {
        const char* name;
        const content& image;
        std::uint32_t flags, status;
        std::uint64_t writes, erases; // a format writes two pieces of 6 headers, a volume header is a page of the log
    };
    for (const row& r : {row{"no header", headless, 0x25, 5, 0, 0},
                         {"no header, create", headless, 0x35, 0, 3, 0},
                         {"blank", blank, 0x35, 5, 0, 0},
                         {"blank, format", blank, 0x40025, 5, 12, 0},
                         {"blank, format and create", blank, 0x40035, 0, 15, 0},
                         {"blank, erase and create", blank, 0x80035, 0, 15, 12},
                         {"a volume, create", full, 0x35, 0, 0, 0},
                         {"a volume, distrusted", full, 0x125, 5, 0, 0},
                         {"a volume, distrusted, erase", full, 0x80125, 0, 15, 12}}) {
        SCOPED_TRACE(r.name);
        bench b(r.image);
        EXPECT_EQ(b.open(r.flags), r.status);
        EXPECT_EQ(std::pair(b.chip.counters().writes, b.chip.counters().erases), std::pair(r.writes, r.erases));
        if (r.status != 0 || r.writes == 0) continue;
        EXPECT_EQ(b.ctx.header_word, 0x0ABC5AU);
        const content header{0x01, 0x62, 0x4F, 0x72, 0x5A, 0xBC, 0x0A, 0, 0, 0xC0, 0, 0, 100, 0};
        content page(64), want = header;
        want.resize(64);
        EXPECT_EQ(b.ctx.handler->read_page(&b.ctx, 0, 64, page.data(), 0), 0U);
        EXPECT_EQ(page, want);
        EXPECT_EQ(b.read(7), std::nullopt);
        EXPECT_EQ(b.write(7, 0, {}), 0U); // an empty file needs no chunk
        ASSERT_EQ(b.reopen(), 0U);
        EXPECT_EQ(b.read(7), content());
    }
}

TEST(AfsOpen, ZombiesEnd)
{
    bench b(small([](volume& v) { v.zombie(20).zombie(21); }));
    const auto before = b.image;
    ASSERT_EQ(b.open(), 0U);
    EXPECT_EQ(b.image, before); // in the cache, until something else is written
    EXPECT_EQ(b.read(20), std::nullopt);
    EXPECT_EQ(b.write(20, 0, bytes(5)), 0U);
    EXPECT_TRUE(b.sound_with({{7, bytes(300)}, {8, {}}, {20, bytes(5)}}));
    EXPECT_EQ(inspect::inspect_image(b.image).file[21].state, inspect::file_state::absent);
    // An eviction could write the cleared entries: not before the whole volume has proved sound.
    bench corrupt(small([](volume& v) { v.zombie(9).fat(99, 65); }));
    const auto image = corrupt.image;
    EXPECT_EQ(corrupt.open(0x25, 2), 5U);
    EXPECT_EQ(corrupt.image, image);
}

// A reclaim cut between the end of its source and its commit byte: a writable open finishes it, as its last act.
TEST(AfsOpen, WritesAMissingCommitByte)
{
    struct row {
        const char* name;
        std::function<void(volume&)> change;
        std::uint32_t flags, status;
    };
    for (const row& r : {row{"writable", [](volume&) {}, 0x25, 0},
                         {"read only", [](volume&) {}, 0x2D, 0},
                         {"a corrupt chain", [](volume& v) { v.fat(9, 65); }, 0x25, 5},
                         {"a page not complete", [](volume& v) { v.file(9, bytes(5)).record(0, 0x7F); }, 0x25, 5}}) {
        volume v = small(r.change);
        v.swap(2, 5);
        v.eu(2).base_page(15); // given up; EU 5 takes over
        v.eu(5).seq(6).src(2).commit(0xFF);
        bench b(v);
        auto want = b.image;
        if (r.status == 0 && r.flags == 0x25) want[5 * 8192 + 17] = 0;
        EXPECT_EQ(b.open(r.flags), r.status) << r.name;
        EXPECT_EQ(b.image, want) << r.name;
        if (r.status != 0) continue;
        EXPECT_EQ(b.read(7), bytes(300));
        bench broken(v);
        broken.chip.fail(chip_call::write, 1, chip_fault::before);
        EXPECT_EQ(broken.open(r.flags), r.flags == 0x25 ? 5U : 0U);
    }
}

TEST(AfsOpen, EveryReadAndAllocationCanFail)
{
    // Two mounts of 6 headers and a log, two FAT pages, the records of 3 data EUs.
    for (unsigned n = 1; n <= 20; ++n) {
        bench b(small());
        b.chip.fail(chip_call::read, n, chip_fault::before);
        EXPECT_EQ(b.open(), n <= 19 ? 5U : 0U) << n;
    }
    // 3 and 3 of the FTL, 2 of the cache, sizes and map; a first mount that fails could be formatted over.
    const auto held = live_blocks();
    for (unsigned n = 1; n <= 11; ++n) {
        bench b(small());
        fail_allocation(n);
        EXPECT_EQ(b.open(), n <= 3 ? 5U : n <= 10 ? 12U : 0U) << n;
        fail_allocation(0);
        afs_free_context(&b.ctx);
        EXPECT_EQ(live_blocks(), held) << n;
        afs_free_context(&b.ctx);
    }
    bench b(small());
    ASSERT_EQ(b.open(), 0U);
    EXPECT_EQ(b.open(), 0U); // a second open over the same context keeps nothing of the first
    EXPECT_EQ(live_blocks(), held + 7);
    afs_free_context(nullptr);
    afs_free_file_size_table(nullptr);
}

// Dispatch has two of its own in front: context and staging.
TEST(AfsOpen, DispatchWithoutMemory)
{
    content image = small().image();
    nor_chip chip(image);
    const spi_chip_guard guard(chip);
    std::uint32_t size = 0;
    for (unsigned n = 1; n <= 13; ++n) {
        fail_allocation(n);
        EXPECT_EQ(dfs_init(image.data(), 0xC000), n == 1    ? 0xFFFFFFFF
                                                  : n == 2  ? 12U
                                                  : n <= 5  ? 5U
                                                  : n <= 12 ? 12U
                                                            : 0U)
            << n;
        fail_allocation(0);
        EXPECT_EQ(dfs_context == nullptr, n == 1);
        EXPECT_EQ(dfs_getsize(7, &size), n == 1 ? 2U : n <= 12 ? 22U : 0U);
    }
    const auto held = live_blocks();
    EXPECT_EQ(dfs_init(image.data(), 0xC000), 0U); // releases what was mounted before
    EXPECT_EQ(live_blocks(), held);
}

} // namespace
} // namespace yfs::test
