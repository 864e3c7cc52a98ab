// The active file table: loading it, and the lookups by name and by number. The first entry in its order that matches
// is the answer, whatever way it was found.
#include "vfs/ftbl_layout.h"
#include "vfs/vfs_internal.h"
#include "yfs/efs.h"
#include "yfs/status.h"

#include <algorithm>

const ftbl_file_entry_t* g_table_buf = nullptr;
std::int32_t g_table_num_files = 0;
std::uint32_t g_dfs_sku = 0xFFFFFFFF;

namespace yfs::vfs {

namespace {

// The last table that was loaded, and how many entries lie wholly inside its buffer. Says nothing about a table that a
// program set itself.
table_view s_loaded;

// Made at the first lookup in a loaded table; a table that a program set is walked. The buffer is the program's, which
// can write to it: a hit is held against the entry, and a miss is confirmed by a walk.
fileno_index s_by_fileno;
name_index s_by_name;

template <typename Index, typename Key, typename Matches>
const ftbl_file_entry_t* find(Index& index, Key key, Matches matches)
{
    const table_view table = active_table();
    const bool loaded = table.first && table.first == s_loaded.first;
    if (loaded && (index.covers(table) || index.make(table))) {
        const ftbl_file_entry_t* hit = index.find(key);
        if (hit && matches(*hit)) return hit;
    }
    const ftbl_file_entry_t* hit = std::find_if(table.begin(), table.end(), matches);
    return hit != table.end() ? hit : nullptr;
}

// The first row of `sku`. Reads no more than the smallest table holds.
bool find_sku(const std::uint8_t* table, std::uint32_t sku, ftbl_sku_entry_t& row)
{
    const std::uint32_t rows = load<ftbl_header_t>(table).sku_count;
    for (std::uint32_t i = 0; i < rows; ++i) {
        row = load<ftbl_sku_entry_t>(table + sku_row_at(i));
        if (row.sku == sku) return true;
    }
    return false;
}

bool is_file_table(const std::uint8_t* table, std::uint32_t length)
{
    if (!table || length < min_table_bytes) return false;
    const auto header = load<ftbl_header_t>(table);
    return header.magic == ftbl_magic && header.sku_count <= max_skus;
}

void activate(const std::uint8_t* entries, std::uint32_t bytes, const ftbl_sku_entry_t& row)
{
    g_dfs_sku = row.sku;
    g_table_buf = static_cast<const ftbl_file_entry_t*>(static_cast<const void*>(entries));
    g_table_num_files = static_cast<std::int32_t>(std::uint32_t{row.num_files});

    s_loaded = {g_table_buf, low32(bytes / sizeof(ftbl_file_entry_t))};
    s_by_fileno = {}; // the buffer may stand where an earlier one stood
    s_by_name = {};
}

} // namespace

table_view active_table()
{
    if (!g_table_buf || g_table_num_files < 1) return {};
    const auto count = static_cast<std::uint32_t>(g_table_num_files);
    return {g_table_buf, g_table_buf == s_loaded.first ? std::min(count, s_loaded.count) : count};
}

const ftbl_file_entry_t* find_by_fileno(fileno_t fileno)
{
    return find(s_by_fileno, fileno, [fileno](const ftbl_file_entry_t& entry) { return entry.fileno == fileno; });
}

const ftbl_file_entry_t* find_by_name(const char* name)
{
    if (!name) return nullptr;
    const std::string_view wanted = table_name(name);
    return find(s_by_name, wanted,
                [wanted](const ftbl_file_entry_t& entry) { return is_table_name(entry.name, wanted); });
}

const ftbl_file_entry_t* lookup_run::find_by_fileno(fileno_t fileno) const
{
    return indexed_ ? index_.find(fileno) : vfs::find_by_fileno(fileno);
}

} // namespace yfs::vfs

using namespace yfs; // the exported names below are global

std::uint32_t load_file_table(const void* buffer, std::uint32_t sku, std::uint32_t length)
{
    const auto* table = static_cast<const std::uint8_t*>(buffer);
    if (!vfs::is_file_table(table, length)) return 1;

    ftbl_sku_entry_t row{};
    if (vfs::find_sku(table, sku, row)) {
        if (row.table_offset > length) return 1;
        vfs::activate(table + row.table_offset, length - row.table_offset, row);
    }
    return load_autogen_data(table, sku, length) == efs_status::ok ? 0 : 1;
}

const ftbl_file_entry_t* get_file_entry_by_file_name(const char* name)
{
    return vfs::find_by_name(name);
}

const ftbl_file_entry_t* get_file_entry_by_fileno(const fileno_t* fileno)
{
    return fileno ? vfs::find_by_fileno(*fileno) : nullptr;
}

std::int32_t get_fileno_by_file_name(const char* name, fileno_t* fileno)
{
    const ftbl_file_entry_t* entry = vfs::find_by_name(name);
    if (!entry || !fileno) return -1;
    *fileno = entry->fileno;
    return 0;
}

std::int32_t get_file_name_by_fileno(const fileno_t* fileno, char* name)
{
    const ftbl_file_entry_t* entry = get_file_entry_by_fileno(fileno);
    if (!entry || !name) return -1;
    std::memcpy(name, entry->name, sizeof entry->name);
    return 0;
}

std::int32_t get_file_attributes_by_file_name(const char* name, file_attributes_t* attributes, std::uint32_t* max_size)
{
    const ftbl_file_entry_t* entry = vfs::find_by_name(name);
    if (!entry || !max_size) return -1;
    if (attributes) *attributes = entry->attributes;
    *max_size = entry->maxSize;
    return 0;
}
