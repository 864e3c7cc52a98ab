// Lookups by name and by number: in a table small enough to be walked, and in one that is indexed. Both have to find
// the first match in the order of the table.
#include "tests/support/table_builder.h"
#include "vfs/vfs_internal.h"
#include "yfs/vfs.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace yfs::test::vfs_lookup {

const std::string name_48 = "/home/" + std::string(42, 'n');

// A table that was loaded: only there an index is made.
struct active_entries {
    blob buffer;

    void load(const std::vector<table_file>& files)
    {
        buffer = make_file_table({{2, files}});
        load_again();
    }
    void load_again() { ASSERT_EQ(0U, load_file_table(buffer.data(), 2, low32(buffer.size()))); }
};

// Entries among `fillers` others, half of them before.
class lookup : public testing::TestWithParam<std::uint32_t> {
protected:
    void SetUp() override
    {
        std::vector<table_file> files;
        for (std::uint32_t i = 0; i < GetParam(); ++i)
            files.push_back({"/filler" + std::to_string(i * 7919 % 1000), 5000 + i * 7919 % 1000});
        first = files.size() / 2;
        // The last but one and the one before it have one checksum.
        files.insert(files.begin() + static_cast<std::ptrdiff_t>(first), {{"/a", 0x10000001, 0x0143, 0, 1, 500},
                                                                          {name_48, 2, 0x0002},
                                                                          {"/a", 3},
                                                                          {"/twin", 2},
                                                                          {"", 4},
                                                                          {"costarring", 5},
                                                                          {"liquid", 6},
                                                                          {"/zero", 0}});
        table.load(files);
    }

    active_entries table;
    std::size_t first = 0;
    // The place of the entry among the files of the test, or -1.
    std::ptrdiff_t place(const ftbl_file_entry_t* entry) const
    {
        return entry ? entry - g_table_buf - static_cast<std::ptrdiff_t>(first) : -1;
    }
};

INSTANTIATE_TEST_SUITE_P(walked_and_indexed, lookup, testing::Values(0U, 200U));

TEST_P(lookup, what_the_flat_calls_write)
{
    using row = std::tuple<const char*, int, fileno_t, int, std::uint32_t>; // what is written in all, 77 where nothing
    for (const auto& [name, status, number, attributes, max_size] :
         {row{"/none", -1, 77, 77, 77}, row{"/a", 0, 0x10000001, 0x0143, 500}, row{"/zero", 0, 0, 0, 0xFFFF}}) {
        fileno_t number_out = 77;
        file_attributes_t attributes_out = 77;
        std::uint32_t size_out = 77;
        EXPECT_EQ(status, get_fileno_by_file_name(name, &number_out));
        EXPECT_EQ(-1, get_file_attributes_by_file_name(name, &attributes_out, nullptr));
        EXPECT_EQ(77, attributes_out);
        EXPECT_EQ(status, get_file_attributes_by_file_name(name, &attributes_out, &size_out));
        EXPECT_EQ(std::tuple(number_out, attributes_out, size_out), std::tuple(number, attributes, max_size)) << name;
    }
    EXPECT_EQ(-1, get_fileno_by_file_name("/a", nullptr));

    const std::pair<fileno_t, std::string> named[] = {
        {99, std::string(50, '?')}, {2, name_48 + "??"}, {3, "/a" + std::string(46, '\0') + "??"}};
    for (const auto& [number, wanted] : named) { // 48 bytes, no terminator
        std::string name(50, '?');
        EXPECT_EQ(number == 99 ? -1 : 0, get_file_name_by_fileno(&number, name.data()));
        EXPECT_EQ(wanted, name);
    }
}

// An index answers neither for what an entry was nor for what the buffer held at an earlier load.
TEST_P(lookup, entries_that_change_in_their_buffer)
{
    const fileno_t number = 6, gone = 0x10000001;
    ASSERT_EQ(0, place(get_file_entry_by_fileno(&gone)));
    ASSERT_EQ(6, place(get_file_entry_by_fileno(&number)));
    ASSERT_EQ(0, place(get_file_entry_by_file_name("/a")));
    store(table.buffer.data() + 32 + first * sizeof(ftbl_file_entry_t), file_entry({"/new", number}));
    EXPECT_EQ(0, place(get_file_entry_by_file_name("/new")));
    EXPECT_EQ(2, place(get_file_entry_by_file_name("/a")));
    EXPECT_EQ(-1, place(get_file_entry_by_fileno(&gone)));
    table.load_again();
    EXPECT_EQ(0, place(get_file_entry_by_fileno(&number)));
    g_table_num_files = INT32_MIN + 8; // the top bit: an empty table
    EXPECT_EQ(-1, place(get_file_entry_by_fileno(&number)));
}

TEST(lookup_random, as_a_plain_walk)
{
    const unsigned seed = 20240611;
    SCOPED_TRACE(seed);
    std::mt19937 engine(seed);
    const auto random = [&engine] { return low32(engine()); };
    for (int round = 0; round < 60; ++round) {
        const unsigned names = 1 + random() % 300; // few names: many entries of one name
        const auto any_name = [&] { return std::string(random() % 3 * 22, '/') + std::to_string(random() % names); };
        std::vector<table_file> files;
        for (unsigned count = random() % 400; count > 0; --count) files.push_back({any_name(), random() % names});
        active_entries table;
        table.load(files);
        const vfs::lookup_run run;
        for (int query = 0; query < 200; ++query) {
            const std::string name = any_name();
            const fileno_t number = random() % (names + 1);
            const ftbl_file_entry_t *named = nullptr, *numbered = nullptr;
            for (std::size_t i = 0; i < files.size(); ++i) {
                const ftbl_file_entry_t& entry = g_table_buf[i];
                if (!named && std::strncmp(entry.name, name.c_str(), 48) == 0) named = &entry;
                if (!numbered && entry.fileno == number) numbered = &entry;
            }
            ASSERT_EQ(named, get_file_entry_by_file_name(name.c_str())) << name;
            ASSERT_TRUE(numbered == get_file_entry_by_fileno(&number) && numbered == run.find_by_fileno(number))
                << number;
        }
    }
}

} // namespace yfs::test::vfs_lookup
