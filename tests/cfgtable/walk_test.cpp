// The cursor over a tree, flat and nested.
#include "tests/support/table_builder.h"
#include "yfs/cfgtable.h"

#include <gtest/gtest.h>

namespace yfs::test {
namespace {

using image_editor::Directory;
using image_editor::File;
using image_editor::FileIterator;
using image_editor::IFile;

std::shared_ptr<IFile> file(const char* name)
{
    blob image = make_file_image(1);
    return std::make_shared<File>(image.data(), low32(image.size()), name);
}

// A directory with a name, as a program can make it. Children that are directories learn their parent.
std::shared_ptr<Directory> directory(const char* name, const std::vector<std::shared_ptr<IFile>>& children)
{
    auto made = std::make_shared<Directory>();
    std::snprintf(made->name, sizeof made->name, "%s", name);
    for (const auto& child : children) {
        made->addFile("", child);
        child->parent = made.get();
    }
    return made;
}

std::vector<std::string> walk(FileIterator& iterator)
{
    std::vector<std::string> names;
    for (std::string name = iterator.firstFile(); !name.empty(); name = iterator.nextFile()) names.push_back(name);
    EXPECT_EQ("", iterator.nextFile());
    EXPECT_EQ("", iterator.nextFile());
    return names;
}

TEST(walk, orders)
{
    const struct {
        const char* name;
        std::shared_ptr<IFile> root;
        std::vector<std::string> names;
    } cases[] = {
        {"no children", directory("", {}), {}},
        {"a file", file("f"), {}},
        {"null", nullptr, {}},
        {"files", directory("", {file("b"), file("a"), file("c")}), {"a", "b", "c"}},
        {"parents before children",
         directory("", {file("a"), directory("d", {file("x"), file("y")}), file("e")}),
         {"a", "d", "x", "y", "e"}},
        {"climbs two levels",
         directory("", {directory("d", {directory("e", {file("x")})}), file("z")}),
         {"d", "e", "x", "z"}},
        {"passes an empty directory", directory("", {directory("d", {}), file("e")}), {"d", "e"}},
        {"ends deep", directory("", {directory("d", {directory("e", {file("x")})})}), {"d", "e", "x"}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        FileIterator iterator(row.root);
        EXPECT_EQ(row.names, walk(iterator));
        EXPECT_EQ(row.names, walk(iterator));
    }
}

// addFile sets no parent, so a walk that descended ends there. The climb goes by name: without one it finds nothing.
TEST(walk, climbs_only_where_the_way_back_is_told)
{
    const auto below = std::make_shared<Directory>();
    std::snprintf(below->name, sizeof below->name, "d");
    below->addFile("", file("x"));
    const auto root = directory("", {file("e")});
    root->addFile("", below);
    FileIterator iterator(root);
    EXPECT_EQ((std::vector<std::string>{"d", "x"}), walk(iterator));

    below->parent = root.get();
    EXPECT_EQ((std::vector<std::string>{"d", "x", "e"}), walk(iterator));
    iterator.firstFile();
    iterator.nextFile();
    std::snprintf(below->name, sizeof below->name, "other");
    root->children[0] = file("d"); // `below` stays alive here, and is no child any more
    EXPECT_EQ("", iterator.nextFile());
    EXPECT_EQ(-1, iterator.index);
    EXPECT_EQ("", iterator.nextFile());
    EXPECT_EQ("d", iterator.firstFile());
}

TEST(walk, paths_come_with_the_next_ones_only)
{
    const auto root = directory("", {file("a"), file("b")});
    for (const auto& child : root->children) child->path = "/up";
    FileIterator iterator(root);
    EXPECT_EQ((std::vector<std::string>{"a", "/up/b"}), walk(iterator));
}

TEST(walk, positions_shift_with_the_tree)
{
    const auto root = directory("", {file("b"), file("d")});
    FileIterator iterator(root);
    EXPECT_EQ("b", iterator.firstFile());
    root->addFile("", file("a"));
    EXPECT_EQ("b", iterator.nextFile());
    root->children.clear();
    EXPECT_EQ("", iterator.nextFile());
    EXPECT_EQ("", iterator.firstFile());
    EXPECT_EQ("", iterator.nextFile());
    root->children = {nullptr, file("a")};
    EXPECT_EQ("", iterator.firstFile());
    EXPECT_EQ("", iterator.nextFile());
}

TEST(walk, keeps_its_tree_alive)
{
    auto root = directory("", {file("a"), file("b")});
    FileIterator iterator(root);
    root.reset();
    EXPECT_EQ((std::vector<std::string>{"a", "b"}), walk(iterator));
}

} // namespace
} // namespace yfs::test
