// The nodes by themselves: order, search, removal, sizes.
#include "tests/support/table_builder.h"
#include "yfs/cfgtable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace yfs::test::cfgtable_tree {

using image_editor::Directory;
using image_editor::File;
using image_editor::IFile;
using node = std::shared_ptr<IFile>;

node make(const std::string& name, const blob& payload = {}, std::uint32_t fileno = 1)
{
    blob image = make_file_image(fileno, payload);
    return std::make_shared<File>(image.data(), low32(image.size()), name.c_str());
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
        EXPECT_TRUE((file->entry != nullptr) == sound && (directory.entry != nullptr) == sound);
        EXPECT_EQ(sound ? length : 0, directory.getSize());
        directory.addFile("", file);
        std::vector<_cfg_file_entry_t> records;
        std::vector<char> payloads;
        directory.serialize(records, payloads);
        EXPECT_EQ(sound ? 1U : 0U, records.size());
        EXPECT_EQ(sound ? low16(length - 12) : 0U, payloads.size());
    }
    EXPECT_EQ(nullptr, File(nullptr, 20, "f").entry);
}

TEST(directory, delete_file_splits_its_path)
{
    const auto below = std::make_shared<Directory>();
    below->addFile("", make("f"));
    std::snprintf(below->name, sizeof below->name, "dir");
    using row = std::tuple<const char*, bool, std::vector<std::string>, std::size_t>;
    const row cases[] = {
        // whether it is deleted; what is left of a, b/, c, dir, and in dir of f
        {"", false, {"a", "b/", "c", "dir"}, 1},      {"/a", false, {"a", "b/", "c", "dir"}, 1},
        {"a", true, {"b/", "c", "dir"}, 1},           {"c/", true, {"a", "b/", "dir"}, 1},
        {"b/", false, {"a", "b/", "c", "dir"}, 1},    {"a/b", false, {"a", "b/", "c", "dir"}, 1},
        {"dir/f", true, {"a", "b/", "c", "dir"}, 0},  {"dir//f", false, {"a", "b/", "c", "dir"}, 1},
        {"dir/", true, {"a", "b/", "c"}, 1},          {"dir/x", false, {"a", "b/", "c", "dir"}, 1},
        {"dir/f/", true, {"a", "b/", "c", "dir"}, 0},
    };
    for (const auto& [path, deleted, left, left_below] : cases) {
        Directory directory;
        for (const char* name : {"c", "a", "b/"}) directory.addFile("", make(name));
        below->children = {make("f")};
        directory.addFile("", below);
        EXPECT_EQ(deleted, directory.deleteFile(path)) << path;
        EXPECT_TRUE(std::ranges::equal(left, directory.children, {}, {}, [](const node& n) {
            return std::string(n->name);
        })) << path;
        EXPECT_EQ(left_below, below->children.size()) << path;
    }
}

// What a program can put among the children: null counts as unnamed, and a name may fill its field.
TEST(directory, takes_nulls_and_full_names)
{
    const std::string full(48, 'n');
    blob record = make_file_image(9, {1, 2});
    const auto root = std::make_shared<Directory>(), named = std::make_shared<Directory>(record.data(), 14);
    std::snprintf(named->name, sizeof named->name, "d");
    named->children = {nullptr, make("x", {5})};
    root->children = {nullptr, nullptr, make("a"), named, make(full, {7})};
    node found;
    for (const auto& [name, at] : {std::pair<std::string, unsigned>{"", 0},
                                   {"a", 2},
                                   {"b", 0},
                                   {"d", 3},
                                   {full, 4},
                                   {full + "x", 0},
                                   {full.substr(1), 0},
                                   {"zz", 0}}) {
        EXPECT_TRUE(root->getFile(name, &found) == (at != 0) && (at == 0 || found == root->children[at])) << name;
        EXPECT_FALSE(root->getFile(name, nullptr));
    }
    EXPECT_FALSE(root->addFile("", nullptr) || root->deleteFile("d/y"));
    std::vector<_cfg_file_entry_t> records;
    std::vector<char> payloads;
    root->serialize(records, payloads);
    EXPECT_TRUE(records.size() == 4 && payloads.size() == 2);
    EXPECT_EQ(root->getSize(), 64U) << "a file its image; the named directory 12 more than what it holds";
    IFile& leaf = *root->children[4];
    EXPECT_FALSE(leaf.isDirectory() || leaf.addFile("", found) || leaf.deleteFile("y") || leaf.getFile("y", &found));
    leaf.path = "/p";
    EXPECT_TRUE(leaf.getFullPath() == "/p/" + full && File(record.data(), 14, nullptr).getFullPath().empty());
    // A walk ends at a null, also below, and there is none over what is no directory, or nothing.
    image_editor::FileIterator over(root), leafy(root->children[4]), nothing(nullptr);
    for (image_editor::FileIterator* walk : {&over, &leafy, &nothing})
        EXPECT_TRUE(walk->firstFile().empty() && walk->nextFile().empty());
    for (const int at : {3, 9}) EXPECT_EQ((over.index = at, over.nextFile()), "");
}

// Parents before children. The way back goes by `parent`, which addFile doesn't set, and by the directory's name.
TEST(walk, nested)
{
    struct derived : Directory {}; // a program's own
    const std::shared_ptr<Directory> root = std::make_shared<Directory>(), below = std::make_shared<derived>();
    image_editor::FileIterator walk(root);
    const auto names = [&walk] {
        std::string list;
        for (std::string name = walk.firstFile(); !name.empty(); name = walk.nextFile()) list += name + " ";
        EXPECT_EQ("", walk.nextFile()); // ended, again and again
        return list;
    };
    EXPECT_EQ("", names());
    std::snprintf(below->name, sizeof below->name, "d");
    for (const node& child : {make("a"), node(below)}) root->addFile("", child);
    EXPECT_EQ("a d ", names());
    below->addFile("", make("x"));
    root->addFile("", make("e"));
    EXPECT_EQ("a d x ", names());
    below->parent = root.get();
    EXPECT_EQ("a d x e ", names());
    root->deleteFile("a");
    EXPECT_EQ("d x e ", names()) << "up from the first child";
    root->addFile("", make("a"));
    root->deleteFile("e");
    EXPECT_EQ("a d x ", names());
    root->children[1] = make("e"); // `below` is no child any more, but the walk stands in it
    EXPECT_TRUE(walk.nextFile().empty() && walk.index == -1);
}

} // namespace yfs::test::cfgtable_tree
