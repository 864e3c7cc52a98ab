// The handle operations: each one's statuses in their order, and what stays as it was.
#include "tests/cfgtable/fixture.h"

#include <cstring>

namespace yfs::test {
namespace {

const std::string name_48 = "/home/" + std::string(42, 'n');

const std::vector<table_file> files = {
    {"/home/a", 0x501, 0x0143, 0, 1, 10},
    {"/home/b", 0x502, 0, 0, 1, 0xFFFFFFFF},
    {"/home/c", 0x503},
    {"/zero", 0, 0, 0, 1, 20},
    {name_48, 0x504},
};

TEST(handle, null_handle_comes_first)
{
    char out[256];
    std::uint32_t length = 0;
    EXPECT_EQ(fcs_status::null_handle, addNewFile(nullptr, "", "a", nullptr, 11, false));
    EXPECT_EQ(fcs_status::null_handle, deleteFile(nullptr, ""));
    EXPECT_EQ(fcs_status::null_handle, getFileData(nullptr, "a", nullptr, nullptr));
    EXPECT_EQ(fcs_status::null_handle, getFileAttributes(nullptr, "a", nullptr));
    EXPECT_EQ(fcs_status::null_handle, getFirstFileInRoot(nullptr, out));
    EXPECT_EQ(fcs_status::null_handle, getNextFile(nullptr, out));
    EXPECT_EQ(fcs_status::null_handle, flush(nullptr, nullptr, nullptr));
    EXPECT_EQ(fcs_status::null_handle, flush(nullptr, nullptr, &length));
}

TEST(add_new_file, statuses_in_their_order)
{
    const active_table table(files);
    struct {
        const char* name;
        std::string file;
        std::uint32_t fileno;
        std::size_t payload;
        std::uint32_t length; // 0: that of the image
        bool check_size;
        std::uint32_t status;
        std::uint32_t fileno_after;
    } const cases[] = {
        {"new", "/home/b", 0x502, 3, 0, false, 0, 0x502},
        {"any name with a known number", "anything", 0x502, 0, 0, false, 0, 0x502},
        {"length 11", "/home/b", 0, 0, 11, true, 5, 0},
        {"length 0", "/home/b", 0, 0, 0x10000, true, 5, 0},
        {"length 65,547: 11", "/home/b", 0, 0, 0x1000B, true, 5, 0},
        {"length 65,548: 12", "/home/b", 0x502, 0, 0x1000C, true, 0, 0x502},
        {"number by name", "/home/b", 0, 0, 0, false, 0, 0x502},
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
        {"taken, number by name all the same", "/home/a", 0, 1, 0, true, 11, 0x501},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        fcs tree;
        const blob old = make_file_image(0x501, {9, 9});
        ASSERT_EQ(0U, tree.add("/home/a", old));

        blob image = make_file_image(row.fileno, payload(row.payload), 0xFFFE);
        blob expected = make_file_image(row.fileno_after, payload(row.payload), 0xFFFE);
        const std::uint32_t length = row.length != 0 ? row.length : low32(image.size());
        EXPECT_EQ(row.status, addNewFile(tree.handle, "/any", row.file.c_str(), image.data(), length, row.check_size));
        EXPECT_EQ(expected, image);
        expected.resize(low16(length));
        if (row.status == 0) {
            EXPECT_EQ(expected, tree.image(row.file.substr(0, 48)));
        }
        EXPECT_EQ(row.status == 0 ? 2U : 1U, tree.names().size());
        EXPECT_EQ(old, tree.image("/home/a"));
    }
    fcs tree;
    EXPECT_EQ(fcs_status::null_pointer, addNewFile(tree.handle, "", "/home/a", nullptr, 12, false));
    EXPECT_EQ(fcs_status::bad_length, addNewFile(tree.handle, "", "/home/a", nullptr, 11, false));
    blob image = make_file_image(0x501);
    EXPECT_EQ(fcs_status::null_pointer, addNewFile(tree.handle, nullptr, nullptr, image.data(), 12, false));
    EXPECT_EQ(fcs_status::ok, addNewFile(tree.handle, nullptr, "/home/a", image.data(), 12, false));
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
    EXPECT_EQ(fcs_status::name_taken, tree.add("a", make_file_image(0x501)));
    EXPECT_EQ(fcs_status::no_such_file, deleteFile(tree.handle, "x"));
    EXPECT_EQ("p", next());
    EXPECT_EQ(fcs_status::ok, deleteFile(tree.handle, "p"));
    for (const char* expected : {"m", "z", "end", "end"}) EXPECT_EQ(expected, next());
    EXPECT_STREQ("z", name);
}

TEST(get_file_data, statuses_in_their_order)
{
    const active_table table(files);
    fcs tree;
    const blob image = make_file_image(0x501, payload(20));
    ASSERT_EQ(0U, tree.add("a", image));
    blob out(40, 0xEE);
    std::uint32_t length = 40;
    EXPECT_EQ(fcs_status::null_pointer, getFileData(tree.handle, "none", nullptr, &length));
    EXPECT_EQ(fcs_status::null_pointer, getFileData(tree.handle, "none", out.data(), nullptr));
    EXPECT_EQ(fcs_status::no_such_file, getFileData(tree.handle, "none", out.data(), &length));
    EXPECT_EQ(fcs_status::no_such_file, getFileData(tree.handle, nullptr, out.data(), &length));
    EXPECT_EQ(40U, length);
    for (const std::uint32_t room : {0U, 31U, 32U, 40U}) {
        blob expected(40, 0xEE);
        if (room >= 32) std::copy(image.begin(), image.end(), expected.begin());
        length = room;
        EXPECT_EQ(room < 32 ? fcs_status::bad_length : fcs_status::ok,
                  getFileData(tree.handle, "a", out.data(), &length));
        EXPECT_EQ(32U, length);
        EXPECT_EQ(expected, out) << room;
    }
}

TEST(get_file_attributes, statuses_and_the_three_fields)
{
    const active_table table(files);
    fcs tree;
    ASSERT_EQ(0U, tree.add("/home/a", make_file_image(0x502, {1, 2}, 0xFFFE))); // searched by name, not by number
    ASSERT_EQ(0U, tree.add("/home/a/", make_file_image(0x501, {3})));
    FcsFileEntry untouched;
    std::memset(static_cast<void*>(&untouched), 0xEE, sizeof untouched);

    FcsFileEntry out = untouched, expected = untouched;
    EXPECT_EQ(fcs_status::null_pointer, getFileAttributes(tree.handle, "none", nullptr));
    EXPECT_EQ(fcs_status::no_such_file, getFileAttributes(tree.handle, "none", &out));
    EXPECT_EQ(0, std::memcmp(&expected, &out, sizeof out));

    EXPECT_EQ(fcs_status::ok, getFileAttributes(tree.handle, "/home/a", &out));
    store(&expected, load<_cfg_file_entry_t>(make_file_image(0x502, {1, 2}, 0xFFFE).data()));
    expected.attributes = 0x0143;
    expected.maxSize = 10;
    EXPECT_EQ(0, std::memcmp(&expected, &out, sizeof out));

    out = expected = untouched;
    EXPECT_EQ(fcs_status::not_in_table, getFileAttributes(tree.handle, "/home/a/", &out));
    store(&expected, load<_cfg_file_entry_t>(make_file_image(0x501, {3}).data()));
    EXPECT_EQ(0, std::memcmp(&expected, &out, sizeof out));
}

const char one_file[] = "\1\0\0\0"
                        "\x01\5\0\0\x10\0\0\0\3\0\1\0"
                        "abc";
const char two_files[] = "\2\0\0\0"
                         "\x01\5\0\0\x1C\0\0\0\3\0\1\0"
                         "\x02\5\0\0\x1F\0\0\0\0\0\0\0"
                         "abc";

TEST(flush_table, golden_bytes)
{
    const active_table table(files);
    const blob a = make_file_image(0x501, {'a', 'b', 'c'}), b = make_file_image(0x502, {}, 0);
    const auto bytes = [](const char* text, std::size_t size) { return blob(text, text + size); };
    fcs empty, one, forth, back;
    ASSERT_EQ(0U, one.add("/home/a", a));
    ASSERT_EQ(0U, forth.add("/home/a", a));
    ASSERT_EQ(0U, forth.add("/home/b", b));
    ASSERT_EQ(0U, back.add("/home/b", b));
    ASSERT_EQ(0U, back.add("/home/a", a));
    EXPECT_EQ(blob(4), empty.table());
    EXPECT_EQ(bytes(one_file, 19), one.table());
    EXPECT_EQ(bytes(two_files, 31), forth.table());
    EXPECT_EQ(bytes(two_files, 31), back.table());
    EXPECT_EQ(bytes(two_files, 31), back.table()); // and again

    // The node's own record counts from the first payload.
    EXPECT_EQ(3U, load<_cfg_file_entry_t>(back.image("/home/b").data()).offset);
}

TEST(flush_table, statuses_in_their_order)
{
    const active_table table(files);
    fcs tree;
    ASSERT_EQ(0U, tree.add("/home/a", make_file_image(0x501, {'a', 'b', 'c'})));
    blob out(30, 0xEE);
    struct {
        bool buffer;
        std::uint32_t room, status, length;
    } const cases[] = {
        {false, 0, 5, 19},  {false, 18, 5, 19}, {false, 19, 1, 19},
        {false, 30, 1, 30}, {true, 18, 5, 19},  {true, 30, 0, 19},
    };
    EXPECT_EQ(fcs_status::null_pointer, flush(tree.handle, out.data(), nullptr));
    for (const auto& row : cases) {
        EXPECT_EQ(blob(30, 0xEE), out);
        std::uint32_t length = row.room;
        EXPECT_EQ(row.status, flush(tree.handle, row.buffer ? out.data() : nullptr, &length));
        EXPECT_EQ(row.length, length) << row.room;
    }
    EXPECT_EQ(0, std::memcmp(one_file, out.data(), 19));
    EXPECT_EQ(0xEE, out[19]);
    fcs empty;
    std::uint32_t length = 4;
    EXPECT_EQ(fcs_status::null_pointer, flush(empty.handle, nullptr, &length));
}

// With "/" behind the names the records come in another order.
TEST(flush_table, order_with_and_without_a_slash)
{
    const active_table table({{"ab", 1}, {"ab-c", 2}});
    for (const bool slash : {false, true}) {
        fcs tree;
        const std::string end = slash ? "/" : "";
        ASSERT_EQ(0U, tree.add("ab" + end, make_file_image(1, {1})));
        ASSERT_EQ(0U, tree.add("ab-c" + end, make_file_image(2, {2})));
        const cfg_file first{1, {1}}, second{2, {2}};
        EXPECT_EQ(slash ? make_cfg_table({second, first}) : make_cfg_table({first, second}), tree.table());
    }
}

} // namespace
} // namespace yfs::test
