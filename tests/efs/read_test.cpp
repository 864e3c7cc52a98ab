// Files against a plain model of their bytes, the statuses of reads, the checksums against their definitions.
#include "tests/support/efs_builder.h"
#include "tests/support/volume_builder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace yfs::test::efs_read {

using blob = std::vector<std::uint8_t>;
constexpr efs::geometry wide = {2, 24, 3};

TEST(EfsChecksum, AgreesWithItsDefinition)
{
    const blob abc = {'a', 'b', 'c'}, data = bytes(90, 7);
    EXPECT_EQ(EFS_crc32(0, abc.data(), 3), 0xCA6598D0U);
    EXPECT_EQ(EFS_crc16(0, abc.data(), 3), 0x9DD6);
    for (std::size_t at = 0; at < 9; ++at) {
        for (std::uint32_t count = 0; at + count <= data.size(); ++count) {
            const std::uint8_t* const from = data.data() + at;
            ASSERT_EQ(EFS_crc16(0xA55A, from, count), plain_crc(blob(from, from + count), 16, 0x1021, 0xFFFF, 0xA55A));
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
    use_efs_table(wide, std::vector<efs_file_t>(4, efs_entry(7, 10, 9000)));
    efs_volume v(wide);
    v.file(EFS_files[0], bytes(9000)).chunk(2, 8, efs::no_file, {}).file(efs_entry(5, 0, 0), bytes(100));
    v.chunk(23, 0, 4073, bytes(4072)).bm(0);
    for (const unsigned damaged : {2U, 4U, 8U}) v.fill(v.area_at(damaged) + 4070, 1, 0);
    ASSERT_EQ(EFS_init_tools(v.image.data()), 0U);
    // Offset and length, the statuses of a read and of the size.
    using row = std::tuple<const char*, efs_file_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t>;
    const row cases[] = {
        {"the second chunk is damaged", efs_entry(7, 10, 9000), 4061, 2, 41, 0},
        {"the third chunk is sound", efs_entry(7, 10, 9000), 8134, 10, 0, 0},
        {"offset and length overflow", efs_entry(7, 10, 9000), 0xFFFFFFFF, 1, 22, 0},
        {"no file", efs_entry(2, 8, 100), 0, 10, 2, 2},
        // Blank bytes tell no file, but their CRC is none; what the block as a whole says decides.
        {"blank in a sound block", efs_entry(3, 0, 100), 0, 10, 2, 2},
        {"blank in a damaged block", efs_entry(4, 0, 100), 0, 10, 41, 41},
        {"larger than allowed", efs_entry(5, 0, 99), 0, 10, 41, 41},
        {"the part of a file in the last block", efs_entry(23, 0, 9000), 0, 4072, 0, 0},
        {"the part behind it", efs_entry(23, 0, 9000), 4072, 1, 41, 0},
        {"chunk header behind the data area", efs_entry(6, 4073, 100), 0, 10, 41, 41},
        {"behind the last block", efs_entry(24, 0, 100), 0, 10, 22, 22},
        {"not in use", {7, 10, 9000, 0xFE, 0}, 0, 10, 22, 22},
    };
    blob out(5000);
    std::uint32_t size = 0, length = 10;
    for (const auto& [name, entry, offset, wanted, status, size_status] : cases) {
        EFS_files[0] = entry;
        length = wanted;
        EXPECT_EQ(EFS_read(0, offset, &length, out.data()), status) << name;
        EXPECT_EQ(length, status == 0 ? wanted : 0) << name;
        EXPECT_EQ(EFS_get_file_size(0, &size), size_status) << name;
    }
    EXPECT_EQ(EFS_read(1, 0, &length, nullptr) + EFS_read(1, 0, nullptr, out.data()) + EFS_get_file_size(1, nullptr) +
                  EFS_get_file_size(4, &size) + EFS_read_and_verify_file(7, 0, 0, 4073),
              5 * 22U);
}

} // namespace yfs::test::efs_read
