// Mount and reads over a medium that misreads and fails, and without memory. This program brings the medium: it counts
// and bounds every read, and a script changes what comes out of one.
#include "tests/support/counted_memory.h"
#include "tests/support/efs_builder.h"
#include "tests/support/volume_builder.h"
#include "yfs/efs.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>

namespace {

using blob = std::vector<std::uint8_t>;

constexpr std::uint32_t broken = 77; // a status that only this medium gives

// Called with the number of reads of this address before, and the bytes that come out.
using script = std::function<std::uint32_t(std::uint32_t address, unsigned before, std::uint8_t* bytes, std::size_t)>;
script s_script;
std::map<std::uint32_t, unsigned> s_reads; // by address
unsigned s_all_reads = 0;

} // namespace

uint32_t EFS_physical_read(uint32_t address, uint32_t length, void* destination)
{
    EXPECT_TRUE(length > 0 && address + length <= efs_size) << address << ' ' << length;
    std::memcpy(destination, efs_image + address, length);
    ++s_all_reads;
    const unsigned before = s_reads[address]++;
    return s_script ? s_script(address, before, static_cast<std::uint8_t*>(destination), length) : 0;
}

uint32_t EFS_physical_write(uint32_t, uint32_t, const void*)
{
    ADD_FAILURE() << "mount and reads write nothing";
    return broken;
}

uint32_t EFS_physical_erase(uint32_t, uint32_t)
{
    ADD_FAILURE() << "mount and reads erase nothing";
    return broken;
}

namespace {

using namespace yfs::efs;
using namespace yfs::test;

constexpr geometry usual = {2, 7, 3};
constexpr std::uint32_t bm_1 = 4096;
constexpr std::uint32_t slot_bytes = 22;
constexpr std::uint32_t slot_0 = bm_1 + 16, slot_1 = slot_0 + slot_bytes;

// BM 1 in force, two slots. File 0 takes two chunks, file 1 has a blank chunk.
class EfsFaults : public testing::Test {
protected:
    void SetUp() override
    {
        use_efs_table(usual, files_);
        volume_.file(files_[0], bytes(5000)).bm(0).entry();
        volume_.bm(1).sequence(2).entry().entry();
        image_ = volume_.image();
        efs_image = image_.data();
        script_none();
    }
    void TearDown() override
    {
        script_none();
        EFS_files = nullptr;
        efs_image = nullptr;
    }
    static void script_none() { run({}); }
    static void run(script what)
    {
        s_script = std::move(what);
        s_reads.clear();
        s_all_reads = 0;
    }
    // The first `times` reads at `address` come out changed.
    static script garbled(std::uint32_t address, unsigned times)
    {
        return [=](std::uint32_t at, unsigned before, std::uint8_t* bytes, std::size_t) {
            if (at == address && before < times) bytes[0] ^= 0x01;
            return 0U;
        };
    }
    std::vector<efs_file_t> files_ = {efs_entry(1, 10, 9000), efs_entry(4, 0, 100)};
    efs_volume volume_{usual};
    blob image_;
};

TEST_F(EfsFaults, HeadersGetSevenReads)
{
    const struct {
        const char* name;
        unsigned garbled, bm, reads;
    } cases[] = {{"sound", 0, 1, 1}, {"once", 1, 1, 2}, {"six times", 6, 1, 7}, {"seven times", 7, 0, 7}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        // The block of the BM in force is read at the same address, once more.
        run(garbled(bm_1, c.garbled));
        EXPECT_EQ(EFS_init(0), 0U);
        EXPECT_EQ(efs_ctx.current_bm, c.bm);
        EXPECT_EQ(s_reads[bm_1], c.reads + (c.bm == 1 ? 1 : 0));
    }
    // Whatever a header looked like at first, zeros and blanks end its tries, and are no other geometry.
    for (const int value : {0x00, 0xFF}) {
        run([=](std::uint32_t at, unsigned before, std::uint8_t* bytes, std::size_t size) {
            if (at == bm_1 && before == 0) bytes[0] ^= 0x01;
            if (at == bm_1 && before == 1) std::memset(bytes, value, size);
            return 0U;
        });
        EXPECT_EQ(EFS_init(0), 0U);
        EXPECT_EQ(efs_ctx.current_bm, 0U);
        EXPECT_EQ(s_reads[bm_1], 2U);
    }
}

TEST_F(EfsFaults, AReadErrorAtEachReadOfAMount)
{
    run([](std::uint32_t at, unsigned, std::uint8_t*, std::size_t) { return at == bm_1 ? broken : 0; });
    EXPECT_EQ(EFS_init(0), 0U);
    EXPECT_EQ(efs_ctx.current_bm, 0U) << "an unreadable header lets its BM be skipped";
    run([](std::uint32_t, unsigned, std::uint8_t*, std::size_t) { return broken; });
    EXPECT_EQ(EFS_init(0), 41U);

    const struct {
        const char* name;
        std::uint32_t address;
        unsigned before;
    } cases[] = {{"the block", bm_1, 1}, {"the last slot again", slot_1, 2}, {"the slot before it again", slot_0, 3}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        run([&](std::uint32_t at, unsigned before, std::uint8_t* bytes, std::size_t size) {
            if (at == bm_1 && size == block_bytes) bytes[slot_0 - bm_1] ^= 0x01, bytes[slot_1 - bm_1] ^= 0x01;
            if (at == slot_0 || at == slot_1) bytes[0] ^= 0x01;
            return at == c.address && before == c.before ? broken : 0;
        });
        EXPECT_EQ(EFS_init(0), broken);
        EXPECT_EQ(EFS_is_initialized(), 0);
        EXPECT_EQ(efs_ctx.block_ec, nullptr);
    }
}

TEST_F(EfsFaults, SlotsGetSevenMoreReads)
{
    const struct {
        const char* name;
        unsigned last, before_it; // so many reads of these slots by themselves come out changed, as does the block's
        bool mounts, force;
    } cases[] = {{"the last, six times", 6, 0, true, false},
                 {"the last, every time", 7, 0, true, true},
                 {"the one before it, six times", 7, 6, true, true},
                 {"both, every time", 7, 7, false, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        run([&](std::uint32_t at, unsigned before, std::uint8_t* bytes, std::size_t size) {
            if (at == bm_1 && size == block_bytes) bytes[slot_1 - bm_1] ^= 0x01;
            if (at == bm_1 && size == block_bytes && c.before_it != 0) bytes[slot_0 - bm_1] ^= 0x01;
            if (at == slot_1 && before < c.last) bytes[3] ^= 0x01;
            if (at == slot_0 && before < c.before_it) bytes[3] ^= 0x01;
            return 0U;
        });
        EXPECT_EQ(EFS_init(0), c.mounts ? 0U : 41U);
        EXPECT_EQ(s_reads[slot_1], 7U);
        EXPECT_EQ(s_reads[slot_0], c.before_it == 0 ? 0U : 7U);
        if (!c.mounts) continue;
        EXPECT_EQ(efs_ctx.force_bm_switch, c.force ? 1 : 0);
        EXPECT_EQ(efs_ctx.bme_offset, c.force ? 16U : 16U + slot_bytes);
    }
}

// A slot that reads written in the block and blank by itself: the block was misread, and is read again.
TEST_F(EfsFaults, ASlotThatTurnsBlankStartsTheSearchAgain)
{
    constexpr std::uint32_t slot_2 = slot_1 + slot_bytes; // blank
    for (const unsigned misread : {1U, 6U, 7U}) {
        SCOPED_TRACE(misread);
        run([=](std::uint32_t at, unsigned before, std::uint8_t* bytes, std::size_t size) {
            const unsigned passes = before - 1; // the header was read before at this address
            if (at == bm_1 && size == block_bytes && passes < misread) bytes[slot_2 - bm_1] = 0;
            return 0U;
        });
        EXPECT_EQ(EFS_init(0), misread < 7 ? 0U : 41U);
        EXPECT_EQ(s_reads[slot_2], misread);
        EXPECT_EQ(s_reads[bm_1], 1 + std::min(misread + 1, 7U));
    }
}

TEST_F(EfsFaults, ChunksGetSevenReads)
{
    ASSERT_EQ(EFS_init(0), 0U);
    const std::uint32_t first = volume_.chunk_at(files_[0]), second = volume_.chunk_at(files_[0], 1);
    const struct {
        const char* name;
        std::uint32_t address;
        unsigned garbled;
        std::uint32_t status, size_status;
    } cases[] = {
        {"header of the first, six times", first, 6, 0, 0},
        {"header of the first", first, 7, 41, 41},
        {"payload of the first, six times", first + 4, 6, 0, 0},
        {"payload of the first", first + 4, 7, 41, 41},
        {"payload of the second, six times", second + 4, 6, 0, 0},
        // Every continuation chunk bears the length that stands for no file, and its block is sound.
        {"payload of the second", second + 4, 7, 2, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        blob out(5000);
        std::uint32_t length = 5000, size = 4711;
        run(garbled(c.address, c.garbled));
        EXPECT_EQ(EFS_read(0, 0, &length, out.data()), c.status);
        EXPECT_EQ(length, c.status == 0 ? 5000U : 0U);
        EXPECT_EQ(s_reads[c.address], 7U);
        if (c.status == 0) {
            EXPECT_EQ(out, bytes(5000));
        }
        run(garbled(c.address, c.garbled));
        EXPECT_EQ(EFS_get_file_size(0, &size), c.size_status);
        EXPECT_EQ(size, c.size_status == 0 ? 5000U : 4711U);
    }
    // One read fails, and at once the call does.
    run({});
    blob out(5000);
    std::uint32_t length = 5000;
    ASSERT_EQ(EFS_read(0, 0, &length, out.data()), 0U);
    const unsigned calls = s_all_reads;
    EXPECT_EQ(calls, 4U) << "header and payload of two chunks, nothing else";
    for (unsigned n = 1; n <= calls; ++n) {
        run([=](std::uint32_t, unsigned, std::uint8_t*, std::size_t) { return s_all_reads == n ? broken : 0; });
        length = 5000;
        EXPECT_EQ(EFS_read(0, 0, &length, out.data()), broken);
        EXPECT_EQ(length, 0U);
        EXPECT_EQ(s_all_reads, n);
    }
}

TEST_F(EfsFaults, ABlankChunkIsBelievedOnTheWordOfItsBlock)
{
    ASSERT_EQ(EFS_init(0), 0U);
    const std::uint32_t block = volume_.block_at(4);
    std::uint32_t size = 0;
    for (const auto& [misreads, status] : {std::pair(0U, 2U), {6U, 2U}, {7U, 41U}}) {
        run(garbled(block, misreads));
        EXPECT_EQ(EFS_get_file_size(1, &size), status);
        EXPECT_EQ(s_reads[volume_.chunk_at(files_[1])], 7U);
        EXPECT_EQ(s_reads[block], std::min(misreads + 1, 7U));
    }
    run([=](std::uint32_t at, unsigned, std::uint8_t*, std::size_t) { return at == block ? broken : 0; });
    EXPECT_EQ(EFS_get_file_size(1, &size), broken);
}

TEST_F(EfsFaults, WithoutMemoryNothingLeaksAndNothingDangles)
{
    ASSERT_EQ(EFS_init(0), 0U);
    const std::int64_t mounted = live_blocks();
    ASSERT_EQ(EFS_init(0), 0U);
    EXPECT_EQ(live_blocks(), mounted) << "a second mount releases the first one's tables";
    unsigned n = 1;
    for (;; ++n) {
        fail_allocation(n);
        const auto status = EFS_init(0);
        if (!allocation_failed()) break;
        EXPECT_EQ(status, 12U);
        EXPECT_EQ(EFS_is_initialized(), 0);
        EXPECT_EQ(efs_ctx.block_status, nullptr);
        EXPECT_LT(live_blocks(), mounted);
    }
    EXPECT_GT(n, 1U);
    EXPECT_EQ(EFS_is_initialized(), 1);
    EXPECT_EQ(live_blocks(), mounted);
    std::uint32_t length = 5000;
    blob out(5000);
    fail_allocation(1);
    EXPECT_EQ(EFS_read(0, 0, &length, out.data()), 0U) << "a read allocates nothing";
    EXPECT_FALSE(allocation_failed());

    fail_allocation(0);
    const blob table = make_autogen_table({{.sku = 8, .files = {{0, efs_entry(3, 2, 1)}}}});
    const auto load = [&] { return load_autogen_data(table.data(), 8, static_cast<std::uint32_t>(table.size())); };
    ASSERT_EQ(load(), 0U);
    efs_file_t* const former = EFS_files;
    const std::int64_t loaded = live_blocks();
    fail_allocation(1);
    EXPECT_EQ(load(), 12U);
    EXPECT_EQ(EFS_files, former);
    EXPECT_EQ(former[0].first_block, 3);
    EXPECT_EQ(load(), 0U);
    EXPECT_EQ(live_blocks(), loaded);

    fail_allocation(1);
    EXPECT_EQ(EFS_physical_init(1), 12U);
    EXPECT_EQ(efs_image, nullptr);
    EXPECT_EQ(EFS_init(0), 1U);
    ASSERT_EQ(EFS_physical_init(1), 0U);
    const std::int64_t with_image = live_blocks();
    ASSERT_EQ(EFS_physical_init(1), 0U);
    EXPECT_EQ(live_blocks(), with_image);
}

} // namespace
