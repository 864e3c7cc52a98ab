// Whole runs of a host over sets of images and tables that another tool made.
#include "tests/facade/host.h"
#include "tests/support/sample_manifest.h"
#include "tests/support/samples.h"
#include "tests/support/sha256.h"
#include "yfs/efs.h"

namespace yfs::test {
namespace {

void expect_value(const std::string& path, const std::optional<sample_value>& wanted)
{
    const value found = value_of(path);
    EXPECT_EQ(found ? sha256(*found) : "none", wanted ? wanted->sha256 : "none") << path;
}

// The values after the edits; whatever isn't told has none.
void expect_values_after(const sample_manifest& manifest)
{
    for (const auto& [path, file] : manifest.files)
        if (!manifest.after.contains(path)) expect_value(path, std::nullopt);
    for (const auto& [path, value] : manifest.after) expect_value(path, value);
    take_reports();
}

class SampleSet : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(Each, SampleSet,
                         testing::Values("plain-tables", "small-deployed", "not-deployed", "large", "no-zonc",
                                         "with-efs"));

TEST_P(SampleSet, RunsWholeAndFindsItsValuesAgain)
{
    SCOPED_TRACE(GetParam());
    const auto folder = sample_set(GetParam());
    if (folder.empty()) GTEST_SKIP() << "no sample sets beside this tree";
    const sample_manifest manifest = read_manifest(GetParam());
    host run;
    run.velor = read_file(folder / "velor.cfg");
    run.zonc = read_file(folder / "zonc.bin");
    run.yfs = read_file(folder / "yfs.img");
    run.ftbl = read_file(folder / "ftbl.bin");
    run.efs = read_file(folder / "efs.img");
    run.sku = manifest.sku;
    const blob yfs = run.yfs, efs = run.efs, new_table = read_file(folder / "zonc-table-after.bin");

    ASSERT_EQ(run.init(), 1);
    EXPECT_EQ(yeYfsIsVfsDeployed(), manifest.deployed);
    EXPECT_EQ(yeYfsIsInitialized(), yfs.empty() ? 0 : 1);
    EXPECT_EQ(EFS_is_initialized(), efs.empty() ? 0 : 1) << "whatever an earlier run had mounted";
    EXPECT_EQ(take_reports(), "");
    for (const auto& [path, file] : manifest.files) expect_value(path, file.value);
    EXPECT_TRUE(run.yfs == yfs && run.efs == efs) << "reading writes nothing";
    take_reports();

    for (const auto& [path, value] : manifest.edits) ASSERT_TRUE(set_value(path, value)) << path;
    EXPECT_EQ(yeYfsNvarTerm(1), 1);
    EXPECT_EQ(handed_out(yeYfsGetBuildZonCfgFcsBuffer), new_table);
    EXPECT_EQ(take_reports(), "");
    expect_values_after(manifest);
    EXPECT_EQ(yeYfsNvarTerm(0), 1);

    // What a host saves: the images, and the new table behind the old header, with its own length in there.
    run.zonc.resize(16);
    const yfs_le32 length = static_cast<std::uint32_t>(new_table.size());
    store(run.zonc.data() + 8, length);
    run.zonc.insert(run.zonc.end(), new_table.begin(), new_table.end());
    ASSERT_EQ(run.init(), 1);
    EXPECT_EQ(take_reports(), "");
    expect_values_after(manifest);
    // A rebuild of what was rebuilt changes nothing more, but for defaults that came back.
    ASSERT_EQ(yeYfsNvarTerm(1), 1);
    expect_values_after(manifest);
}

} // namespace
} // namespace yfs::test
