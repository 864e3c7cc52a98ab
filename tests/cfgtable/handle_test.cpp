// The handle operations: each one's statuses in their order, and what stays as it was.
#include "cfgtable/cfgtable_internal.h"
#include "tests/cfgtable/fixture.h"

#include <cstring>

namespace yfs::test::cfgtable_handle {

const std::string name_48 = "/home/" + std::string(42, 'n');

const std::vector<table_file> files = {
    {"/home/a", 0x501, 0x0143, 0, 1, 10},
    {"/home/b", 0x502, 0, 0, 1, 0xFFFFFFFF},
    {"/home/c", 0x503},
    {"/zero", 0, 0, 0, 1, 20},
    {name_48, 0x504},
};

using words = std::vector<std::uint32_t>;

TEST(handle, null_handle_comes_first)
{
    char out[256];
    std::uint32_t length = 0;
    EXPECT_EQ((words{addNewFile(nullptr, "", "a", nullptr, 11, false), deleteFile(nullptr, ""),
                     getFileData(nullptr, "a", nullptr, nullptr), getFileAttributes(nullptr, "a", nullptr),
                     getFirstFileInRoot(nullptr, out), getNextFile(nullptr, out), flush(nullptr, nullptr, nullptr),
                     flush(nullptr, nullptr, &length)}),
              words(8, fcs_status::null_handle));
    void *none = nullptr, *open = nullptr;
    ASSERT_EQ(createHandle(&open), 0U);
    char byte = 0;
    EXPECT_EQ((words{createHandle(nullptr), createHandleFromStructure(nullptr, &byte, 1),
                     createHandleFromStructure(&none, nullptr, 4), closeHandle(nullptr), closeHandle(&none),
                     getFirstFileInRoot(open, nullptr), getNextFile(open, nullptr), getNextFile(open, out),
                     deleteFile(open, nullptr), closeHandle(&open), closeHandle(&open)}),
              (words{1, 1, 1, 1, 6, 1, 1, 3, 4, 0, 6}));
}

// Nodes as a program may leave them behind a handle: without a record, without a name.
TEST(handle, nodes_of_a_program)
{
    const active_table table(files);
    fcs tree;
    for (const char* name : {"a", "b"}) ASSERT_EQ(0U, tree.add(name, make_file_image(0x501)));
    auto& children = static_cast<cfgtable::FcsHandle*>(tree.handle)->root->children;
    children[0]->data.resize(3);
    char name[256];
    FcsFileEntry entry;
    EXPECT_EQ(getFileAttributes(tree.handle, "a", &entry), fcs_status::not_in_table);
    for (const std::size_t nameless : {1, 0}) {
        children[nameless]->name[0] = 0;
        EXPECT_EQ(getFirstFileInRoot(tree.handle, name), nameless != 0 ? 0U : 3U);
        EXPECT_EQ(getNextFile(tree.handle, name), fcs_status::no_more_files);
    }
}

TEST(add_new_file, statuses_in_their_order)
{
    const active_table table(files);
    // File, number, payload, length (0: that of the image), whether maxSize counts; the status and the number
    // afterwards.
    using row = std::tuple<const char*, std::string, std::uint32_t, std::size_t, std::uint32_t, bool, std::uint32_t,
                           std::uint32_t>;
    const row cases[] = {
        {"any name with a known number", "anything", 0x502, 0, 0, false, 0, 0x502},
        {"length 11", "/home/b", 0, 0, 11, true, 5, 0},
        {"length 0", "/home/b", 0, 0, 0x10000, true, 5, 0},
        {"length 65,547: 11", "/home/b", 0, 0, 0x1000B, true, 5, 0},
        {"length 65,548: 12", "/home/b", 0x502, 0, 0x1000C, true, 0, 0x502},
        {"number by 48 characters", name_48 + "/", 0, 0, 0, false, 0, 0x504},
        {"no such name", "/home/x", 0, 0, 0, false, 2, 0},
        {"known name, unknown number", "/home/b", 0x999, 0, 0, false, 8, 0x999},
        {"number 0 by name", "/zero", 0, 0, 0, false, 0, 0},
        {"at maxSize", "/home/x", 0x501, 10, 0, true, 0, 0x501},
        {"above maxSize", "/home/x", 0x501, 11, 0, true, 12, 0x501},
        {"above maxSize, found by name", "/home/c", 0, 0xFFFF - 12, 0, true, 0, 0x503},
        {"above maxSize, unchecked", "/home/x", 0x501, 11, 0, false, 0, 0x501},
        {"maxSize + 12 past 32 bits", "/home/x", 0x502, 500, 0, true, 0, 0x502},
        {"largest image", "/home/x", 0x502, 65523, 0, true, 0, 0x502},
        {"too large before taken", "/home/a", 0x501, 11, 0, true, 12, 0x501},
        {"taken", "/home/a", 0x501, 1, 0, true, 11, 0x501},
    };
    for (const auto& [name, path, fileno, size, told, check_size, status, fileno_after] : cases) {
        SCOPED_TRACE(name);
        fcs tree;
        const blob old = make_file_image(0x501, {9, 9});
        ASSERT_EQ(0U, tree.add("/home/a", old));

        blob image = make_file_image(fileno, payload(size), 0xFFFE);
        blob expected = make_file_image(fileno_after, payload(size), 0xFFFE);
        const std::uint32_t length = told != 0 ? told : low32(image.size());
        EXPECT_EQ(status, addNewFile(tree.handle, "/any", path.c_str(), image.data(), length, check_size));
        EXPECT_EQ(expected, image);
        expected.resize(low16(length));
        EXPECT_TRUE(status != 0 || tree.image(path.substr(0, 48)) == expected);
        EXPECT_EQ(status == 0 ? 2U : 1U, tree.names().size());
        EXPECT_EQ(old, tree.image("/home/a"));
    }
    fcs tree;
    blob image = make_file_image(0x501);
    EXPECT_EQ((words{addNewFile(tree.handle, "", "/home/a", nullptr, 12, false),
                     addNewFile(tree.handle, "", "/home/a", nullptr, 11, false),
                     addNewFile(tree.handle, nullptr, nullptr, image.data(), 12, false),
                     addNewFile(tree.handle, nullptr, "/home/a", image.data(), 12, false)}),
              (words{fcs_status::null_pointer, fcs_status::bad_length, fcs_status::null_pointer, fcs_status::ok}));
}

// Each change that was made begins the walk again, a refused one doesn't.
TEST(walk_of_a_handle, restarts)
{
    const active_table table(files);
    fcs tree;
    for (const char* file : {"m", "p", "z"}) ASSERT_EQ(0U, tree.add(file, make_file_image(0x501)));
    char name[256] = "";
    const auto next = [&] { return getNextFile(tree.handle, name) == fcs_status::ok ? std::string(name) : "end"; };
    EXPECT_EQ("p", next());
    EXPECT_EQ(0U, tree.add("a", make_file_image(0x501)));
    EXPECT_EQ("m", next());
    EXPECT_EQ((words{tree.add("a", make_file_image(0x501)), deleteFile(tree.handle, "x")}),
              (words{fcs_status::name_taken, fcs_status::no_such_file}));
    EXPECT_EQ("p", next());
    EXPECT_EQ(fcs_status::ok, deleteFile(tree.handle, "p"));
    for (const char* expected : {"m", "z", "end", "end"}) EXPECT_EQ(expected, next());
    EXPECT_STREQ("z", name);
}

TEST(get_file, statuses_in_their_order_and_what_is_written)
{
    const active_table table(files);
    fcs tree;
    const blob image = make_file_image(0x502, payload(20), 0xFFFE), other = make_file_image(0x501, {3});
    ASSERT_EQ(0U, tree.add("/home/a", image) + tree.add("/home/a/", other)); // searched by name, not by number
    blob out(40, 0xEE);
    std::uint32_t length = 40;
    EXPECT_EQ((words{getFileData(tree.handle, "none", nullptr, &length),
                     getFileData(tree.handle, "none", out.data(), nullptr),
                     getFileData(tree.handle, "none", out.data(), &length),
                     getFileData(tree.handle, nullptr, out.data(), &length), length}),
              (words{fcs_status::null_pointer, fcs_status::null_pointer, fcs_status::no_such_file,
                     fcs_status::no_such_file, 40}));
    for (const std::uint32_t room : {0U, 31U, 32U, 40U}) {
        blob expected(40, 0xEE);
        if (room >= 32) std::copy(image.begin(), image.end(), expected.begin());
        length = room;
        EXPECT_EQ(room < 32 ? fcs_status::bad_length : fcs_status::ok,
                  getFileData(tree.handle, "/home/a", out.data(), &length));
        EXPECT_TRUE(length == 32 && out == expected) << room;
    }

    EXPECT_EQ(fcs_status::null_pointer, getFileAttributes(tree.handle, "none", nullptr));
    const std::tuple<const char*, std::uint32_t, const blob*> rows[] = {{"none", fcs_status::no_such_file, nullptr},
                                                                        {"/home/a", fcs_status::ok, &image},
                                                                        {"/home/a/", fcs_status::not_in_table, &other}};
    for (const auto& [name, status, record] : rows) {
        FcsFileEntry entry, expected;
        std::memset(static_cast<void*>(&entry), 0xEE, sizeof entry);
        std::memset(static_cast<void*>(&expected), 0xEE, sizeof expected);
        if (record != nullptr) store(&expected, yfs::load<_cfg_file_entry_t>(record->data()));
        if (status == fcs_status::ok) expected.attributes = 0x0143, expected.maxSize = 10;
        EXPECT_EQ(status, getFileAttributes(tree.handle, name, &entry));
        EXPECT_EQ(0, std::memcmp(&expected, &entry, sizeof entry)) << name;
    }
}

TEST(flush_table, golden_bytes_and_statuses_in_their_order)
{
    const active_table table(files);
    const char golden[] = "\2\0\0\0"
                          "\x01\5\0\0\x1C\0\0\0\3\0\1\0"
                          "\x02\5\0\0\x1F\0\0\0\0\0\0\0"
                          "abc";
    fcs empty, tree;
    EXPECT_EQ(blob(4), empty.table());
    ASSERT_EQ(0U, tree.add("/home/b", make_file_image(0x502, {}, 0)));
    ASSERT_EQ(0U, tree.add("/home/a", make_file_image(0x501, {'a', 'b', 'c'})));
    for (int times = 0; times < 2; ++times) EXPECT_EQ(blob(golden, golden + 31), tree.table());
    // The node's own record counts from the first payload.
    EXPECT_EQ(3U, yfs::load<_cfg_file_entry_t>(tree.image("/home/b").data()).offset);

    blob out(40, 0xEE), expected = out;
    EXPECT_EQ(fcs_status::null_pointer, flush(tree.handle, out.data(), nullptr));
    std::uint32_t length = 4;
    EXPECT_EQ(fcs_status::null_pointer, flush(empty.handle, nullptr, &length));
    for (const words& row : {words{0, 0, 5, 31}, words{0, 30, 5, 31}, words{0, 31, 1, 31}, words{0, 40, 1, 40},
                             words{1, 30, 5, 31}, words{1, 40, 0, 31}}) { // buffer, room, status, length
        EXPECT_EQ(expected, out);
        length = row[1];
        EXPECT_EQ(row[2], flush(tree.handle, row[0] != 0 ? out.data() : nullptr, &length));
        EXPECT_EQ(row[3], length) << row[1];
    }
    std::copy(golden, golden + 31, expected.begin());
    EXPECT_EQ(expected, out);
}

} // namespace yfs::test::cfgtable_handle
