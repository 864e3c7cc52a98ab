// What afs_init accepts, refuses, creates and repairs.
#include "tests/afs/afs_bench.h"
#include "yfs/medium.h"
#include "yfs/status.h"

#include <functional>

namespace yfs::test {
namespace {

using edit = std::function<void(volume&)>;

volume small()
{
    volume v(6, 3, 100); // 366 chunks, FAT of 960 bytes, EUs 0 and 1 log, 5 the spare
    v.file(7, bytes(300)).in_chunks({4, 9, 5, 6, 7});
    v.empty(8);
    return v;
}

TEST(AfsOpen, Geometry)
{
    struct row {
        unsigned eus, data_eus, files, chunks, fat_size, volume_size;
    };
    for (const row& r :
         {row{4, 1, 65, 122, 448, 8256}, row{6, 3, 100, 366, 960, 24384}, row{6, 3, 512, 366, 1792, 25216},
          row{64, 57, 1024, 6954, 15976 + 24, 461056}, row{255, 233, 2048, 28426, 60992, 1880256}}) {
        SCOPED_TRACE(r.eus);
        bench b(volume(r.eus, r.data_eus, r.files));
        ASSERT_EQ(b.open(), 0U);
        EXPECT_EQ(b.ctx.chunks, r.chunks);
        EXPECT_EQ(b.ctx.fat_size, r.fat_size);
        EXPECT_EQ(b.ctx.volume_size, r.volume_size);
        EXPECT_EQ(b.ctx.files, r.files); // not the 100 of the argument
        EXPECT_EQ(b.ctx.header_word, 0U);
    }
    // The whole flash as FAT, and what follows from sizes that fill it to the byte.
    EXPECT_EQ(afs::chunks_of(32768, 100), 493U);
    EXPECT_EQ(afs::fat_size_of(100, 493), 1216U);
    EXPECT_EQ(afs::fat_size_of(100, 525), 1280U); // 14 + 1250, one short of the next page
    EXPECT_EQ(afs::fat_size_of(100, 533), 1280U);
    EXPECT_EQ(afs::fat_size_of(100, 534), 1344U);
    EXPECT_EQ(afs::chunks_of(213, 100), 0U);
    EXPECT_EQ(afs::chunks_of(279, 100), 0U);
    EXPECT_EQ(afs::chunks_of(280, 100), 1U);
}

TEST(AfsOpen, Arguments)
{
    struct row {
        std::uint32_t page_size, lines, files, flash_size, flags, status;
    };
    for (const row& r :
         {row{64, 2, 65, 0xC000, 0x25, 0}, row{64, 1000, 2048, 0xC000, 0x25, 0}, row{64, 1, 100, 0xC000, 0x25, 22},
          row{64, 1001, 100, 0xC000, 0x25, 22}, row{0, 10, 100, 0xC000, 0x25, 22}, row{63, 10, 100, 0xC000, 0x25, 22},
          row{96, 10, 100, 0xC000, 0x25, 22}, row{65536, 10, 100, 0xC000, 0x25, 22}, row{64, 10, 64, 0xC000, 0x25, 22},
          row{64, 10, 2049, 0xC000, 0x25, 22}, row{64, 10, 100, 0x7FFF, 0x25, 22}, row{64, 10, 100, 0x200001, 0x25, 22},
          row{64, 10, 100, 0xC000, 0x21, 22}, row{64, 10, 100, 0xC000, 0x23, 22}, row{64, 10, 100, 0xC000, 0x27, 22},
          row{64, 10, 100, 0xC000, 0x05, 22 /* no FTL yet */}}) {
        bench b(small());
        EXPECT_EQ(afs_init(&b.ctx, b.image.data(), r.page_size, r.lines, r.files, 0, r.flash_size, r.flags, 0, 0),
                  r.status)
            << r.page_size << " " << r.lines << " " << r.files << " " << r.flash_size << " " << r.flags;
        EXPECT_EQ(afs_init(nullptr, b.image.data(), 64, 10, 100, 0, 0xC000, 0x25, 0, 0), 22U);
    }
}

TEST(AfsOpen, RefusesAHeaderThatMakesNoSense)
{
    struct row {
        const char* name;
        unsigned eus;
        std::uint32_t volume_size;
        std::uint16_t files;
        std::uint32_t status;
    };
    for (const row& r :
         {row{"65 files", 6, 24384, 65, 0}, row{"64 files", 6, 24384, 64, 5}, row{"none", 6, 24384, 0, 5},
          row{"all of the flash", 6, 0xC000, 100, 0}, row{"more than the flash", 6, 0xC001, 100, 5},
          row{"no volume at all", 6, 0, 100, 5}, row{"short of the heads", 6, 213, 100, 5},
          row{"short of the FAT's last page", 6, 255, 100, 5}, row{"size above all", 6, 0xFFFFFFFF, 100, 5},
          row{"more files than bytes", 6, 0xC000, 0xFFFF, 5}, row{"ids up to 0xFFFD", 255, 255 * 8192, 34943, 0},
          row{"ids up to 0xFFFE", 255, 255 * 8192, 34944, 5}}) {
        volume v(r.eus, 0, 100);
        v.header().volume_size = r.volume_size;
        v.header().files = r.files;
        bench b(v);
        const auto before = b.image;
        EXPECT_EQ(b.open(), r.status) << r.name;
        EXPECT_EQ(b.image, before) << r.name;
    }
    volume v = small();
    v.header().magic = 0x724F6202;
    bench b(v);
    EXPECT_EQ(b.open(), 5U);
}

// What a FAT entry may hold, as a file's head and as the end of the chain of file 7, whose chunk is 5.
TEST(AfsOpen, FatValues)
{
    struct row {
        std::uint16_t value;
        std::uint32_t head, chain; // statuses
        std::optional<std::uint32_t> head_size, chain_size;
    };
    for (const row& r : {row{0, 0, 0, {}, 0}, row{1, 5, 0, {}, 1}, row{64, 5, 0, {}, 64}, row{65, 5, 5, {}, {}},
                         row{99, 5, 5, {}, {}}, row{100, 0, 0, 0, 64}, row{465, 0, 0, 0, 64}, row{466, 5, 5, {}, {}},
                         row{0xFFFD, 5, 5, {}, {}}, row{0xFFFE, 0, 5, {}, {}}, row{0xFFFF, 0, 5, 0, {}}}) {
        for (const bool head : {true, false}) {
            SCOPED_TRACE(testing::Message() << (head ? "head " : "chain ") << r.value);
            volume v(6, 3, 100);
            v.dead(0).dead(365); // ids 100 and 465 have entries of 0: a last chunk without bytes
            if (head)
                v.fat(7, r.value);
            else
                v.file(7, bytes(10)).in_chunks({5}).last_entry(r.value);
            const std::uint32_t status = head ? r.head : r.chain;
            const auto expected = head ? r.head_size : r.chain_size;
            bench b(v);
            EXPECT_EQ(b.open(), status);
            std::uint32_t size = 0, len = 1000;
            content buf(1000);
            if (status == 0) {
                EXPECT_EQ(afs_getfilesize(&b.ctx, 7, &size), expected ? 0U : 2U);
                EXPECT_EQ(size, expected.value_or(0));
            }
            // Without a scan the volume opens, and the walk itself finds out.
            bench blind(v);
            ASSERT_EQ(blind.open(0x2C), 0U);
            std::uint16_t next = 0;
            afs_get_next_cid(&blind.ctx, 7, &next);
            EXPECT_EQ(afs_get_next_cid(&blind.ctx, head ? 7 : 105, &next), status);
            EXPECT_EQ(next, r.value); // the caller has the bad value too
            const std::uint32_t answer = status != 0 || expected ? status : 2;
            EXPECT_EQ(afs_getfilesize(&blind.ctx, 7, &size), answer);
            EXPECT_EQ(afs_readfile(&blind.ctx, 7, 0, &len, buf.data()), answer);
            EXPECT_EQ(len, answer == 0 ? expected.value_or(0) : 1000);
        }
    }
}

TEST(AfsOpen, ChainsThatDoNotEnd)
{
    struct row {
        const char* name;
        unsigned chunks;
        std::uint16_t last;
        std::uint32_t status;
    };
    for (const row& r : {row{"one chunk short of all", 365, 64, 0}, row{"all chunks", 366, 64, 5},
                         row{"back to the first", 3, 100, 5}, row{"to itself", 3, 102, 5}}) {
        volume v(6, 3, 100);
        v.file(7, bytes(r.chunks * 64)).last_entry(r.last);
        bench b(v);
        EXPECT_EQ(b.open(), r.status) << r.name;
    }
}

TEST(AfsOpen, ReadOnlyAndSizes)
{
    const content want = bytes(300);
    for (const std::uint32_t flags : {0x25U, 0x24U, 0x2DU, 0x2CU, 0xA5U}) {
        SCOPED_TRACE(flags);
        bench b(small());
        const auto before = b.image;
        ASSERT_EQ(b.open(flags), 0U);
        EXPECT_EQ(b.ctx.file_sizes != nullptr, (flags & 1) != 0);
        EXPECT_EQ(b.ctx.alloc_map == nullptr, (flags & 8) != 0);
        EXPECT_EQ(b.ctx.no_alloc_map, (flags & 8) != 0 ? 1 : 0);
        EXPECT_EQ(b.ctx.ftl_allocator, (flags & 8) != 0 ? 0 : 1);
        EXPECT_EQ(b.read(7), want);
        EXPECT_EQ(b.read(8), content());
        EXPECT_EQ(b.read(9), std::nullopt);
        EXPECT_EQ(b.image, before);
        b.chip.violations_fail_test(false);
        b.chip.reset_counters();
        b.chip.fail(chip_call::read, 1, chip_fault::before, 99); // with its sizes kept, a size needs no flash
        std::uint32_t size = 0;
        cache_invalidate(&b.ctx);
        EXPECT_EQ(afs_getfilesize(&b.ctx, 7, &size), (flags & 1) != 0 ? 0U : 5U);
        b.chip.power_on();
        EXPECT_EQ(b.write(9, 0, bytes(10)), (flags & 8) != 0 ? 28U : 0U);
        EXPECT_EQ(b.read(9).has_value(), (flags & 8) == 0);
        EXPECT_EQ(b.read(7), want);
        afs_free_file_size_table(&b.ctx);
        EXPECT_EQ(b.read(7), want);
    }
}

TEST(AfsOpen, CacheReadAheadAndOtherFlags)
{
    volume v = small();
    v.log(0).wrong_crc(14);
    bench b(v);
    ASSERT_EQ(b.open(0x20025 | 0x80, 15), 0U); // page 14 can't be read: ignored
    EXPECT_EQ(gpBuffer, b.image.data());
    b.chip.reset_counters();
    void* line = nullptr;
    for (const std::uint16_t page : std::initializer_list<std::uint16_t>{13, 0, 5})
        EXPECT_EQ(cache_ptr(&b.ctx, page, &line), 0U);
    EXPECT_EQ(b.chip.counters().reads, 0U);
    EXPECT_EQ(cache_ptr(&b.ctx, 14, &line), 5U);

    bench mounted(small());
    ASSERT_EQ(mounted.open(), 0U);
    EXPECT_EQ(mounted.open(0x05), 0U); // over the FTL that it has
    EXPECT_EQ(mounted.read(7), bytes(300));

    bench zeroed(small());
    zeroed.ctx.idle_reclaim_enabled = 1;
    EXPECT_EQ(zeroed.open(0x25), 0U);
    EXPECT_EQ(zeroed.ctx.idle_reclaim_enabled, 1);
    afs_free_context(&zeroed.ctx);
    EXPECT_EQ(zeroed.open(0x65), 0U);
    EXPECT_EQ(zeroed.ctx.idle_reclaim_enabled, 0);
    EXPECT_EQ(zeroed.ctx.staging, nullptr);
}

TEST(AfsOpen, CreatesAndFormats)
{
    const std::vector<std::uint8_t> blank(0xC000, 0xFF);
    const auto headless = [] {
        volume v(6, 0, 100);
        v.without_header();
        return v.image();
    };
    struct row {
        const char* name;
        std::vector<std::uint8_t> image;
        std::uint32_t flags, status;
        std::uint64_t writes, erases;
    };
    // A format writes two pieces of 6 headers, a new volume header is one page of the log.
    for (const row& r :
         {row{"no header", headless(), 0x25, 5, 0, 0}, row{"no header, create", headless(), 0x35, 0, 3, 0},
          row{"no header, 0x100", headless(), 0x125, 5, 0, 0}, row{"blank", blank, 0x25, 5, 0, 0},
          row{"blank, create", blank, 0x35, 5, 0, 0}, row{"blank, format", blank, 0x40025, 5, 12, 0},
          row{"blank, format and create", blank, 0x40035, 0, 15, 0},
          row{"blank, erase and create", blank, 0x80035, 0, 15, 12},
          row{"a volume, create", small().image(), 0x35, 0, 0, 0},
          row{"a volume, distrusted", small().image(), 0x125, 5, 0, 0},
          row{"a volume, distrusted, erase", small().image(), 0x80125, 0, 15, 12}}) {
        SCOPED_TRACE(r.name);
        bench b(r.image);
        EXPECT_EQ(b.open(r.flags), r.status);
        EXPECT_EQ(b.chip.counters().writes, r.writes);
        EXPECT_EQ(b.chip.counters().erases, r.erases);
        if (r.status != 0 || r.writes == 0) continue;
        EXPECT_EQ(b.ctx.header_word, 0x0ABC5AU);
        const content header{0x01, 0x62, 0x4F, 0x72, 0x5A, 0xBC, 0x0A, 0, 0, 0xC0, 0, 0, 100, 0};
        content page(64);
        EXPECT_EQ(b.ctx.handler->read_page(&b.ctx, 0, 64, page.data(), 0), 0U);
        EXPECT_EQ(content(page.begin(), page.begin() + 14), header);
        EXPECT_EQ(std::count(page.begin() + 14, page.end(), 0), 50);
        EXPECT_EQ(b.read(7), std::nullopt);
        EXPECT_EQ(b.write(7, 0, {}), 0U); // an empty file needs no chunk
        ASSERT_EQ(b.reopen(), 0U);
        EXPECT_EQ(b.ctx.header_word, 0x0ABC5AU);
        EXPECT_EQ(b.read(7), content());
    }
}

TEST(AfsOpen, ZombiesEnd)
{
    volume v = small();
    v.zombie(20).zombie(21);
    bench b(v);
    const auto before = b.image;
    ASSERT_EQ(b.open(), 0U);
    EXPECT_EQ(b.image, before); // in the cache, until something else is written
    EXPECT_EQ(b.read(20), std::nullopt);
    EXPECT_EQ(afs_mark_zombie_file(&b.ctx, 20), 0U); // a free number
    EXPECT_EQ(b.write(20, 0, bytes(5)), 0U);
    EXPECT_TRUE(clean(b.image));
    EXPECT_TRUE(holds(b.image, {{7, bytes(300)}, {8, {}}, {20, bytes(5)}}));
    EXPECT_EQ(inspect::inspect_image(b.image).file[21].state, inspect::file_state::absent);
}

// A reclaim cut between the end of its source and its commit byte: a writable open finishes it, as its last act.
TEST(AfsOpen, WritesAMissingCommitByte)
{
    struct row {
        const char* name;
        edit change;
        std::uint32_t flags, status;
        bool written;
    };
    for (const row& r :
         {row{"writable", [](volume&) {}, 0x25, 0, true}, row{"read only", [](volume&) {}, 0x2D, 0, false},
          row{"a corrupt chain", [](volume& v) { v.fat(9, 65); }, 0x25, 5, false},
          row{"a page in use that isn't complete",
              [](volume& v) { v.file(9, bytes(5)).in_chunks({200}).record(0, 0x7F); }, 0x25, 5, false}}) {
        SCOPED_TRACE(r.name);
        volume v = small();
        v.swap(2, 5);
        v.eu(2).base_page(15); // given up, its successor is EU 5
        v.eu(5).seq(6).src(2).commit(0xFF);
        r.change(v);
        bench b(v);
        const auto before = b.image;
        EXPECT_EQ(b.open(r.flags), r.status);
        if (r.status == 0) {
            EXPECT_EQ(b.read(7), bytes(300));
        }
        auto want = before;
        if (r.written) want[5 * 8192 + 17] = 0;
        EXPECT_EQ(b.image, want);
        b.image = before;
        b.chip.fail(chip_call::write, 1, chip_fault::before);
        EXPECT_EQ(b.reopen(), 5U);
    }
}

TEST(AfsOpen, EveryReadAndAllocationCanFail)
{
    volume v = small();
    for (unsigned n = 1;; ++n) {
        bench b(v);
        b.chip.fail(chip_call::read, n, chip_fault::before);
        const std::uint32_t status = b.open();
        if (status == 0) {
            EXPECT_EQ(n, 20U); // two mounts of 6 headers and a log, 2 FAT pages, the records of 3 data EUs
            break;
        }
        ASSERT_EQ(status, 5U) << n;
    }
    const auto held = blocks_held();
    for (unsigned n = 1;; ++n) {
        bench b(v);
        fail_allocation(n);
        const std::uint32_t status = b.open();
        if (status == 0) {
            EXPECT_EQ(n, 11U); // 3 and 3 of the FTL, 2 of the cache, sizes, map
            break;
        }
        ASSERT_EQ(status, n <= 3 ? 5U : 12U) << n; // the first mount that fails may always be formatted over
        afs_free_context(&b.ctx);
        EXPECT_EQ(blocks_held(), held) << n;
    }
    fail_allocation(0);
    bench b(v);
    ASSERT_EQ(b.open(), 0U);
    const auto once = blocks_held();
    EXPECT_EQ(b.open(), 0U); // a second open over the same context keeps nothing of the first
    EXPECT_EQ(blocks_held(), once);
    afs_free_context(&b.ctx);
    EXPECT_EQ(blocks_held(), held);
    EXPECT_EQ(b.ctx.alloc_map, nullptr);
    EXPECT_EQ(b.ctx.file_sizes, nullptr);
    EXPECT_EQ(b.ctx.line_table, nullptr);
    EXPECT_EQ(b.ctx.cache_data, nullptr);
    EXPECT_EQ(b.ctx.ftl, nullptr);
    afs_free_context(&b.ctx);
    afs_free_context(nullptr);
    afs_free_file_size_table(nullptr);
}

} // namespace
} // namespace yfs::test
