// Reading tables: what is accepted, what is refused, what is dropped.
#include "tests/cfgtable/fixture.h"

#include <algorithm>

namespace yfs::test::cfgtable_load {

const std::string name_48 = "/home/" + std::string(42, 'n');

const std::vector<table_file> files = {
    {"/b", 0x501}, {"/a", 0x502, 0, 0, 1, 1}, {"/a", 0x503}, {name_48, 0x504}, {"", 0x505}, {"/zero", 0},
};

// The table with its last `bytes` bytes taken off.
blob cut(blob table, std::size_t bytes)
{
    table.resize(table.size() - bytes);
    return table;
}

TEST(load_table, accepts_and_refuses)
{
    const active_table table(files);
    const auto count = [](std::uint32_t records, std::size_t more) {
        blob bytes(4 + more);
        store(bytes.data(), le32(records));
        return bytes;
    };
    const cfg_file empty_b = {0x501, {}, 0};
    using row = std::tuple<const char*, blob, std::optional<std::vector<std::string>>>; // the names; none: refused
    const row cases[] = {
        {"no bytes", {}, {}},
        {"3 bytes", blob(3), {}},
        {"no records, bytes behind", count(0, 100), {{}}},
        {"the same less a byte", cut(make_cfg_table({empty_b}), 1), {}},
        {"count past 32 bits of bytes", count(0x15555556, 12), {}}, // 12 * count is 8 in 32 bits
        {"largest count", count(0xFFFFFFFF, 12), {}},
        {"one byte further", cut(make_cfg_table({{0x501, {1, 2, 3}}}), 1), {}},
        {"offset near 32 bits", make_cfg_table({{0x501, {}, 1, 0xFFFFFFFF, low16(5)}}), {}},
        {"offset far out without payload", make_cfg_table({{0x501, {}, 1, 0xFFFFFFFF}}), {{"/b"}}},
        {"payload inside the records", make_cfg_table({{0x501, {}, 1, 0, low16(16)}}), {{"/b"}}},
        {"one number twice", make_cfg_table({{0x501}, {0x501}}), {}},
        {"two numbers of one name", make_cfg_table({{0x502}, {0x503}}), {}},
        {"unknown number dropped", make_cfg_table({{0x999, {1}}, {0x501, {2}}, {0x999}}), {{"/b"}}},
        {"unknown number, but its payload counts", cut(make_cfg_table({{0x501}, {0x999, {1}}}), 1), {}},
        {"number 0, found again by name", make_cfg_table({{0, {1}}}), {{"/zero"}}},
        {"name of 48 characters", make_cfg_table({{0x504}}), {{name_48}}},
        {"maxSize isn't asked", make_cfg_table({{0x502, {1, 2}}}), {{"/a"}}},
        {"65,523 bytes", make_cfg_table({{0x501, payload(65523)}}), {{"/b"}}},
        {"65,524 bytes", make_cfg_table({{0x501, payload(65524)}}), {}},
        {"65,524 bytes under an unknown number", make_cfg_table({{0x999, payload(65524)}, {0x501}}), {{"/b"}}},
        {"65,535 bytes", make_cfg_table({{0x501, payload(65535)}}), {}},
    };
    for (const auto& [name, table_bytes, names] : cases) {
        SCOPED_TRACE(name);
        const auto size = low32(table_bytes.size());
        const std::unique_ptr<std::uint8_t[]> bytes(new std::uint8_t[size]); // exactly as long, for the sanitizers
        std::ranges::copy(table_bytes, bytes.get());
        fcs tree, made(bytes.get(), size);
        EXPECT_EQ(names ? fcs_status::ok : fcs_status::refused, made.status);
        EXPECT_EQ(names.has_value(), made.handle != nullptr);
        EXPECT_EQ(names.has_value(), loadDataFromFcsBuffer(tree.handle, bytes.get(), size));
        EXPECT_TRUE(!names || (tree.names() == *names && made.names() == *names));
    }
}

// The order of the records says which one is bad, although the files go in by name.
TEST(load_table, keeps_what_comes_before_the_first_bad_record)
{
    const active_table table({{"/d", 1}, {"/c", 2}, {"/b", 3}, {"/a", 4}, {"/a", 5}, {"/c", 6}});
    using row = std::pair<std::vector<cfg_file>, std::vector<std::string>>;
    for (const auto& [records, names] :
         {row{{{1}, {4}, {3}, {5}, {2}}, {"/a", "/b", "/d"}}, row{{{2}, {4}, {6}, {1}, {5}}, {"/a", "/c"}},
          row{{{4}, {2}, {5}, {6}}, {"/a", "/c"}}, row{{{4}, {4}, {5}, {1}}, {"/a"}},
          row{{{1}, {4, payload(65524)}, {2}}, {"/d"}}, row{{{1, {}, 1, 0xFFFFFFFF, low16(1)}, {4}, {4}}, {}}}) {
        fcs tree;
        const blob bytes = make_cfg_table(records);
        EXPECT_FALSE(loadDataFromFcsBuffer(tree.handle, bytes.data(), low32(bytes.size())));
        EXPECT_EQ(names, tree.names());
    }
}

// Gaps, overlaps, shared payloads and bytes behind the last one are read; what is written is sorted and packed.
TEST(load_table, writes_back_in_order_and_packed)
{
    const active_table table({{"/c", 1}, {"/b", 2}, {"/a", 3}, {"/0", 4}});
    blob bytes =
        make_cfg_table({{1, {}, 0xFFFE, 60, low16(4)}, {2, {}, 1, 60, low16(4)}, {3, {}, 0x8000, 62, low16(5)}, {4}});
    bytes.resize(80);
    for (std::size_t i = 52; i < 80; ++i) bytes[i] = low8(i);
    const fcs tree(bytes);
    ASSERT_EQ(fcs_status::ok, tree.status);
    EXPECT_EQ(
        make_cfg_table({{4}, {3, {62, 63, 64, 65, 66}, 0x8000}, {2, {60, 61, 62, 63}}, {1, {60, 61, 62, 63}, 0xFFFE}}),
        tree.table());
    // Until then the node's record is as it was read.
    const fcs again(bytes);
    EXPECT_EQ(62U, load<_cfg_file_entry_t>(again.image("/a").data()).offset);
}

} // namespace yfs::test::cfgtable_load
