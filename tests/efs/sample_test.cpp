// The EFS images of the sample sets, made by another tool: mounted by their file tables, every file read, and its bytes
// compared where the manifest tells them.
#include "tests/support/sample_manifest.h"
#include "tests/support/samples.h"
#include "tests/support/sha256.h"
#include "yfs/efs.h"

#include <gtest/gtest.h>

namespace {

using namespace yfs::test;

// How many files of each set the manifest tells. A value from the files of a set that isn't deployed is never shown.
struct sample_set_case {
    const char* name;
    unsigned files, told;
};

class EfsSample : public testing::TestWithParam<sample_set_case> {};

TEST_P(EfsSample, HoldsWhatItsManifestTells)
{
    const auto folder = sample_set(GetParam().name);
    if (folder.empty()) GTEST_SKIP() << "the sample sets are not here";
    const auto manifest = read_manifest(GetParam().name);
    const auto table = read_file(folder / "ftbl.bin");
    auto image = read_file(folder / "efs.img");

    ASSERT_EQ(load_autogen_data(table.data(), manifest.sku, static_cast<std::uint32_t>(table.size())), 0U);
    ASSERT_EQ(g_efs_autogen_data_loaded, 1);
    ASSERT_EQ(EFS_get_efs_size(), image.size());
    ASSERT_EQ(EFS_init_tools(image.data()), 0U);

    unsigned files = 0, told = 0;
    for (const auto& [path, file] : manifest.files) {
        if ((file.dfs_number & 0x1800U) != 0x1000U) continue;
        SCOPED_TRACE(path);
        const std::uint32_t index = file.dfs_number & 0x7FFU;
        std::uint32_t size = 0, length = 0x10000;
        std::vector<std::uint8_t> bytes(length);
        ASSERT_EQ(EFS_get_file_size(index, &size), 0U);
        ASSERT_EQ(EFS_read(index, 0, &length, bytes.data()), 0U);
        ASSERT_EQ(length, size);
        ++files;

        // Attributes: bit 1, the value is not the file's; bit 0, the file ends in a tail of 40 bytes, or 56 by bit 6.
        if (!manifest.deployed || !file.value || (file.attributes & 2U) != 0) continue;
        const std::uint32_t tail = (file.attributes & 1U) == 0 ? 0 : (file.attributes & 0x40U) == 0 ? 40 : 56;
        ASSERT_EQ(size, file.value->size + tail);
        bytes.resize(file.value->size);
        EXPECT_EQ(sha256(bytes), file.value->sha256);
        ++told;
    }
    EXPECT_EQ(files, GetParam().files);
    EXPECT_EQ(told, GetParam().told);
}

INSTANTIATE_TEST_SUITE_P(Sets, EfsSample,
                         testing::Values(sample_set_case{"large", 10, 3}, sample_set_case{"no-zonc", 6, 5},
                                         sample_set_case{"not-deployed", 4, 0}, sample_set_case{"with-efs", 10, 7}),
                         [](const auto& which) {
                             std::string name = which.param.name;
                             std::erase(name, '-');
                             return name;
                         });

} // namespace
