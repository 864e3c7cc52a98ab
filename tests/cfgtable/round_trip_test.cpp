// Tables against a plain model, at random; damaged ones; and those of the sample sets.
#include "tests/cfgtable/fixture.h"
#include "tests/support/samples.h"
#include "vfs/ftbl_layout.h"

#include <algorithm>
#include <map>
#include <random>

namespace yfs::test {
namespace {

class dice {
public:
    explicit dice(unsigned seed) : engine_(seed) {}
    std::uint32_t below(std::uint32_t limit) { return low32(engine_() % limit); }

private:
    std::mt19937 engine_;
};

// What a tree has to hold, and the table that it then gives.
using model = std::map<std::string, cfg_file>;

blob table_of(const model& tree)
{
    std::vector<cfg_file> list;
    for (const auto& [name, file] : tree) list.push_back(file);
    return make_cfg_table(list);
}

std::vector<table_file> random_file_table(dice& d)
{
    std::vector<table_file> files;
    const std::uint32_t count = 1 + d.below(80);
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::string start(1 + d.below(4) * 14, "-/az"[d.below(4)]);
        files.push_back({start + std::to_string(i), 1 + i, low16(d.below(0x10000)), 0, 1, d.below(60)});
    }
    return files;
}

TEST(round_trip, random_changes_against_a_model)
{
    for (unsigned seed = 1; seed <= 150; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        dice d(seed);
        const std::vector<table_file> files = random_file_table(d);
        const active_table active(files);

        model expected;
        std::vector<cfg_file> records;
        for (const table_file& file : files)
            if (d.below(2)) {
                records.push_back({file.fileno, payload(d.below(200), d.below(256)), low16(d.below(0x10000))});
                expected[file.name] = records.back();
            }
        for (std::size_t i = records.size(); i > 1; --i) std::swap(records[i - 1], records[d.below(low32(i))]);
        fcs tree(make_cfg_table(records));
        ASSERT_EQ(fcs_status::ok, tree.status);

        for (int step = 0; step < 60; ++step) {
            const table_file& file = files[d.below(low32(files.size()))];
            const std::string name = file.name + (d.below(3) == 0 ? "/" : "");
            const cfg_file stored = {file.fileno, payload(d.below(80), d.below(256)), low16(d.below(0x10000))};
            const bool check = d.below(2) == 0;
            switch (d.below(3)) {
            case 0: {
                const bool fits = !check || stored.payload.size() <= file.max_size;
                const bool taken = expected.contains(name);
                const auto status = !fits   ? fcs_status::above_max_size
                                    : taken ? fcs_status::name_taken
                                            : fcs_status::ok;
                ASSERT_EQ(status, tree.add(name, make_file_image(stored.fileno, stored.payload, stored.flags), check));
                if (status == fcs_status::ok) expected[name] = stored;
                break;
            }
            case 1: { // the name of a child ends at the first "/" of the path
                const auto child = name.starts_with('/') ? expected.end() : expected.find(file.name);
                const bool found = child != expected.end();
                ASSERT_EQ(found ? fcs_status::ok : fcs_status::no_such_file, deleteFile(tree.handle, name.c_str()));
                if (found) expected.erase(child);
                break;
            }
            default:
                ASSERT_EQ(expected.contains(name) ? expected[name].payload : blob(),
                          [&] { // the payload without its record
                              const blob image = tree.image(name);
                              return blob(image.begin() + std::min<std::ptrdiff_t>(12, std::ssize(image)), image.end());
                          }());
            }
        }
        ASSERT_EQ(table_of(expected), tree.table());
        std::vector<std::string> names;
        for (const auto& [name, file] : expected) names.push_back(name);
        ASSERT_EQ(names, tree.names());
    }
}

class sample : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(sets, sample,
                         testing::Values("large", "no-zonc", "not-deployed", "plain-tables", "small-deployed",
                                         "with-efs"),
                         [](const auto& set) {
                             std::string name = set.param;
                             std::ranges::replace(name, '-', '_');
                             return name;
                         });

// The records that the active file table knows, in the order of its names.
model known_records(const blob& table)
{
    model known;
    for (std::uint32_t i = 0; i < load<le32>(table.data()); ++i) {
        const auto record = load<_cfg_file_entry_t>(table.data() + cfgtable::record_at(i));
        const fileno_t number = record.fileno;
        const ftbl_file_entry_t* entry = get_file_entry_by_fileno(&number);
        if (!entry) continue;
        const auto at = table.begin() + (record.size == 0 ? 0 : static_cast<std::ptrdiff_t>(record.offset));
        known[std::string(vfs::table_name(entry->name))] = {record.fileno, blob(at, at + record.size), record.flags};
    }
    return known;
}

TEST_P(sample, loads_and_flushes)
{
    const auto folder = sample_set(GetParam());
    if (folder.empty()) GTEST_SKIP() << "the sample sets aren't there";
    const blob ftbl = read_file(folder / "ftbl.bin");
    const std::uint32_t skus = load<ftbl_header_t>(ftbl.data()).sku_count;
    ASSERT_GT(skus, 0U);
    for (std::uint32_t row = 0; row < skus; ++row) {
        const std::uint32_t sku = load<ftbl_sku_entry_t>(ftbl.data() + vfs::sku_row_at(row)).sku;
        ASSERT_EQ(0U, load_file_table(ftbl.data(), sku, low32(ftbl.size())));
        for (const char* name : {"velor.cfg", "zonc.bin", "zonc-table-after.bin"}) {
            SCOPED_TRACE(testing::Message() << name << " with SKU " << sku);
            blob table = read_file(folder / name);
            if (table.empty()) continue; // a set can lack its override table
            if (name == std::string("zonc.bin")) {
                const std::uint32_t length = load<le32>(table.data() + 8);
                table.erase(table.begin(), table.begin() + 16);
                ASSERT_LE(length, table.size());
                table.resize(length);
            }
            const fcs tree(table);
            ASSERT_EQ(fcs_status::ok, tree.status);
            const model known = known_records(table);
            const blob written = tree.table();
            EXPECT_EQ(table_of(known), written);
            EXPECT_EQ(written, fcs(written).table());
            for (const auto& [path, file] : known) {
                FcsFileEntry entry{};
                ASSERT_EQ(0U, getFileAttributes(tree.handle, path.c_str(), &entry));
                const ftbl_file_entry_t* told = get_file_entry_by_file_name(path.c_str());
                EXPECT_EQ(file.fileno, entry.entry.fileno);
                EXPECT_EQ(told->attributes, entry.attributes);
                EXPECT_EQ(told->maxSize, entry.maxSize);
            }
        }
    }
    g_table_buf = nullptr;
}

} // namespace
} // namespace yfs::test
