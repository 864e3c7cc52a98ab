// Whole runs of a host over sets of images and tables that another tool made.
#include "tests/facade/host.h"
#include "tests/support/sample_manifest.h"
#include "tests/support/samples.h"
#include "tests/support/sha256.h"
#include "yfs/efs.h"
#include "yfs/vfs.h"

#include <algorithm>

namespace yfs::test {
namespace {

struct sample {
    const char* set;
};
const sample samples[] = {{"plain-tables"}, {"small-deployed"}, {"not-deployed"}, {"large"}, {"no-zonc"}, {"with-efs"}};

void PrintTo(const sample& s, std::ostream* out)
{
    *out << s.set;
}

class SampleSet : public testing::TestWithParam<sample> {
protected:
    void SetUp() override
    {
        const auto folder = sample_set(GetParam().set);
        if (folder.empty()) GTEST_SKIP() << "no sample sets beside this tree";
        manifest_ = read_manifest(GetParam().set);
        run_.velor = read_file(folder / "velor.cfg");
        run_.zonc = read_file(folder / "zonc.bin");
        run_.yfs = read_file(folder / "yfs.img");
        run_.ftbl = read_file(folder / "ftbl.bin");
        run_.efs = read_file(folder / "efs.img");
        run_.sku = manifest_.sku;
        new_table_ = read_file(folder / "zonc-table-after.bin");
    }

    static void expect_value(const std::string& path, const std::optional<sample_value>& wanted)
    {
        const auto value = value_of(path);
        ASSERT_EQ(value.has_value(), wanted.has_value()) << path;
        if (!wanted) return;
        EXPECT_EQ(value->size(), wanted->size) << path;
        EXPECT_EQ(sha256(*value), wanted->sha256) << path;
    }

    // The values after the edits; whatever isn't told has none.
    void expect_values_after() const
    {
        for (const auto& [path, file] : manifest_.files) {
            const auto told = manifest_.after.find(path);
            expect_value(path, told == manifest_.after.end() ? std::nullopt : told->second);
        }
        for (const auto& [path, value] : manifest_.after) expect_value(path, value);
        take_reports();
    }

    void edit() const
    {
        for (const auto& [path, value] : manifest_.edits) ASSERT_TRUE(set_value(path, value)) << path;
    }

    sample_manifest manifest_;
    host run_{{}};
    blob new_table_;
};

std::string test_name(const testing::TestParamInfo<sample>& set)
{
    std::string name = set.param.set;
    std::erase(name, '-');
    return name;
}
INSTANTIATE_TEST_SUITE_P(Each, SampleSet, testing::ValuesIn(samples), test_name);

TEST_P(SampleSet, OpensAndShowsEveryValue)
{
    const blob yfs = run_.yfs, efs = run_.efs;
    ASSERT_EQ(run_.init(), 1);
    EXPECT_EQ(take_reports(), reports{});
    EXPECT_EQ(yeYfsIsVfsDeployed(), manifest_.deployed);
    EXPECT_EQ(yeYfsIsInitialized(), run_.yfs.empty() ? 0 : 1);
    EXPECT_EQ(EFS_is_initialized(), run_.efs.empty() ? 0 : 1) << "whatever an earlier run had mounted";
    ASSERT_FALSE(manifest_.files.empty());
    for (const auto& [path, file] : manifest_.files) {
        expect_value(path, file.value);
        std::uint32_t number = 0;
        EXPECT_EQ(pathToFileNumber(path.c_str(), &number), 0U) << path;
        EXPECT_EQ(number, file.dfs_number) << path;
        const ftbl_file_entry_t* const entry = get_file_entry_by_file_name(path.c_str());
        ASSERT_NE(entry, nullptr) << path;
        EXPECT_EQ(entry->fileno, file.fileno) << path;
        EXPECT_EQ(entry->attributes, file.attributes) << path;
        EXPECT_EQ(entry->maxSize, file.max_size) << path;
    }
    EXPECT_EQ(run_.yfs, yfs) << "reading writes nothing";
    EXPECT_EQ(run_.efs, efs);
}

TEST_P(SampleSet, RunsWholeAndFindsItsValuesAgain)
{
    ASSERT_EQ(run_.init(), 1);
    edit();
    EXPECT_EQ(yeYfsNvarTerm(1), 1);
    EXPECT_EQ(take_reports(), reports{});
    EXPECT_EQ(built_table(), new_table_);
    expect_values_after();
    EXPECT_EQ(yeYfsNvarTerm(0), 1);

    // What a host saves: the images, and the new table behind the old header, with its own length in there.
    run_.zonc.resize(16);
    const yfs_le32 length = static_cast<std::uint32_t>(new_table_.size());
    store(run_.zonc.data() + 8, length);
    run_.zonc.insert(run_.zonc.end(), new_table_.begin(), new_table_.end());
    ASSERT_EQ(run_.init(), 1);
    EXPECT_EQ(take_reports(), reports{});
    expect_values_after();

    // A rebuild of what was rebuilt changes nothing more, but for defaults that came back.
    ASSERT_EQ(yeYfsNvarTerm(1), 1);
    expect_values_after();
}

TEST_P(SampleSet, AnEfsImageShorterThanItsTableSaysIsNotTouched)
{
    if (run_.efs.empty()) GTEST_SKIP() << "a set without EFS";
    run_.efs.pop_back();
    const blob before = run_.efs;
    EXPECT_EQ(run_.init(), 0);
    EXPECT_EQ(take_reports(), reports{says(340)});
    EXPECT_EQ(yeYfsIsInitialized(), 0);
    EXPECT_EQ(yeYfsGetEfsSize(), before.size() + 1);
    EXPECT_EQ(EFS_is_initialized(), 0);
    EXPECT_EQ(run_.efs, before);
}

} // namespace
} // namespace yfs::test
