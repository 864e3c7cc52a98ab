// Tables against a plain model, at random.
#include "tests/cfgtable/fixture.h"

#include <algorithm>
#include <map>
#include <random>

namespace yfs::test::cfgtable_round_trip {

struct dice {
    std::mt19937 engine;
    std::uint32_t below(std::uint32_t limit) { return low32(engine() % limit); }
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
        dice d{std::mt19937(seed)};
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
            const auto way = d.below(3);
            // The name of a child ends at the first "/" of the path.
            const auto child = way != 1         ? expected.find(name)
                               : name[0] == '/' ? expected.end()
                                                : expected.find(file.name);
            const bool found = child != expected.end(), fits = !check || stored.payload.size() <= file.max_size;
            if (way == 0) {
                const auto taken = found ? fcs_status::name_taken : fcs_status::ok;
                ASSERT_EQ(fits ? taken : fcs_status::above_max_size,
                          tree.add(name, make_file_image(stored.fileno, stored.payload, stored.flags), check));
                if (fits && !found) expected[name] = stored;
            } else if (way == 1) {
                ASSERT_EQ(found ? fcs_status::ok : fcs_status::no_such_file, deleteFile(tree.handle, name.c_str()));
                if (found) expected.erase(child);
            } else {
                const blob image = tree.image(name); // the payload behind its record
                ASSERT_TRUE(found ? blob(image.begin() + 12, image.end()) == child->second.payload : image.empty());
            }
        }
        ASSERT_EQ(table_of(expected), tree.table());
        std::vector<std::string> names;
        for (const auto& [name, file] : expected) names.push_back(name);
        ASSERT_EQ(names, tree.names());
    }
}

} // namespace yfs::test::cfgtable_round_trip
