// Changing files: what becomes of contents and chain, in what order it reaches flash, and what a failure leaves.
#include "tests/afs/afs_bench.h"
#include "yfs/status.h"

#include <random>

namespace yfs::test {
namespace {

constexpr std::uint32_t trunc = 1;
constexpr int file = 7;

// What a write makes of a file, byte by byte.
content changed(content old, std::uint32_t offset, const content& news, std::uint32_t flags)
{
    const std::size_t end = offset + news.size();
    if (news.empty() && flags != trunc) return old;
    if (old.size() < end || flags == trunc) old.resize(end);
    std::copy(news.begin(), news.end(), old.begin() + offset);
    return old;
}

// The chain before and after: the first chunks stay, new ones follow, and behind them the old rest.
TEST(AfsWrite, ReplacesNoMoreThanItMust)
{
    constexpr int absent = -1, zombie = -2;
    struct row {
        const char* name;
        int old_size;
        std::uint32_t offset, len, flags;
        unsigned kept, fresh, behind;
        std::uint16_t last;
    };
    for (const row& r : {
             row{"64 bytes of a new file", absent, 0, 64, 0, 0, 1, 0, 64},
             {"on a zombie", zombie, 0, 65, 0, 0, 2, 0, 1},
             {"a byte in the middle", 1000, 500, 1, 0, 7, 1, 8, 40},
             {"over a boundary", 300, 63, 2, 0, 0, 2, 3, 44},
             {"a whole chunk", 300, 64, 64, 0, 1, 1, 3, 44},
             {"inside the last chunk", 1000, 965, 3, 0, 15, 1, 0, 40},
             {"up to the end", 1000, 990, 10, 0, 15, 1, 0, 40},
             {"past the end", 1000, 990, 30, 0, 15, 1, 0, 60},
             {"past the end, to a boundary", 1000, 990, 34, 0, 15, 1, 0, 64},
             {"past the end by chunks", 1000, 990, 100, 0, 15, 3, 0, 2},
             {"behind a full chunk", 128, 128, 5, 0, 2, 1, 0, 5},
             {"behind a part of one", 100, 100, 5, 0, 1, 1, 0, 41},
             {"behind a gap", 100, 300, 5, 0, 1, 4, 0, 49},
             {"a gap in an empty file", 0, 1000, 10, 0, 0, 16, 0, 50},
             {"all of it", 300, 0, 300, 0, 0, 5, 0, 44},
             {"nothing", 300, 100, 0, 0, 5, 0, 0, 44},
             {"nothing, far behind", 300, 0xFFFFFFFF, 0, 0, 5, 0, 0, 44},
             {"replace, shorter", 300, 0, 100, trunc, 0, 2, 0, 36},
             {"replace, longer", 100, 0, 300, trunc, 0, 5, 0, 44},
             {"a new tail", 300, 64, 64, trunc, 1, 1, 0, 64},
             {"a new tail in a chunk", 300, 70, 4, trunc, 1, 1, 0, 10},
             {"cut on a boundary", 300, 128, 0, trunc, 2, 0, 0, 64},
             {"cut at its very end", 128, 128, 0, trunc, 2, 0, 0, 64},
             {"cut in a chunk", 300, 100, 0, trunc, 1, 1, 0, 36},
             {"extend in the last chunk", 300, 310, 0, trunc, 4, 1, 0, 54},
             {"extend to a boundary", 300, 320, 0, trunc, 4, 1, 0, 64},
             {"extend by chunks", 300, 400, 0, trunc, 4, 3, 0, 16},
             {"extend an empty file", 0, 64, 0, trunc, 0, 1, 0, 64},
             {"empty", 300, 0, 0, trunc, 0, 0, 0, 0xFFFF},
             {"make an empty one", absent, 0, 0, 0, 0, 0, 0, 0xFFFF},
             {"make an empty one by a cut", absent, 0, 0, trunc, 0, 0, 0, 0xFFFF},
             {"an empty one of a zombie", zombie, 50, 0, 0, 0, 0, 0, 0xFFFF},
         }) {
        SCOPED_TRACE(r.name);
        volume v(6, 3, 100);
        content model = bytes(r.old_size > 0 ? static_cast<std::size_t>(r.old_size) : 0);
        if (r.old_size > 0) v.file(file, model);
        if (r.old_size == 0) v.empty(file);
        v.file(50, bytes(100, 50));
        bench b(v);
        ASSERT_EQ(b.open(), 0U);
        if (r.old_size == zombie) {
            ASSERT_EQ(afs_mark_zombie_file(&b.ctx, file), 0U);
        }
        const auto before = b.chain(file);
        b.chip.clear_journal();
        const content news = bytes(r.len, 99);
        EXPECT_EQ(b.write(file, r.offset, news, r.flags), 0U);
        model = changed(model, r.offset, news, r.flags);
        if (std::string(r.name).starts_with("nothing")) {
            EXPECT_TRUE(b.chip.journal().empty());
        }
        const auto after = b.chain(file);
        ASSERT_EQ(after.size(), r.kept + r.fresh + r.behind + 2);
        EXPECT_EQ(after.back(), r.last);
        const auto chunks = [](const auto& c, std::size_t from, std::size_t count) {
            return std::vector<std::uint16_t>(c.begin() + static_cast<std::ptrdiff_t>(from),
                                              c.begin() + static_cast<std::ptrdiff_t>(from + count));
        };
        EXPECT_EQ(chunks(after, 1, r.kept), chunks(before, 1, r.kept));
        EXPECT_EQ(chunks(after, after.size() - 1 - r.behind, r.behind),
                  chunks(before, before.size() - 1 - r.behind, r.behind));
        for (const std::uint16_t cid : chunks(after, 1 + r.kept, r.fresh))
            EXPECT_EQ(std::count(before.begin(), before.end(), cid), 0) << cid;
        EXPECT_EQ(b.read(file), model);
        EXPECT_EQ(b.in_use(), after.size() - 2 + 2); // and file 50
        EXPECT_TRUE(b.sound_with({{file, model}, {50, bytes(100, 50)}}));
    }
}

TEST(AfsWrite, AgainstAModel)
{
    for (const unsigned old_size : {0U, 1U, 63U, 64U, 65U, 127U, 128U, 130U, 192U, 200U}) {
        volume v(6, 3, 100);
        if (old_size != 0) v.file(file, bytes(old_size));
        const auto image = v.image();
        for (const std::uint32_t offset : {0U, 1U, 63U, 64U, 65U, 100U, 127U, 128U, 130U, 192U, 200U, 260U})
            for (const std::uint32_t len : {0U, 1U, 2U, 63U, 64U, 65U, 128U, 200U})
                for (const std::uint32_t flags : {0U, trunc}) {
                    bench b(image);
                    ASSERT_EQ(b.open(), 0U);
                    const content news = bytes(len, 5);
                    ASSERT_EQ(b.write(file, offset, news, flags), 0U);
                    const content model = changed(bytes(old_size), offset, news, flags);
                    ASSERT_EQ(b.read(file), model) << old_size << ": " << len << " at " << offset << ", " << flags;
                    ASSERT_EQ(b.in_use(), (model.size() + 63) / 64);
                    ASSERT_TRUE(holds(inspect::inspect_image(b.image), {{file, model}}));
                    ASSERT_EQ(b.reopen(), 0U);
                    ASSERT_EQ(b.read(file), model);
                }
    }
}

// More than staging takes at once, beginning anywhere in it.
TEST(AfsWrite, LongOnesAgainstAModel)
{
    bench b(volume(12, 8, 100));
    ASSERT_EQ(b.open(), 0U);
    content model;
    for (const auto& [offset, len, flags] :
         rows<3>{{10, 9000, 0}, {0, 4097, 0}, {63, 4096, 1}, {64, 8192, 1}, {1, 12345, 0}}) {
        ASSERT_EQ(b.write(file, offset, bytes(len, len), flags), 0U);
        model = changed(model, offset, bytes(len, len), flags);
        ASSERT_EQ(b.read(file), model) << len << " at " << offset;
    }
}

TEST(AfsWrite, Limits)
{
    bench b(volume(48, 40, 100)); // 4880 chunks
    ASSERT_EQ(b.open(), 0U);
    const content most = bytes(0x40000);
    struct row {
        const char* name;
        std::int32_t number;
        std::uint32_t offset, len, flags, status;
    };
    for (const row& r :
         {row{"one too many", file, 0, 0x40001, 0, 27}, row{"ends behind", file, 1, 0x40000, 0, 27},
          row{"begins behind", file, 0x40001, 0, trunc, 27}, row{"at the end", file, 0x40000, 1, 0, 27},
          row{"the sum wraps", file, 0xFFFFFFFF, 2, 0, 27}, row{"length wraps", file, 2, 0xFFFFFFFF, 0, 27},
          row{"nothing, behind", file, 0x40001, 0, 0, 0}, row{"negative", -1, 0, 1, 0, 22},
          row{"above the last", 100, 0, 1, 0, 22}, row{"far above", INT32_MAX, 0, 1, trunc, 22},
          row{"the number goes first", 100, 0, 0x40001, 0, 22}})
        EXPECT_EQ(afs_writefile(&b.ctx, r.number, r.offset, r.len, most.data(), r.flags), r.status) << r.name;
    EXPECT_EQ(afs_writefile(nullptr, file, 0, 1, most.data(), 0), 22U);
    EXPECT_EQ(afs_writefile(&b.ctx, file, 0, 1, nullptr, 0), 22U);
    EXPECT_EQ(b.read(file), content());
    EXPECT_EQ(b.write(file, 0, most), 0U);
    EXPECT_EQ(b.read(file), most);
    EXPECT_EQ(b.write(8, 0x3FFFF, content(1, 9)), 28U); // 4096 of 4880 chunks are taken
    EXPECT_EQ(b.read(8), std::nullopt);
    EXPECT_EQ(b.write(file, 0, content(60000, 1), trunc), 28U);
    EXPECT_EQ(b.read(file), most);
    EXPECT_EQ(b.write(file, 0x3FFFF, content(1, 9)), 0U);
    EXPECT_EQ(b.write(file, 0x30000, {}, trunc), 0U); // a cut on a boundary needs no room
    EXPECT_EQ(b.read(file), content(most.begin(), most.begin() + 0x30000));
    EXPECT_TRUE(b.sound());
}

// Without room nothing changes, and what was taken on the way is free again.
TEST(AfsWrite, WithoutRoom)
{
    for (const unsigned free : {0U, 1U, 5U}) {
        volume v(6, 3, 100);
        v.file(1, bytes((363 - free) * 64)), v.file(2, bytes(10)), v.file(file, bytes(100));
        bench b(v);
        ASSERT_EQ(b.open(), 0U);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(b.write(file, 0, content((free + 1) * 64, 1), trunc), 28U);
            EXPECT_EQ(b.write(3, 0, content((free + 1) * 64, 1)), 28U);
            EXPECT_EQ(b.in_use(), 366 - free);
        }
        EXPECT_EQ(b.read(file), bytes(100));
        EXPECT_EQ(b.read(3), std::nullopt);
        EXPECT_TRUE(b.sound());
        if (free == 0) continue;
        EXPECT_EQ(b.write(3, 0, bytes(free * 64, 3)), 0U);
        EXPECT_TRUE(b.sound_with(
            {{1, bytes((363 - free) * 64)}, {2, bytes(10)}, {3, bytes(free * 64, 3)}, {file, bytes(100)}}));
    }
}

// Data pages first, then FAT pages from the end of the chain to its head.
TEST(AfsWrite, OrderOfAReplace)
{
    volume v(6, 3, 100);
    v.file(file, bytes(90 * 64));
    bench b(v);
    ASSERT_EQ(b.open(), 0U);
    b.chip.clear_journal();
    ASSERT_EQ(b.write(file, 0, bytes(90 * 64, 2), trunc), 0U);
    std::vector<unsigned> fat_pages;
    unsigned data_pages = 0;
    for (const chip_change& c : b.chip.journal()) {
        if (c.len != ftl::frame_size) continue;
        if (b.ctx.ftl->eu_table[c.addr / ftl::eu_size].base_page != 0) {
            EXPECT_TRUE(fat_pages.empty()) << "a data page behind a FAT page";
            ++data_pages;
            continue;
        }
        const unsigned slot = (c.addr % ftl::eu_size - 260) / 66;
        for (unsigned p = 0; p < 15; ++p)
            if (b.ctx.ftl->page_map[p].slot == slot) fat_pages.push_back(p);
    }
    EXPECT_EQ(data_pages, 90U);
    const auto chain = b.chain(file);
    std::vector<unsigned> expected;
    for (std::size_t i = chain.size() - 2;; --i) {
        const unsigned page = volume::page_of(chain[i]);
        if (expected.empty() || expected.back() != page) expected.push_back(page);
        if (i == 0) break;
    }
    EXPECT_EQ(fat_pages, expected);
    EXPECT_GE(fat_pages.size(), 4U);
    EXPECT_EQ(fat_pages.back(), 0U); // the head of file 7
    EXPECT_EQ(b.chip.journal().back().bytes, std::vector<std::uint8_t>{0x7F});
}

// Many changes on volumes of several shapes. A replace finds no room only where there is none.
TEST(AfsWrite, Churn)
{
    struct row {
        const char* name;
        unsigned eus, data_eus, files;
        std::uint32_t volume_size = 0; // 0: whole groups
    };
    for (const row& r : {row{"six EUs", 6, 3, 100},
                         {"one data EU", 4, 1, 65},
                         {"one log EU", 8, 6, 100},
                         {"the last group not whole", 6, 3, 100, 346 * 66 + 214}}) {
        for (const unsigned seed : {1U, 2U, 3U}) {
            SCOPED_TRACE(testing::Message() << r.name << ", seed " << seed);
            std::mt19937 engine(seed);
            const auto dice = [&](unsigned sides) { return static_cast<unsigned>(engine() % sides); };
            volume v(r.eus, r.data_eus, r.files);
            if (r.volume_size != 0) v.header().volume_size = r.volume_size;
            bench b(v);
            ASSERT_EQ(b.open(), 0U);
            contents model;
            for (unsigned step = 0; step < 700; ++step) {
                const unsigned n = dice(12);
                const unsigned most = b.ctx.chunks * 10;
                const bool replace = dice(2) == 0;
                const std::uint32_t offset = replace ? 0 : dice(700);
                const std::uint32_t flags = replace || dice(4) == 0 ? trunc : 0;
                const content news = bytes(dice(replace ? most : 400), step);
                if (dice(10) == 0) {
                    ASSERT_EQ(afs_deletefile(&b.ctx, static_cast<int>(n)), model.erase(n) != 0 ? 0U : 2U) << step;
                } else {
                    const unsigned room = b.ctx.chunks - b.in_use();
                    const std::uint32_t status = b.write(static_cast<int>(n), offset, news, flags);
                    if (replace) {
                        ASSERT_EQ(status, (news.size() + 63) / 64 > room ? 28U : 0U) << step << ", room " << room;
                    } else if (status != 0) {
                        ASSERT_EQ(status, 28U) << step;
                        ASSERT_LT(room, 30U) << step;
                    }
                    if (status == 0) model[n] = changed(model[n], offset, news, flags);
                }
                if (step % 10 != 0) continue;
                ASSERT_TRUE(b.sound_with(model)) << step;
                if (step % 50 == 0) {
                    ASSERT_EQ(b.reopen(), 0U) << step;
                }
            }
            EXPECT_GT(b.chip.counters().erases, 20U);
        }
    }
}

// Every call of the chip and every allocation fails in turn: the file is the old one or the new one, the rest stays.
TEST(AfsWrite, EveryCallCanFail)
{
    struct row {
        const char* name;
        std::uint32_t offset, len, flags;
        bool tight; // a data and a log reclaim on the way
    };
    for (const row& r :
         {row{"replace", 0, 400, trunc, false}, row{"overwrite", 100, 100, 0, false}, row{"extend", 290, 200, 0, false},
          row{"cut", 128, 0, trunc, false}, row{"empty", 0, 0, trunc, false},
          row{"replace, tight", 0, 400, trunc, true}, row{"cut, tight", 128, 0, trunc, true}}) {
        volume v(6, 3, 100);
        v.file(file, bytes(300)), v.file(50, bytes(700, 50));
        if (r.tight) {
            for (unsigned i = 16; i < 364; ++i) v.dead(i);
            v.log(0).fill(14);
            v.log(1).fill(14, 117);
        }
        const content news = bytes(r.len, 9), after = changed(bytes(300), r.offset, news, r.flags);
        const auto image = v.image();
        for (int kind = 0; kind < 4; ++kind) { // read, write, erase, allocation
            unsigned n = 1;
            for (;; ++n) {
                SCOPED_TRACE(testing::Message() << r.name << ", call " << kind << " number " << n);
                bench b(image);
                ASSERT_EQ(b.open(), 0U);
                const auto held = live_blocks();
                const unsigned in_use = b.in_use();
                if (kind == 3)
                    fail_allocation(n);
                else
                    b.chip.fail(static_cast<chip_call>(kind), n, chip_fault::before);
                b.chip.reset_counters();
                const std::uint32_t status = b.write(file, r.offset, news, r.flags);
                const auto& calls = b.chip.counters();
                const std::uint64_t made[] = {calls.reads, calls.writes, calls.erases, 0};
                fail_allocation(0);
                b.chip.power_on();
                EXPECT_EQ(live_blocks(), held);
                if (status != 0) {
                    ASSERT_EQ(status, kind == 3 ? 12U : 5U);
                    EXPECT_EQ(b.in_use(), in_use);
                }
                if (status != 0 && !r.tight) { // the run goes on with the old file, and so does the next one
                    EXPECT_EQ(b.read(file), bytes(300));
                    EXPECT_EQ(b.write(52, 0, bytes(64, 4)), 0U);
                    EXPECT_EQ(b.read(file), bytes(300));
                }
                ASSERT_EQ(b.reopen(), 0U);
                const auto found = b.read(file);
                EXPECT_TRUE(found == after || (status != 0 && found == bytes(300)));
                EXPECT_EQ(b.read(50), bytes(700, 50));
                EXPECT_EQ(b.write(51, 0, bytes(64, 3)), 0U);
                if (status == 0 && made[kind] < n) break; // behind the last call
            }
            EXPECT_GE(n, kind == 2 ? (r.tight ? 3U : 1U) : kind == 3 ? 2U : 4U) << r.name << " " << kind;
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
    for (const unsigned expected : {464U, 465U, 100U, 101U}) {
        EXPECT_EQ(afs_allocate_chunk(&b.ctx, &cid), 0U);
        EXPECT_EQ(cid, expected);
    }
    EXPECT_EQ(b.ctx.scan_next, 2U);
    b.ctx.scan_next = 365;
    for (unsigned i = 0; i < 362; ++i) EXPECT_EQ(afs_allocate_chunk(&b.ctx, &cid), 0U);
    EXPECT_EQ(cid, 463);
    EXPECT_EQ(afs_allocate_chunk(&b.ctx, &cid), 28U);
}

} // namespace
} // namespace yfs::test
