// The end of a run: the current values become a new zonc.cfg and, where the VFS is deployed, go into the volumes. The
// volumes know no undo: a value written stays written, whatever fails after it, so the table is built before.
#include "facade/facade_internal.h"
#include "facade/name_index.h"

#include "yfs/dfs.h"

namespace yfs::facade {

static bool build_table()
{
    yeYfsFreeFcsTable(s_builtZonCfgTable);
    s_builtZonCfgTable = {};
    s_builtZonCfgTable.name = FCS_ZON_CFG;
    if (!open_empty_tree(s_builtZonCfgTable)) return false;
    for (const FcsFileEntry* entry = s_currentValuesTable.head; entry != nullptr; entry = entry->next) {
        if (!carried(*entry)) continue;
        owned_entry value(copyFileEntry(entry));
        if (value == nullptr || !yeYfsAddNewFileFcs(s_builtZonCfgTable, value.get(), true)) return false;
        value.release(); // NOLINT(bugprone-unused-return-value): the table's
    }
    return true;
}

// Writes one value into its volume. False, and reported.
static bool write_back(const FcsFileEntry& entry)
{
    if (entry.data == nullptr && entry.size != 0) {
        report(yfs_error_data_pointer);
        return false;
    }
    std::uint32_t number = 0;
    std::uint32_t status = pathToFileNumber(entry.name, &number);
    if (status != 0 || number == 0) {
        setLibError(yfs_error_write_file, status);
        return false;
    }
    std::uint32_t present = 0;
    if (dfs_getsize(number, &present) != afs_status::ok) {
        setLibError(yfs_error_get_file_size, afs_status::ok);
        return false;
    }
    if (entry.size == 0 && present == 0) return true;
    // COMMIT: each write replaces one file whole, or leaves it; a shorter value ends the file behind itself.
    const std::uint32_t ends_there = entry.size < present ? 1 : 0;
    status = dfs_write(number, 0, entry.size, entry.data, ends_there);
    if (status != afs_status::ok) setLibError(yfs_error_write_file, status);
    return status == afs_status::ok;
}

static bool write_values_back()
{
    if (!vfs_deployed()) return true;
    for (const FcsFileEntry* entry = s_builtZonCfgTable.head; entry != nullptr; entry = entry->next) {
        if (reachable(*entry) && !has_tail(*entry) && !write_back(*entry)) return false;
    }
    return true;
}

static bool abort_run()
{
    release_tables();
    shut_down_dfs();
    report(yfs_error_create_zon_cfg);
    return false;
}

// The built table takes the place of zonc.cfg, as a list and a serialised form without a tree.
static bool adopt_built_table()
{
    yeYfsFreeFcsTable(s_currentValuesTable);
    yeYfsFreeFcsTable(s_zonCfgTable);
    s_zonCfgTable = s_builtZonCfgTable;
    s_zonCfgTable.handle = nullptr;
    s_builtZonCfgTable.buffer = nullptr;
    s_builtZonCfgTable.head = nullptr;
    s_builtZonCfgTable.count = 0;
    yeYfsFreeFcsTable(s_builtZonCfgTable); // what it still has: the tree, and the index of names that moved
    if (yeYfsGenerateFcsCurrentsTable(s_velorCfgTable, s_zonCfgTable, s_currentValuesTable)) return true;
    report(yfs_error_create_current_values);
    return false;
}

static bool end_run()
{
    if (!shut_down_dfs()) return false;
    release_tables();
    return true;
}

} // namespace yfs::facade

using namespace yfs::facade;

std::uint8_t yeYfsNvarTerm(std::uint8_t keepTables)
{
    return serve([&] {
        if (s_fcsInitialized == 0) {
            report(yfs_error_fcs_not_initialized);
            return false;
        }
        const bool rebuilt = in_memory(
            [] { return build_table() && write_values_back() && yeYfsSerializeFcsTable(s_builtZonCfgTable); });
        if (!rebuilt) return abort_run();
        return keepTables != 0 ? adopt_built_table() : end_run();
    });
}
