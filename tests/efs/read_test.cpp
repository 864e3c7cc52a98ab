// Files against a plain model of their bytes, and the statuses of reads.
#include "tests/support/efs_builder.h"
#include "tests/support/volume_builder.h"
#include "yfs/efs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>

namespace {

using namespace yfs::efs;
using namespace yfs::test;
using blob = std::vector<std::uint8_t>;

constexpr geometry wide = {2, 24, 3};

class EfsRead : public testing::Test {
protected:
    void mount(const efs_volume& v)
    {
        use_efs_table(wide, files_);
        image_ = v.image();
        ASSERT_EQ(EFS_init_tools(image_.data()), 0U);
    }
    void TearDown() override
    {
        EFS_files = nullptr;
        efs_image = nullptr;
    }
    std::vector<efs_file_t> files_;
    blob image_;
};

// The beginning of every chunk, and what lies within five bytes of it or of the end.
std::set<std::uint32_t> places_of_interest(std::uint32_t size, std::uint32_t first_room)
{
    std::set<std::uint32_t> places;
    for (std::uint32_t edge = first_room; edge <= size + 4072; edge += 4072) {
        for (std::uint32_t d = 0; d < 10; ++d) places.insert(edge - std::min(edge, 5U) + d);
    }
    for (const std::uint32_t at : {0U, 1U, size, size - std::min(size, 1U), size + 1}) places.insert(at);
    return places;
}

TEST_F(EfsRead, DeliversWhatAPlainCopyWould)
{
    for (const unsigned offset : {0U, 1U, 100U, 4060U, 4071U, 4072U}) {
        const unsigned room = 4072 - offset;
        for (const unsigned size : {1U, 9U, room, room + 1, room + 4072, room + 4073, room + 2 * 4072 + 77, 65534U}) {
            if (size == 0) continue;
            SCOPED_TRACE(testing::Message() << "offset " << offset << ", size " << size);
            files_ = {efs_entry(3, offset, 65534)};
            const blob contents = bytes(size, offset + 1);
            efs_volume v(wide);
            v.file(files_[0], contents).bm(0).entry();
            mount(v);

            std::uint32_t told = 0;
            ASSERT_EQ(EFS_get_file_size(0, &told), 0U);
            ASSERT_EQ(told, size);
            for (const std::uint32_t from : places_of_interest(size, room)) {
                for (const std::uint32_t wanted : {0U, 1U, 10U, 4072U, 4073U, 70000U}) {
                    std::uint32_t length = wanted;
                    const std::uint32_t due = from > size ? 0 : std::min(wanted, size - from);
                    const std::unique_ptr<std::uint8_t[]> out(new std::uint8_t[due]); // a byte more is seen
                    const auto status = EFS_read(0, from, &length, out.get());
                    ASSERT_EQ(status, from > size ? 34U : 0U) << from << ' ' << wanted;
                    ASSERT_EQ(length, due) << from << ' ' << wanted;
                    ASSERT_TRUE(std::equal(out.get(), out.get() + due, contents.begin() + std::min(from, size)));
                }
            }
        }
    }
}

TEST_F(EfsRead, FilesShareABlockAndFollowItsMoves)
{
    files_ = {efs_entry(2, 0, 500), efs_entry(2, 504, 9000), efs_entry(5, 0, 10)};
    efs_volume v(wide);
    v.file(files_[0], bytes(500, 1)).file(files_[1], bytes(9000, 2)).file(files_[2], {}).move(2, 26).move(3, 24);
    v.bm(0).entry();
    mount(v);
    for (unsigned file = 0; file < 3; ++file) {
        const blob wanted = bytes(std::vector<std::size_t>{500, 9000, 0}[file], file + 1);
        blob out(10000);
        std::uint32_t length = 10000;
        ASSERT_EQ(EFS_read(file, 0, &length, out.data()), 0U);
        out.resize(length);
        EXPECT_EQ(out, wanted);
    }
    std::uint32_t length = 5;
    EXPECT_EQ(EFS_read(2, 100, &length, blob(5).data()), 0U) << "an empty file has no end to be behind";
    EXPECT_EQ(length, 0U);
}

TEST_F(EfsRead, EachChunkStandsAndFallsAlone)
{
    files_ = {efs_entry(2, 10, 9000), efs_entry(2, 0, 2), efs_entry(9, 0, 9000)};
    efs_volume v(wide);
    v.file(files_[0], bytes(9000)).file(files_[1], bytes(2)).file(files_[2], bytes(40)).bm(0).entry();
    const auto status_of = [](std::uint32_t file, std::uint32_t from, std::uint32_t wanted) {
        std::uint32_t length = wanted;
        const auto status = EFS_read(file, from, &length, blob(wanted + 1).data());
        EXPECT_EQ(length, status == 0 ? wanted : 0);
        return status;
    };
    const struct {
        const char* name;
        unsigned chunk;
        std::uint32_t byte; // of the chunk, to be changed
        std::uint32_t in_first, in_second, in_third;
    } cases[] = {
        {"length of the first", 0, 0, 41, 41, 41},
        {"payload of the first", 0, 4065, 41, 41, 41},
        {"CRC of the second", 1, 3, 0, 41, 0},
        {"payload of the second", 1, 4 + 4071, 0, 41, 0},
        {"payload of the third", 2, 4, 0, 0, 41},
        {"behind the third's payload", 2, 4 + 9000 - 4062 - 4072, 0, 0, 0},
        {"length of a continuation", 1, 0, 0, 41, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        mount(v);
        image_[v.chunk_at(files_[0], c.chunk) + c.byte] ^= 0x01;
        EXPECT_EQ(status_of(0, 0, 10), c.in_first);
        EXPECT_EQ(status_of(0, 0, 0), c.in_first) << "nothing wanted, and the first chunk verified all the same";
        EXPECT_EQ(status_of(0, 4062, 10), c.in_second);
        EXPECT_EQ(status_of(0, 4062 + 4072, 10), c.in_third);
        EXPECT_EQ(status_of(0, 4060, 10), std::max(c.in_first, c.in_second));
        EXPECT_EQ(status_of(0, 0, 9000), std::max({c.in_first, c.in_second, c.in_third}));
        EXPECT_EQ(status_of(1, 0, 2), 0U);
        EXPECT_EQ(status_of(2, 0, 40), 0U);
    }
}

TEST_F(EfsRead, AChunkBelongsToItsLogicalBlock)
{
    files_ = {efs_entry(1, 0, 50)};
    efs_volume v(wide);
    v.file(efs_entry(0, 0, 50), bytes(50)).bm(0).entry();
    blob tables(27);
    for (std::size_t i = 0; i < tables.size(); ++i) tables[i] = yfs::low8(i);
    std::swap(tables[0], tables[1]);
    v.bm(0).entry(tables);
    mount(v);
    std::uint32_t size = 0;
    EXPECT_EQ(EFS_get_file_size(0, &size), 41U);
}

TEST_F(EfsRead, Statuses)
{
    enum { sound, none, none_unvouched, none_damaged, too_long, past_the_end, over_4072, behind, idle, count };
    files_.resize(count);
    files_[sound] = efs_entry(1, 0, 100);
    files_[none] = efs_entry(2, 8, 100);
    files_[none_unvouched] = efs_entry(3, 0, 100);
    files_[none_damaged] = efs_entry(4, 0, 100);
    files_[too_long] = efs_entry(5, 0, 99);
    files_[past_the_end] = efs_entry(23, 0, 9000);
    files_[over_4072] = efs_entry(6, 4073, 100);
    files_[behind] = efs_entry(24, 0, 100);
    files_[idle] = efs_entry(1, 0, 100);
    files_[idle].flags = 0xFE;
    efs_volume v(wide);
    v.file(files_[sound], bytes(100)).no_file(files_[none]).file(files_[too_long], bytes(100));
    v.chunk(23, 0, 4073, bytes(4072)).bm(0).entry();
    mount(v);
    // Blank bytes tell no file, but their CRC is none; what the block as a whole says decides.
    image_[v.chunk_at(files_[none_damaged]) + 1000] = 0;
    image_[v.chunk_at(files_[none]) + 1000] = 0; // this one has a CRC of its own

    const struct {
        const char* name;
        std::uint32_t file, offset, wanted, status, delivered, size_status;
    } cases[] = {
        {"whole", sound, 0, 100, 0, 100, 0},
        {"more than there is", sound, 90, 100, 0, 10, 0},
        {"at the end", sound, 100, 1, 0, 0, 0},
        {"behind the end", sound, 101, 1, 34, 0, 0},
        {"behind the end, nothing wanted", sound, 101, 0, 34, 0, 0},
        {"overflow", sound, 0xFFFFFFFF, 1, 22, 0, 0},
        {"just no overflow", sound, 0xFFFFFF9B, 100, 34, 0, 0},
        {"no file", none, 0, 10, 2, 0, 2},
        {"blank in a sound block", none_unvouched, 0, 10, 2, 0, 2},
        {"blank in a damaged block", none_damaged, 0, 10, 41, 0, 41},
        {"larger than allowed", too_long, 0, 10, 41, 0, 41},
        {"the part of a file in the last block", past_the_end, 0, 4072, 0, 4072, 0},
        {"the part behind it", past_the_end, 4072, 1, 41, 0, 0},
        {"chunk header behind the data area", over_4072, 0, 10, 41, 0, 41},
        {"behind the last block", behind, 0, 10, 22, 0, 22},
        {"not in use", idle, 0, 10, 22, 0, 22},
        {"index out of range", count, 0, 10, 22, 0, 22},
        {"index far out", 0xFFFFFFFF, 0, 10, 22, 0, 22},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        blob out(5000);
        std::uint32_t length = c.wanted;
        EXPECT_EQ(EFS_read(c.file, c.offset, &length, out.data()), c.status);
        EXPECT_EQ(length, c.delivered);
        std::uint32_t size = 4711;
        EXPECT_EQ(EFS_get_file_size(c.file, &size), c.size_status);
        EXPECT_EQ(size == 4711, c.size_status != 0);
    }
    std::uint32_t length = 10;
    EXPECT_EQ(EFS_read(sound, 0, &length, nullptr), 22U);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(EFS_read(sound, 0, nullptr, blob(1).data()), 22U);
    EXPECT_EQ(EFS_get_file_size(sound, nullptr), 22U);
}

TEST_F(EfsRead, OneChunkAtAnyPlace)
{
    efs_volume v(wide);
    v.chunk(4, 0, 0xFFFF, bytes(4072, 5)).chunk(5, 4000, 60000, bytes(72, 6)).chunk(6, 4072, 9, {}).bm(0).entry();
    mount(v);
    const struct {
        const char* name;
        unsigned block, offset, first, length, status;
        blob payload;
    } cases[] = {
        {"a whole data area", 4, 0, 0, 4072, 0, bytes(4072, 5)},
        {"a byte too many", 4, 0, 0, 4073, 22, {}},
        {"as many as a length can tell", 4, 0, 0, 0xFFFF, 22, {}},
        {"a first chunk to the end of its area", 5, 4000, 1, 0xFFFF, 0, bytes(72, 6)},
        {"a first chunk without room", 6, 4072, 1, 0, 0, {}},
        {"no room for a header", 6, 4073, 1, 0, 41, {}},
        {"no room for a header, continued", 6, 0xFFFF, 0, 0, 41, {}},
        {"behind the last block", 24, 0, 1, 0, 22, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(EFS_read_and_verify_file(yfs::low8(c.block), yfs::low16(c.offset), yfs::low8(c.first),
                                           yfs::low16(c.length)),
                  c.status);
        if (c.status == 0) {
            EXPECT_TRUE(std::equal(c.payload.begin(), c.payload.end(), efs_ctx.page_buf + 4));
        }
    }
    ASSERT_EQ(EFS_read_and_verify_data_block_header_and_footer(4), 0U);
    EXPECT_EQ(std::memcmp(efs_ctx.page_buf, image_.data() + v.block_at(4), block_bytes), 0);
}

} // namespace
