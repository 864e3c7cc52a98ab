// Reading: bytes against a model, and how many flash reads they cost.
#include "tests/afs/afs_bench.h"
#include "yfs/status.h"

namespace yfs::test {
namespace {

constexpr int file = 7;

// Reads a part and compares it; what lies behind the part stays.
void expect_part(bench& b, const content& model, std::uint32_t offset, std::uint32_t wanted)
{
    static content buf(30000);
    const std::uint32_t left = offset < model.size() ? static_cast<std::uint32_t>(model.size()) - offset : 0;
    const std::uint32_t due = std::min(left, wanted);
    std::fill_n(buf.begin(), due + 70, std::uint8_t{0xEE});
    std::uint32_t len = wanted;
    ASSERT_EQ(afs_readfile(&b.ctx, file, offset, &len, buf.data()), 0U) << offset << " " << wanted;
    ASSERT_EQ(len, due) << offset << " " << wanted;
    ASSERT_TRUE(std::equal(buf.begin(), buf.begin() + due, model.begin() + (due == 0 ? 0 : offset)))
        << wanted << " at " << offset << " of " << model.size();
    ASSERT_EQ(std::count(buf.begin() + due, buf.begin() + due + 70, 0xEE), 70) << offset << " " << wanted;
}

// Neighbouring chunks, around the limits of a run: 62 pages of 66 bytes in staging.
TEST(AfsRead, ContiguousFilesAtAllOffsets)
{
    for (const unsigned size : {1U, 63U, 64U, 65U, 128U, 61 * 64U, 62 * 64U - 1, 62 * 64U, 62 * 64U + 1, 63 * 64U,
                                64 * 64U, 123 * 64U + 5, 124 * 64U, 125 * 64U, 200 * 64U}) {
        const content model = bytes(size, size);
        volume v(6, 3, 100);
        v.file(file, model);
        bench b(v);
        ASSERT_EQ(b.open(), 0U);
        b.chip.reset_counters();
        EXPECT_EQ(b.read(file), model);
        const unsigned chunks = (size + 63) / 64;
        // One read for each run, one more where it crosses from EU 2 to EU 3, and the FAT pages.
        const unsigned fat_pages = volume::page_of(100 + chunks - 1) - volume::page_of(100) + 1;
        EXPECT_LE(b.chip.counters().reads, (chunks + 61) / 62 + (chunks > 122 ? 1 : 0) + fat_pages);
        const std::uint32_t step = size < 4200 ? 1 : 61;
        for (std::uint32_t offset = 0; offset <= size + 65; offset += step)
            for (const std::uint32_t wanted : {1U, 64U, 100U, size}) expect_part(b, model, offset, wanted);
        for (const std::uint32_t wanted : {3765U, 3766U, 3767U, 4030U, 4031U, 4096U, 8192U, 0x7FFFFFFFU})
            for (const std::uint32_t offset : {0U, 1U, 63U, 64U}) expect_part(b, model, offset, wanted);
        for (const std::uint32_t offset : {size, size + 64, 0x40000U, 0xFFFFFFC0U, 0xFFFFFFFFU})
            expect_part(b, model, offset, 100);
        if (HasFatalFailure()) return;
    }
}

// Runs of every length after each other, down to single chunks, so that staging fills up in many ways.
TEST(AfsRead, ScatteredChains)
{
    unsigned seed = 1;
    for (const unsigned longest : {1U, 2U, 3U, 7U, 20U, 58U, 61U}) {
        std::vector<unsigned> chunks;
        const content dice = bytes(400, ++seed);
        unsigned at = 0;
        for (unsigned i = 0; at < 350; ++i) {
            unsigned run = 1 + dice[i] % longest;
            for (; run > 0 && at < 350; --run) chunks.push_back(at++);
            ++at; // a gap
        }
        std::rotate(chunks.begin(), chunks.begin() + static_cast<std::ptrdiff_t>(chunks.size() / 3), chunks.end());
        const content model = bytes(chunks.size() * 64 - 30, seed);
        volume v(6, 3, 100);
        v.file(file, model).in_chunks(chunks);
        v.swap(2, 4);
        bench b(v);
        ASSERT_EQ(b.open(), 0U);
        EXPECT_EQ(b.read(file), model);
        for (std::uint32_t offset = 0; offset < model.size() + 64; offset += 17)
            for (const std::uint32_t wanted : {1U, 130U, 3766U, 5000U, 20000U}) expect_part(b, model, offset, wanted);
        if (HasFatalFailure()) return;
    }
}

TEST(AfsRead, CostOfSmallReads)
{
    struct row {
        const char* name;
        std::vector<unsigned> chunks;
        std::uint32_t offset, wanted;
        std::uint64_t reads, bytes_read;
    };
    for (const row& r :
         {row{"neighbours", {4, 5, 6, 7, 8}, 60, 10, 1, 2 * 66}, row{"apart", {4, 9, 5, 6, 7}, 60, 10, 2, 132},
          row{"one chunk", {4, 5, 6, 7, 8}, 64, 64, 1, 66}, row{"the last", {4, 5, 6, 7, 8}, 299, 9, 1, 66},
          row{"passed over", {4, 9, 5, 6, 7}, 128, 172, 1, 3 * 66}, row{"at the end", {4, 5, 6, 7, 8}, 300, 10, 0, 0},
          row{"nothing", {4, 5, 6, 7, 8}, 0, 0, 0, 0}}) {
        volume v(6, 3, 100);
        v.file(file, bytes(300)).in_chunks(r.chunks);
        bench b(v);
        ASSERT_EQ(b.open(), 0U);
        EXPECT_EQ(b.read(file), bytes(300)); // the FAT is in the cache now
        b.chip.reset_counters();
        expect_part(b, bytes(300), r.offset, r.wanted);
        EXPECT_EQ(b.chip.counters().reads, r.reads) << r.name;
        EXPECT_EQ(b.chip.counters().bytes_read, r.bytes_read) << r.name;
    }
}

TEST(AfsRead, Statuses)
{
    volume v(6, 3, 100);
    v.file(file, bytes(5000)).wrong_crc(70);
    v.empty(8).zombie(9);
    bench b(v);
    ASSERT_EQ(b.open(), 0U);
    EXPECT_EQ(afs_mark_zombie_file(&b.ctx, 9), 0U); // again, after the mount has freed it
    struct row {
        const char* name;
        std::int32_t number;
        std::uint32_t offset, len, status, size_status;
    };
    content buf(6000);
    for (const row& r : {row{"before the bad page", file, 0, 70 * 64, 0, 0}, row{"into it", file, 0, 70 * 64 + 1, 5, 0},
                         row{"from it", file, 70 * 64 + 5, 1, 5, 0}, row{"behind it", file, 71 * 64, 400, 0, 0},
                         row{"negative length", file, 0, 0x80000000, 22, 0}, row{"empty", 8, 0, 10, 0, 0},
                         row{"zombie", 9, 0, 10, 2, 2}, row{"free", 10, 0, 10, 2, 2},
                         row{"free, nothing", 10, 0, 0, 2, 2}, row{"negative", -1, 0, 10, 22, 22},
                         row{"the last", 99, 0, 10, 2, 2}, row{"above the last", 100, 0, 10, 22, 22},
                         row{"far above", INT32_MAX, 0, 10, 22, 22}, row{"far below", INT32_MIN, 0, 10, 22, 22}}) {
        std::uint32_t len = r.len, size = 77;
        EXPECT_EQ(afs_readfile(&b.ctx, r.number, r.offset, &len, buf.data()), r.status) << r.name;
        if (r.status != 0) {
            EXPECT_EQ(len, r.len) << r.name;
        }
        EXPECT_EQ(afs_getfilesize(&b.ctx, r.number, &size), r.size_status) << r.name;
        EXPECT_EQ(size, r.size_status != 0 ? 77U : r.number == 8 ? 0U : 5000U) << r.name;
    }
    std::uint32_t len = 10, size = 0;
    EXPECT_EQ(afs_readfile(nullptr, file, 0, &len, buf.data()), 22U);
    EXPECT_EQ(afs_readfile(&b.ctx, file, 0, &len, nullptr), 22U);
    EXPECT_EQ(afs_readfile(&b.ctx, file, 0, nullptr, buf.data()), 22U);
    EXPECT_EQ(afs_getfilesize(nullptr, file, &size), 22U);
    EXPECT_EQ(afs_getfilesize(&b.ctx, file, nullptr), 22U);
    for (unsigned n = 1; n <= 4; ++n) { // head, entry, page
        cache_invalidate(&b.ctx);
        b.chip.fail(chip_call::read, n, chip_fault::before);
        EXPECT_EQ(afs_readfile(&b.ctx, file, 0, &len, buf.data()), n <= 3 ? 5U : 0U) << n;
        b.chip.power_on();
    }
}

} // namespace
} // namespace yfs::test
