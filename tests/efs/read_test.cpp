// Files against a plain model of their bytes, the statuses of reads, the checksums against their definitions, and the
// images of the sample sets.
#include "tests/support/efs_builder.h"
#include "tests/support/sample_manifest.h"
#include "tests/support/samples.h"
#include "tests/support/sha256.h"
#include "tests/support/volume_builder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace {

using namespace yfs::efs;
using namespace yfs::test;
using blob = std::vector<std::uint8_t>;

constexpr geometry wide = {2, 24, 3};

TEST(EfsChecksum, AgreesWithItsDefinition)
{
    const blob abc = {'a', 'b', 'c'}, data = bytes(90, 7);
    EXPECT_EQ(EFS_crc32(0, abc.data(), 3), 0xCA6598D0U);
    EXPECT_EQ(EFS_crc16(0, abc.data(), 3), 0x9DD6);
    for (std::size_t at = 0; at < 9; ++at) {
        for (std::uint32_t count = 0; at + count <= data.size(); ++count) {
            const std::uint8_t* const from = data.data() + at;
            ASSERT_EQ(EFS_crc16(0xA55A, from, count), plain_crc16(0xA55A, blob(from, from + count)));
            const std::uint32_t head = EFS_crc32(0, from, count / 3);
            ASSERT_EQ(EFS_crc32(head, from + count / 3, count - count / 3), plain_crc32(from, count));
        }
    }
}

TEST(EfsRead, DeliversWhatAPlainCopyWould)
{
    for (const unsigned offset : {0U, 1U, 100U, 4060U, 4071U, 4072U}) {
        const unsigned room = 4072 - offset;
        for (const unsigned size : {0U, 1U, 9U, room, room + 1, room + 4072, room + 4073, room + 8221, 65534U}) {
            SCOPED_TRACE(testing::Message() << "offset " << offset << ", size " << size);
            use_efs_table(wide, {efs_entry(3, offset, 65534)});
            const blob contents = bytes(size, offset + 1);
            efs_volume v(wide);
            std::swap(v.tables[4], v.tables[26]);
            v.file(EFS_files[0], contents).bm(0);
            ASSERT_EQ(EFS_init_tools(v.image.data()), 0U);
            std::uint32_t told = 4711;
            ASSERT_EQ(EFS_get_file_size(0, &told), 0U);
            ASSERT_EQ(told, size);

            // What lies within five bytes of the begin of a chunk or of an end.
            std::set<std::uint32_t> places = {0, 1, size, size - std::min(size, 1U), size + 1};
            for (std::uint32_t edge = room; edge <= size + 4072; edge += 4072) {
                for (std::uint32_t d = 0; d < 10; ++d) places.insert(edge - std::min(edge, 5U) + d);
            }
            for (const std::uint32_t from : places) {
                for (const std::uint32_t wanted : {0U, 1U, 10U, 4072U, 4073U, 70000U}) {
                    std::uint32_t length = wanted;
                    const std::uint32_t due = from > size ? 0 : std::min(wanted, size - from);
                    const std::unique_ptr<std::uint8_t[]> out(new std::uint8_t[due]); // a byte more is seen
                    const bool behind = from > size && size != 0; // an empty file has no end to be behind
                    ASSERT_EQ(EFS_read(0, from, &length, out.get()), behind ? 34U : 0U) << from << ' ' << wanted;
                    ASSERT_EQ(length, due) << from << ' ' << wanted;
                    ASSERT_TRUE(std::equal(out.get(), out.get() + due, contents.begin() + std::min(from, size)));
                }
            }
        }
    }
}

TEST(EfsRead, Statuses)
{
    // 0 of 9000 bytes, 1 none, 2 and 3 blank chunks, 4 too long, 5 runs past the end, 6 to 8 not to be read at all
    use_efs_table(wide, {efs_entry(7, 10, 9000),
                         efs_entry(2, 8, 100),
                         efs_entry(3, 0, 100),
                         efs_entry(4, 0, 100),
                         efs_entry(5, 0, 99),
                         efs_entry(23, 0, 9000),
                         efs_entry(6, 4073, 100),
                         efs_entry(24, 0, 100),
                         {1, 0, 100, 0xFE, 0}});
    efs_volume v(wide);
    v.file(EFS_files[0], bytes(9000)).chunk(2, 8, no_file, {}).file(EFS_files[4], bytes(100));
    v.chunk(23, 0, 4073, bytes(4072)).bm(0);
    // Blank bytes tell no file, but their CRC is none; what the block as a whole says decides.
    for (const unsigned damaged : {2U, 4U, 8U}) v.fill(v.area_at(damaged) + 4070, 1, 0);
    ASSERT_EQ(EFS_init_tools(v.image.data()), 0U);
    const struct {
        const char* name;
        std::uint32_t file, offset, wanted, status, size_status;
    } cases[] = {
        {"a sound first chunk", 0, 0, 4062, 0, 0},       {"a damaged second one", 0, 4061, 2, 41, 0},
        {"a sound third one", 0, 8134, 10, 0, 0},        {"overflow", 0, 0xFFFFFFFF, 1, 22, 0},
        {"just no overflow", 0, 0xFFFFFF9B, 100, 34, 0}, {"no file", 1, 0, 10, 2, 2},
        {"blank in a sound block", 2, 0, 10, 2, 2},      {"blank in a damaged block", 3, 0, 10, 41, 41},
        {"larger than allowed", 4, 0, 10, 41, 41},       {"the part of a file in the last block", 5, 0, 4072, 0, 0},
        {"the part behind it", 5, 4072, 1, 41, 0},       {"chunk header behind the data area", 6, 0, 10, 41, 41},
        {"behind the last block", 7, 0, 10, 22, 22},     {"not in use", 8, 0, 10, 22, 22},
        {"index out of range", 9, 0, 10, 22, 22},        {"index far out", 0xFFFFFFFF, 0, 10, 22, 22},
    };
    blob out(5000);
    std::uint32_t size = 0, length = 10;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        length = c.wanted;
        EXPECT_EQ(EFS_read(c.file, c.offset, &length, out.data()), c.status);
        EXPECT_EQ(length, c.status == 0 ? c.wanted : 0);
        size = 4711;
        EXPECT_EQ(EFS_get_file_size(c.file, &size), c.size_status);
        EXPECT_EQ(size == 4711, c.size_status != 0);
    }
    EXPECT_EQ(EFS_read(0, 0, &length, nullptr), 22U);
    EXPECT_EQ(EFS_read(0, 0, nullptr, out.data()), 22U);
    EXPECT_EQ(EFS_get_file_size(0, nullptr), 22U);
    EXPECT_EQ(EFS_read_and_verify_file(7, 0, 0, 4073), 22U);
}

// Made by another tool: every file read, and its bytes compared where the manifest tells them.
TEST(EfsSample, SetsHoldWhatTheirManifestsTell)
{
    const struct {
        const char* name;
        unsigned files, told; // a value from the files of a set that isn't deployed is never shown
    } sets[] = {{"large", 10, 3}, {"no-zonc", 6, 5}, {"not-deployed", 4, 0}, {"with-efs", 10, 7}};
    for (const auto& set : sets) {
        SCOPED_TRACE(set.name);
        const auto folder = sample_set(set.name);
        if (folder.empty()) GTEST_SKIP() << "the sample sets are not here";
        const auto manifest = read_manifest(set.name);
        const auto table = read_file(folder / "ftbl.bin");
        auto image = read_file(folder / "efs.img");
        ASSERT_EQ(load_autogen_data(table.data(), manifest.sku, static_cast<std::uint32_t>(table.size())), 0U);
        ASSERT_EQ(EFS_get_efs_size(), image.size());
        ASSERT_EQ(EFS_init_tools(image.data()), 0U);
        unsigned files = 0, told = 0;
        for (const auto& [path, file] : manifest.files) {
            if ((file.dfs_number & 0x1800U) != 0x1000U) continue;
            SCOPED_TRACE(path);
            std::uint32_t length = 0x10000;
            blob out(length);
            ASSERT_EQ(EFS_read(file.dfs_number & 0x7FFU, 0, &length, out.data()), 0U);
            ++files;
            // Attributes: bit 1, the value is not the file's; bit 0, the file ends in a tail of 40 bytes, or 56 by
            // bit 6.
            if (!manifest.deployed || !file.value || (file.attributes & 2U) != 0) continue;
            const std::uint32_t tail = (file.attributes & 1U) == 0 ? 0 : (file.attributes & 0x40U) == 0 ? 40 : 56;
            ASSERT_EQ(length, file.value->size + tail);
            out.resize(file.value->size);
            EXPECT_EQ(sha256(out), file.value->sha256);
            ++told;
        }
        EXPECT_EQ(files, set.files);
        EXPECT_EQ(told, set.told);
    }
}

} // namespace
