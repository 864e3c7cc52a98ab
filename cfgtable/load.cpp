// Reading a table into a tree. Everything in the table is held against its length first; the sums are made in 64 bits.
// The files go into the tree in the order of their names, each behind the last one, whatever their order in the table.
#include "cfgtable/cfgtable_internal.h"
#include "cfgtable/name_sort.h"
#include "vfs/vfs_internal.h"
#include "yfs/status.h"

#include <algorithm>

using namespace yfs; // the exported name below is global

using cfgtable::found_file;
using cfgtable::sort_by_name;

namespace {

struct table_bytes {
    const char* bytes;
    std::uint32_t length;

    _cfg_file_entry_t record(std::uint32_t index) const
    {
        return load<_cfg_file_entry_t>(bytes + cfgtable::record_at(index));
    }
};

// Without a payload the offset may be anything.
bool payload_inside(const table_bytes& table, const _cfg_file_entry_t& record)
{
    return record.size == 0 || std::uint64_t{record.offset} + record.size <= table.length;
}

// The files up to the first bad record; gives its number, or `count`. Records whose number is unknown are dropped. A
// payload too large for a file image is bad: the image's length cut to 16 bits would be below that of its record.
std::uint32_t find_files(const table_bytes& table, std::uint32_t count, std::vector<found_file>& files)
{
    const vfs::lookup_run file_table;
    for (std::uint32_t i = 0; i < count; ++i) {
        const _cfg_file_entry_t record = table.record(i);
        if (!payload_inside(table, record)) return i;
        const ftbl_file_entry_t* known = file_table.find_by_fileno(record.fileno);
        if (!known) continue;
        if (record.size > cfgtable::max_payload_bytes) return i;
        files.push_back({vfs::table_name(known->name), i});
    }
    return count;
}

// Sorts by name. A record whose name an earlier one has is bad too: gives the first such number below `end`, or `end`.
std::uint32_t sort_files(std::vector<found_file>& files, std::uint32_t end)
{
    sort_by_name(files);
    for (std::size_t i = 1; i < files.size(); ++i)
        if (files[i].name == files[i - 1].name) end = std::min(end, files[i].record);
    return end;
}

// Into a tree that held nothing, a file goes without a search: the table has its name once, and the file table knows
// its number. One without a number, and one for a tree that had files before, is checked like any other.
bool add_file(void* handle, bool to_empty, const table_bytes& table, const found_file& file)
{
    const char* const at = table.bytes + cfgtable::record_at(file.record);
    const _cfg_file_entry_t record = table.record(file.record);
    const char* const payload = table.bytes + (record.size != 0 ? std::uint32_t{record.offset} : 0U);
    if (to_empty && record.fileno != 0) {
        auto& fcs = *cfgtable::open_handle(handle);
        if (cfgtable::append_file(fcs, at, payload, record.size, file.name) != fcs_status::ok) return false;
        if (fcs.root->children.size() == 1) cfgtable::begin_walk(*fcs.iterator); // where it stands from then on
        return true;
    }
    char name[YFS_FTBL_NAME_LENGTH + 1] = {}; // the field of the entry may lack a terminator
    file.name.copy(name, YFS_FTBL_NAME_LENGTH);
    std::vector<char> image(at, at + cfgtable::record_bytes);
    image.insert(image.end(), payload, payload + record.size);
    return addNewFile(handle, "", name, image.data(), low16(image.size()), false) == fcs_status::ok;
}

} // namespace

bool loadDataFromFcsBuffer(void* handle, const void* buffer, std::uint32_t length)
{
    if (!buffer || length < cfgtable::records_at) return false;
    const std::uint32_t count = load<le32>(buffer);
    if (length < cfgtable::payloads_at(count)) return false;

    const table_bytes table{static_cast<const char*>(buffer), length};
    std::vector<found_file> files;
    const std::uint32_t bad = find_files(table, count, files);
    const std::uint32_t end = sort_files(files, bad);

    const cfgtable::FcsHandle* const fcs = cfgtable::open_handle(handle);
    const bool to_empty = fcs && fcs->root->children.empty();
    for (const found_file& file : files)
        if (file.record < end && !add_file(handle, to_empty, table, file)) return false;
    return end == count; // what came before a bad record stays
}
