// Tables in their two forms: loading, adding, copying, merging, serialising.
#include "facade/facade_internal.h"
#include "facade/name_index.h"
#include "tests/facade/host.h"

#include <cstdlib>
#include <cstring>

namespace yfs::test {
namespace {

using namespace facade;

// Tables of its own over an active file table of /home/f0 (fileno 0x500) to /home/f9, the limit of file n being 10 * n.
class TableSet : public testing::Test {
protected:
    void SetUp() override
    {
        ZonErrors::init();
        s_yZonStatusCallback = record;
        std::vector<table_file> files;
        for (std::uint32_t n = 0; n < 10; ++n)
            files.push_back({.name = name(n), .fileno = 0x500 + n, .attributes = low16(0x100 + n), .max_size = 10 * n});
        files.push_back({.name = "/home/ab", .fileno = 0x5AB});
        files.push_back({.name = "/home/ab-c", .fileno = 0x5AC});
        ftbl_ = make_file_table({{1, files}});
        ASSERT_EQ(load_file_table(ftbl_.data(), 1, static_cast<std::uint32_t>(ftbl_.size())), 0U);
        take_reports();
    }
    void TearDown() override
    {
        for (FcsTable* table : {&table_, &other_, &current_}) yeYfsFreeFcsTable(*table);
        EXPECT_EQ(take_reports(), reports{});
        g_table_buf = nullptr;
        g_table_num_files = 0;
    }

    static std::string name(std::uint32_t n) { return "/home/f" + std::to_string(n); }

    static bool load(FcsTable& table, const blob& bytes)
    {
        table.size = static_cast<std::uint32_t>(bytes.size());
        table.buffer = std::malloc(bytes.size());
        std::memcpy(table.buffer, bytes.data(), bytes.size());
        return yeYfsLoadFcsTableFiles(table, true);
    }

    static owned_entry entry(const std::string& path, std::uint32_t fileno, const blob& data,
                             std::uint8_t available = 1)
    {
        owned_entry made(static_cast<FcsFileEntry*>(std::calloc(1, sizeof(FcsFileEntry))));
        made->entry = {fileno, 0, low16(data.size()), available};
        made->available = available;
        std::memcpy(made->name, path.c_str(), path.size());
        made->size = static_cast<std::uint32_t>(data.size());
        if (!data.empty()) {
            made->data = std::malloc(data.size());
            std::memcpy(made->data, data.data(), data.size());
        }
        return made;
    }

    static void add(FcsTable& table, owned_entry made)
    {
        ASSERT_TRUE(yeYfsAddNewFileFcs(table, made.get(), false));
        made.release(); // NOLINT(bugprone-unused-return-value)
    }

    // "name=bytes" of every entry in list order; "name!size" where there is no data.
    static std::vector<std::string> list(const FcsTable& table)
    {
        std::vector<std::string> out;
        const FcsFileEntry* before = nullptr;
        for (const FcsFileEntry* e = table.head; e != nullptr; before = e, e = e->next) {
            EXPECT_EQ(e->prev, before);
            EXPECT_EQ(e->linked, 1);
            EXPECT_EQ(e->next == nullptr, e == table.tail);
            std::string line = e->name;
            if (e->data == nullptr) {
                line.append("!").append(std::to_string(e->size));
            } else {
                line.append("=").append(static_cast<const char*>(e->data), e->size);
            }
            out.push_back(line);
        }
        EXPECT_EQ(out.size(), table.count);
        return out;
    }

    blob ftbl_;
    FcsTable table_{}, other_{}, current_{};
};

using names = std::vector<std::string>;

TEST_F(TableSet, LoadListsTheFilesInOrderOfTheTree)
{
    ASSERT_TRUE(load(table_, make_cfg_table({{0x503, {'c', 'd'}},
                                             {0x501, {}},
                                             {0x502, {'x', 'y', 'z'}, 0xFFFE}, // not available
                                             {0x777, {'?'}},                   // not in the file table
                                             {0x500, {'a'}, 0x8001}})));
    EXPECT_EQ(list(table_), (names{"/home/f0=a", "/home/f1!0", "/home/f2!3", "/home/f3=cd"}));
    const FcsFileEntry* const first = table_.head;
    EXPECT_EQ(first->attributes, 0x100);
    EXPECT_EQ(first->entry.flags, 0x8001);
    EXPECT_EQ(first->available, 1);
    EXPECT_EQ(first->next->next->available, 0);
    EXPECT_EQ(first->next->next->maxSize, 20U);

    yeYfsFreeFcsTable(table_);
    yeYfsFreeFcsTable(table_);
    EXPECT_EQ(table_.head, nullptr);
    EXPECT_EQ(table_.buffer, nullptr);
    ASSERT_TRUE(load(table_, make_cfg_table({})));
    EXPECT_EQ(list(table_), names{});
}

TEST_F(TableSet, LoadRefusesDamagedTables)
{
    struct row {
        const char* name;
        blob table;
    };
    blob cut = make_cfg_table({{0x501, {1, 2, 3}}});
    cut.pop_back();
    const row rows[] = {{"payload runs out", cut},
                        {"no room for a count", blob(3)},
                        {"one file twice", make_cfg_table({{0x501, {}}, {0x501, {}}})},
                        {"payload above the limit", make_cfg_table({{0x501, blob(65524)}})}};
    for (const row& bad : rows) {
        EXPECT_FALSE(load(table_, bad.table)) << bad.name;
        EXPECT_EQ(take_reports(), (reports{says_status(328, 10)})) << bad.name;
        EXPECT_EQ(table_.handle, nullptr) << bad.name;
        yeYfsFreeFcsTable(table_);
    }
}

TEST_F(TableSet, AddRefusesWhatATableCannotTake)
{
    ASSERT_TRUE(open_empty_tree(table_));
    add(table_, entry(name(1), 0x501, {'a'}));
    struct row {
        const char* name;
        FcsTable* table;
        owned_entry entry;
        bool check_size;
        reported report;
    };
    row rows[] = {
        {"no handle", &other_, entry(name(2), 0x502, {}), false, says(0, "Invalid FCS handle or fileEntry pointer")},
        {"no entry", &table_, nullptr, false, says(0, "Invalid FCS handle or fileEntry pointer")},
        {"name is there", &table_, entry(name(1), 0x502, {}), false, says(326)},
        {"above maxSize", &table_, entry(name(2), 0x502, blob(21, 'x')), true, says_status(331, 12)},
        {"above 16 bits", &table_, entry(name(2), 0x502, blob(65524, 'x')), false, says_status(331, 5)},
        {"above 16 bits, fits when cut", &table_, entry(name(2), 0x502, blob(65536, 'x')), true, says_status(331, 5)},
        {"unknown number", &table_, entry(name(2), 0x777, {}), false, says_status(331, 8)},
        {"number to be found by a name that isn't", &table_, entry("/home/x", 0, {}), false, says_status(331, 2)},
    };
    for (row& bad : rows) {
        EXPECT_FALSE(yeYfsAddNewFileFcs(*bad.table, bad.entry.get(), bad.check_size)) << bad.name;
        EXPECT_EQ(take_reports(), reports{bad.report}) << bad.name;
        EXPECT_TRUE(bad.entry == nullptr || bad.entry->linked == 0) << bad.name;
    }
    EXPECT_FALSE(yeYfsAddNewFileFcs(table_, table_.head, false));
    EXPECT_EQ(take_reports(), reports{says(327)});
    EXPECT_EQ(list(table_), names{"/home/f1=a"});

    add(table_, entry(name(3), 0x503, blob(65523, 'x')));
    add(table_, entry(name(2), 0x502, blob(20, 'x')));
    ASSERT_TRUE(yeYfsSerializeFcsTable(table_));
    EXPECT_EQ(table_.size, 4U + 3 * 12 + 1 + 65523 + 20);
}

TEST_F(TableSet, ListKeepsTheOrderOfAddingAndTheTreeSortsWithASlashBehind)
{
    ASSERT_TRUE(open_empty_tree(table_));
    add(table_, entry("/home/ab", 0x5AB, {'1'}));
    add(table_, entry(name(0), 0x500, {}, 0));
    add(table_, entry("/home/ab-c", 0x5AC, {'2'}));
    EXPECT_EQ(list(table_), (names{"/home/ab=1", "/home/f0!0", "/home/ab-c=2"}));
    ASSERT_TRUE(yeYfsSerializeFcsTable(table_));
    const auto* const bytes = static_cast<const std::uint8_t*>(table_.buffer);
    EXPECT_EQ(read_packed_table(blob(bytes, bytes + table_.size)),
              (std::vector<cfg_file>{{0x5AC, {'2'}}, {0x5AB, {'1'}}, {0x500, {}, 0}}));
}

TEST_F(TableSet, NamesAreFoundWhileTheListGrowsAndAfterItMoved)
{
    ASSERT_TRUE(open_empty_tree(table_));
    EXPECT_EQ(find_by_name(table_, "/home/f0"), nullptr);
    for (std::uint32_t n = 0; n < 10; ++n) {
        add(table_, entry(name(n), 0x500 + n, {}));
        EXPECT_EQ(find_by_name(table_, name(n).c_str()), table_.tail);
        EXPECT_EQ(find_by_name(table_, name(0).c_str()), table_.head);
        EXPECT_EQ(find_by_name(table_, name(n + 1).c_str()), nullptr);
    }
    // The record moves as it does when a rebuilt table is adopted.
    other_ = table_;
    table_ = {};
    EXPECT_EQ(find_by_name(table_, name(0).c_str()), nullptr);
    ASSERT_TRUE(open_empty_tree(table_));
    add(table_, entry("/home/ab", 0x5AB, {}));
    EXPECT_EQ(find_by_name(table_, name(0).c_str()), nullptr) << "another list begins";
    // Names are compared over 255 characters, and of two equal ones the first in the list counts.
    for (FcsFileEntry* e : {other_.tail->prev, other_.tail}) std::memset(e->name, 'x', sizeof e->name);
    EXPECT_EQ(find_by_name(other_, std::string(255, 'x').c_str()), other_.tail->prev);
    EXPECT_EQ(find_by_name(other_, std::string(300, 'x').c_str()), other_.tail->prev);
    EXPECT_EQ(find_by_name(other_, std::string(254, 'x').c_str()), nullptr);
}

TEST_F(TableSet, CopiesAreDeepAndFree)
{
    EXPECT_EQ(copyFileEntry(nullptr), nullptr);
    ASSERT_TRUE(load(table_, make_cfg_table({{0x500, {'a', 'b'}}, {0x501, {'c'}, 0}})));
    const owned_entry full(copyFileEntry(table_.head)), bare(copyFileEntry(table_.tail));
    EXPECT_NE(full->data, static_cast<void*>(table_.head->data));
    EXPECT_EQ(std::memcmp(full->data, "ab", 2), 0);
    EXPECT_EQ(bare->data, nullptr);
    EXPECT_EQ(bare->size, 1U);
    for (const auto* copy : {full.get(), bare.get()}) {
        EXPECT_EQ(copy->linked, 0);
        EXPECT_EQ(copy->prev, nullptr);
        EXPECT_EQ(copy->next, nullptr);
    }
    yeYfsFreeFileEntry(nullptr);
}

TEST_F(TableSet, CurrentValuesAreTheDefaultsWithTheOverridesInTheirPlaces)
{
    ASSERT_TRUE(load(table_, make_cfg_table({{0x500, {'d'}},        // no override
                                             {0x501, {'d'}},        // overridden
                                             {0x502, {'d'}, 0},     // not available: out, whatever overrides it
                                             {0x503, {'d'}},        // overridden by one that is not available
                                             {0x504, {'d'}},        // overridden by an empty value
                                             {0x506, {'d'}, 0}}))); // removed
    ASSERT_TRUE(load(other_, make_cfg_table({{0x501, {'o', 'o'}},
                                             {0x502, {'o'}},
                                             {0x503, {'o'}, 0},
                                             {0x504, {}},
                                             {0x505, {'o'}}}))); // no default: dropped
    table_.tail->removed = 1;
    ASSERT_TRUE(yeYfsGenerateFcsCurrentsTable(table_, other_, current_));
    EXPECT_EQ(list(current_), (names{"/home/f0=d", "/home/f1=oo", "/home/f3!1", "/home/f4!0", "/home/f6!1"}));
    EXPECT_EQ(current_.name, FCS_CURRENT_VALUES);
    EXPECT_EQ(current_.tail->removed, 1);
    EXPECT_NE(current_.head->data, static_cast<void*>(table_.head->data));

    // A size without data goes into the tree as zeros, never as what the heap held.
    ASSERT_TRUE(yeYfsSerializeFcsTable(current_));
    const auto* const bytes = static_cast<const std::uint8_t*>(current_.buffer);
    EXPECT_EQ(
        read_packed_table(blob(bytes, bytes + current_.size)),
        (std::vector<cfg_file>{{0x500, {'d'}}, {0x501, {'o', 'o'}}, {0x503, {0}, 0}, {0x504, {}}, {0x506, {0}, 0}}));
}

TEST_F(TableSet, IndexesMapToTables)
{
    EXPECT_EQ(yeYfsGetFcsFileNameMapping(0), 0x10000006U);
    EXPECT_EQ(yeYfsGetFcsFileNameMapping(1), 0x10000007U);
    EXPECT_EQ(yeYfsGetFcsFileNameMapping(2), 0x10000008U);
    EXPECT_EQ(take_reports(), reports{});
    for (const std::uint32_t index : {3U, 0xFFFFFFFFU}) {
        EXPECT_EQ(yeYfsGetFcsFileNameMapping(index), 0x10000008U);
        EXPECT_EQ(take_reports(), reports{says(0, "Invalid fcsFileNameMap value")});
    }
}

} // namespace
} // namespace yfs::test
