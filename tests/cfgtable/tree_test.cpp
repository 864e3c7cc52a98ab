// The nodes by themselves: order, search, removal, sizes.
#include "tests/support/table_builder.h"
#include "yfs/cfgtable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace yfs::test {
namespace {

using image_editor::Directory;
using image_editor::File;
using image_editor::IFile;
using node = std::shared_ptr<IFile>;

node make(const std::string& name, const blob& payload = {}, std::uint32_t fileno = 1)
{
    blob image = make_file_image(fileno, payload);
    return std::make_shared<File>(image.data(), low32(image.size()), name.c_str());
}

std::vector<std::string> names_of(const Directory& directory)
{
    std::vector<std::string> names;
    for (const node& child : directory.children) names.emplace_back(child->name);
    return names;
}

TEST(file_node, holds_a_copy_of_its_image)
{
    blob image = make_file_image(0x501, {'a', 'b', 'c'}, 0x8001);
    store(image.data() + 8, le16(0xFFFF)); // whatever the image says
    File file(image.data(), low32(image.size()), "/home/a");
    image.assign(image.size(), 0);
    const char expected[] = "\x01\x05\0\0\0\0\0\0\x03\0\x01\x80"
                            "abc";
    EXPECT_EQ(std::string(expected, 15), std::string(file.data.begin(), file.data.end()));
    EXPECT_EQ(file.data.data(), static_cast<void*>(file.entry));
    EXPECT_EQ(3U, file.entry->size);
    EXPECT_EQ("/home/a", file.getFullPath());
    EXPECT_EQ(15U, file.getSize());
    EXPECT_EQ(nullptr, file.parent);

    node out = make("x");
    const node kept = out;
    EXPECT_FALSE(file.isDirectory());
    EXPECT_FALSE(file.addFile("a", out));
    EXPECT_FALSE(file.deleteFile("/home/a"));
    EXPECT_FALSE(file.getFile("/home/a", &out));
    EXPECT_EQ(kept, out);

    file.path = "/up";
    EXPECT_EQ("/up//home/a", file.getFullPath());
}

TEST(file_node, names_are_cut_to_48_characters)
{
    const std::string name(48, 'n');
    EXPECT_EQ(name, make(name)->name);
    EXPECT_EQ(name, make(name + "x")->name);
    EXPECT_EQ(std::string(47, 'n'), make(std::string(47, 'n'))->name);
}

// A size is cut to 16 bits, and only that many bytes are written out.
TEST(file_node, images_outside_the_lengths_of_a_table)
{
    blob image = make_file_image(5, blob(0x10002, 'x'));
    for (const std::uint32_t length : {0U, 11U, 12U, 12U + 0xFFFF, 12U + 0x10002}) {
        SCOPED_TRACE(length);
        Directory directory(image.data(), length);
        const auto file = std::make_shared<File>(image.data(), length, "f");
        const bool sound = length >= 12;
        EXPECT_EQ(sound, file->entry != nullptr);
        EXPECT_EQ(sound, directory.entry != nullptr);
        EXPECT_EQ(sound ? length : 0, directory.getSize());
        EXPECT_STREQ("", directory.name);
        directory.addFile("", file);
        std::vector<_cfg_file_entry_t> records;
        std::vector<char> payloads;
        directory.serialize(records, payloads);
        EXPECT_EQ(sound ? 1U : 0U, records.size());
        EXPECT_EQ(sound ? low16(length - 12) : 0U, payloads.size());
    }
    EXPECT_EQ(nullptr, File(nullptr, 20, "f").entry);
}

TEST(file_node, a_record_that_tells_more_than_there_is_writes_what_there_is)
{
    const node file = make("f", {1, 2, 3});
    file->entry->size = 500;
    std::vector<_cfg_file_entry_t> records;
    std::vector<char> payloads(7);
    file->serialize(records, payloads);
    EXPECT_EQ(3U, records.at(0).size);
    EXPECT_EQ(7U, records.at(0).offset);
    EXPECT_EQ(10U, payloads.size());
    EXPECT_EQ(7U, file->entry->offset);
}

TEST(directory, order_of_names)
{
    struct {
        const char *first, *second;
    } const cases[] = {
        {"a", "b"},  {"ab", "ab-c"}, {"ab-c/", "ab/"}, {"A", "a"},       {"", "a"},
        {"a", "a/"}, {"ab!", "ab-"}, {"z", "\x80"},    {"\x7F", "\xFF"}, {"a\xFE", "a\xFF"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.first);
        const node a = make(row.first), b = make(row.second);
        EXPECT_TRUE(image_editor::fileCompare(a, b));
        EXPECT_FALSE(image_editor::fileCompare(b, a));
        EXPECT_FALSE(image_editor::fileCompare(a, a));
        Directory directory;
        EXPECT_TRUE(directory.addFile("ignored", b));
        EXPECT_TRUE(directory.addFile("ignored", a));
        EXPECT_EQ((std::vector<std::string>{row.first, row.second}), names_of(directory));
    }
}

TEST(directory, stays_sorted_and_finds_every_child)
{
    const unsigned seed = 7;
    std::mt19937 engine(seed);
    Directory directory;
    std::vector<std::string> names;
    for (int i = 0; i < 500; ++i) {
        names.push_back(std::to_string(engine() % 1000) + (engine() % 2 ? "/" : ""));
        directory.addFile("", make(names.back()));
    }
    std::ranges::sort(names);
    EXPECT_EQ(names, names_of(directory)) << "seed " << seed;
    for (const std::string& name : names) {
        node out;
        ASSERT_TRUE(directory.getFile(name, &out));
        EXPECT_EQ(directory.children[static_cast<std::size_t>(std::ranges::lower_bound(names, name) - names.begin())],
                  out);
    }
}

TEST(directory, get_file_takes_the_whole_name)
{
    Directory directory;
    directory.addFile("", make("a"));
    directory.addFile("", make("b/"));
    directory.addFile("", make("c/d"));
    const auto below = std::make_shared<Directory>();
    below->addFile("", make("e"));
    directory.addFile("", below);
    const struct {
        const char* name;
        bool found;
    } cases[] = {{"a", true},  {"a/", false}, {"b", false},  {"b/", true}, {"c/d", true},
                 {"c", false}, {"e", false},  {"/e", false}, {"", true}};
    for (const auto& row : cases) {
        const node before = make("before");
        node out = before;
        EXPECT_EQ(row.found, directory.getFile(row.name, &out)) << row.name;
        EXPECT_EQ(row.found ? std::string(row.name) : "before", out->name);
    }
    EXPECT_FALSE(directory.getFile("a", nullptr));
}

TEST(directory, delete_file_splits_its_path)
{
    const auto below = std::make_shared<Directory>();
    below->addFile("", make("f"));
    std::snprintf(below->name, sizeof below->name, "dir");
    const struct {
        const char* path;
        bool deleted;
        std::vector<std::string> left; // of a, b/, c, dir with f
        std::size_t left_below;
    } cases[] = {
        {"", false, {"a", "b/", "c", "dir"}, 1},      {"/a", false, {"a", "b/", "c", "dir"}, 1},
        {"a", true, {"b/", "c", "dir"}, 1},           {"c/", true, {"a", "b/", "dir"}, 1},
        {"b/", false, {"a", "b/", "c", "dir"}, 1},    {"a/b", false, {"a", "b/", "c", "dir"}, 1},
        {"dir/f", true, {"a", "b/", "c", "dir"}, 0},  {"dir//f", false, {"a", "b/", "c", "dir"}, 1},
        {"dir/", true, {"a", "b/", "c"}, 1},          {"dir/x", false, {"a", "b/", "c", "dir"}, 1},
        {"dir/f/", true, {"a", "b/", "c", "dir"}, 0},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.path);
        Directory directory;
        for (const char* name : {"c", "a", "b/"}) directory.addFile("", make(name));
        below->children = {make("f")};
        directory.addFile("", below);
        EXPECT_EQ(row.deleted, directory.deleteFile(row.path));
        EXPECT_EQ(row.left, names_of(directory));
        EXPECT_EQ(row.left_below, below->children.size());
    }
}

// Only a directory with a name writes its own record, and never its payload.
TEST(directory, sizes_and_records)
{
    Directory root;
    root.addFile("", make("b", {}, 2));
    root.addFile("", make("a", {1, 2, 3}, 1));
    EXPECT_EQ(27U, root.getSize());
    blob image = make_file_image(9, {7, 7});
    const auto below = std::make_shared<Directory>(image.data(), low32(image.size()));
    below->addFile("", make("c", {4}, 3));
    root.addFile("", below); // unnamed
    EXPECT_EQ(27U + 14 + 13, root.getSize());

    for (const bool named : {false, true}) {
        std::vector<_cfg_file_entry_t> records;
        std::vector<char> payloads;
        below->name[0] = named ? 'd' : '\0';
        below->entry->offset = 77;
        root.serialize(records, payloads);
        std::vector<std::uint32_t> numbers;
        for (const auto& record : records) numbers.push_back(record.fileno);
        EXPECT_EQ((named ? std::vector<std::uint32_t>{9, 3, 1, 2} : std::vector<std::uint32_t>{3, 1, 2}), numbers);
        EXPECT_EQ((std::vector<char>{4, 1, 2, 3}), payloads);
        EXPECT_EQ(named ? 0U : 77U, below->entry->offset);
    }
}

TEST(directory, children_that_a_program_spoils_do_no_harm)
{
    Directory directory;
    EXPECT_FALSE(directory.addFile("", nullptr));
    directory.children = {nullptr, make("z"), nullptr, make("a"), nullptr};
    node out;
    EXPECT_FALSE(directory.getFile("nobody", &out));
    directory.addFile("", make("m"));
    directory.deleteFile("none");
    EXPECT_EQ(36U, directory.getSize());
    std::vector<_cfg_file_entry_t> records;
    std::vector<char> payloads;
    directory.serialize(records, payloads);
    EXPECT_EQ(3U, records.size());
    EXPECT_FALSE(image_editor::fileCompare(nullptr, nullptr));
    const node endless = make("");
    std::fill_n(endless->name, sizeof endless->name, 'x'); // no terminator
    EXPECT_EQ(49U, endless->getFullPath().size());
}

} // namespace
} // namespace yfs::test
