// Reading: bytes against a model, and how many flash reads they cost.
#include "tests/afs/afs_bench.h"

namespace yfs::test::afs_read {

// Reads a part and compares it; what lies behind the part stays.
void expect_part(bench& b, const content& model, std::uint32_t offset, std::uint32_t wanted)
{
    static content buf(30000);
    const std::uint32_t due = std::min(offset < model.size() ? low32(model.size()) - offset : 0, wanted);
    std::fill_n(buf.begin(), due + 70, std::uint8_t{0xEE});
    std::uint32_t len = wanted;
    ASSERT_EQ((words{afs_readfile(&b.ctx, file, offset, &len, buf.data()), len}), (words{0, due})) << offset;
    ASSERT_TRUE(std::equal(buf.begin(), buf.begin() + due, model.begin() + (due == 0 ? 0 : offset)) &&
                std::count(buf.begin() + due, buf.begin() + due + 70, 0xEE) == 70)
        << wanted << " at " << offset << " of " << model.size();
}

// Neighbours around the limits of a run (62 pages of 66 bytes in staging), read with one call each, one more where they
// cross from EU to EU; the FAT pages are in the cache. Then runs of up to `longest` with gaps between, so that staging
// fills up in many ways.
TEST(AfsRead, AllPartsOfAllShapes)
{
    for (const unsigned longest : {0U, 1U, 2U, 3U, 7U, 20U, 58U, 61U}) {
        std::vector<unsigned> chunks;
        const content dice = bytes(400, longest);
        for (unsigned at = 0, i = 0; longest != 0 && at < 350; ++at)
            for (unsigned run = 1 + dice[i++] % longest; run > 0 && at < 350; --run) chunks.push_back(at++);
        std::rotate(chunks.begin(), chunks.begin() + static_cast<int>(chunks.size() / 3), chunks.end());
        words sizes{1, 63, 64, 65, 128, 3904, 3967, 3968, 3969, 4032, 4096, 123 * 64 + 5, 124 * 64, 200 * 64};
        if (longest != 0) sizes = {low32(chunks.size() * 64 - 30)};
        for (const std::uint32_t size : sizes) {
            const unsigned count = (size + 63) / 64, step = longest != 0 ? 17 : size < 4200 ? 1 : 61;
            const content model = bytes(size, 3);
            volume v(6, 3, 100);
            v.file(file, model).in_chunks(chunks);
            bench b(v.swap(2, 4));
            ASSERT_EQ(b.open(), 0U);
            b.chip.reset_counters();
            EXPECT_EQ(b.read(file), model);
            if (longest == 0) {
                EXPECT_EQ(b.chip.counters().reads, (count + 61) / 62 + (count > 122)) << size;
            }
            for (std::uint32_t offset = 0; offset <= size + 65; offset += step)
                for (const std::uint32_t wanted : {1U, 64U, 130U, 3766U, 5000U, size})
                    expect_part(b, model, offset, wanted);
            for (const std::uint32_t wanted : {3765U, 3767U, 4030U, 4031U, 4096U, 8192U, 0x7FFFFFFFU})
                for (const std::uint32_t offset :
                     {0U, 1U, 63U, 64U, size, size + 64, 0x40000U, 0xFFFFFFC0U, 0xFFFFFFFFU})
                    expect_part(b, model, offset, wanted);
            if (HasFatalFailure()) return;
        }
    }
}

TEST(AfsRead, Statuses)
{
    volume v(6, 3, 100);
    v.file(file, bytes(5000)).wrong_crc(70);
    bench b(v.empty(8).zombie(9));
    ASSERT_EQ(b.open(), 0U);
    EXPECT_EQ(afs_mark_zombie_file(&b.ctx, 9), 0U); // again, after the mount has freed it
    content buf(6000);
    using row = std::tuple<int, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t>;
    for (const auto& [number, offset, wanted, status, size_status] :
         {row{file, 0, 70 * 64, 0, 0}, row{file, 0, 70 * 64 + 1, 5, 0}, row{file, 70 * 64 + 5, 1, 5, 0}, // the bad page
          row{file, 71 * 64, 400, 0, 0}, row{file, 0, 0, 0, 0}, row{file, 0, 0x80000000, 22, 0}, row{8, 0, 10, 0, 0},
          row{9, 0, 10, 2, 2}, row{10, 0, 10, 2, 2}, row{10, 0, 0, 2, 2}, row{-1, 0, 10, 22, 22}, row{99, 0, 10, 2, 2},
          row{100, 0, 10, 22, 22}, row{INT32_MAX, 0, 10, 22, 22}, row{INT32_MIN, 0, 10, 22, 22}}) {
        std::uint32_t len = wanted, size = 77;
        EXPECT_EQ(afs_readfile(&b.ctx, number, offset, &len, buf.data()), status) << number << " " << offset;
        EXPECT_EQ((words{status != 0 ? len : wanted, afs_getfilesize(&b.ctx, number, &size), size}),
                  (words{wanted, size_status, size_status != 0 ? 77 : (number != 8) * 5000U}));
    }
    std::uint32_t len = 10, size = 0;
    EXPECT_EQ((words{afs_readfile(nullptr, file, 0, &len, buf.data()), afs_readfile(&b.ctx, file, 0, &len, nullptr),
                     afs_readfile(&b.ctx, file, 0, nullptr, buf.data()), afs_getfilesize(nullptr, file, &size),
                     afs_getfilesize(&b.ctx, file, nullptr)}),
              (words{22, 22, 22, 22, 22}));
    for (unsigned n = 1; n <= 4; ++n) { // head, entry, page
        cache_invalidate(&b.ctx);
        b.chip.fail(chip_call::read, n, chip_fault::before);
        EXPECT_EQ(afs_readfile(&b.ctx, file, 0, &len, buf.data()), n <= 3 ? 5U : 0U) << n;
        b.chip.power_on();
    }
}

} // namespace yfs::test::afs_read
