// Reading a table into a tree. Everything in the table is held against its length first; the sums are made in 64 bits.
#include "cfgtable/cfgtable_internal.h"
#include "vfs/vfs_internal.h"
#include "yfs/status.h"

using namespace yfs; // NOLINT(google-build-using-namespace): the exported name below is global

namespace {

// The record and its payload, back to back. False if the payload runs out of the table.
bool cut_out(const char* table, std::uint32_t length, std::uint64_t index, std::vector<char>& image)
{
    const char* at = table + cfgtable::record_at(index);
    const auto record = load<_cfg_file_entry_t>(at);
    image.assign(at, at + cfgtable::record_bytes);
    if (record.size == 0) return true; // the offset may be anything
    if (std::uint64_t{record.offset} + record.size > length) return false;
    const char* payload = table + record.offset;
    image.insert(image.end(), payload, payload + record.size);
    return true;
}

} // namespace

bool loadDataFromFcsBuffer(void* handle, const void* table, std::uint32_t length)
{
    if (!table || length < cfgtable::records_at) return false;
    const std::uint32_t count = load<le32>(table);
    if (length < cfgtable::payloads_at(count)) return false;
    if (count == 0) return true;

    const vfs::lookup_run file_table;
    std::vector<char> image;
    for (std::uint32_t i = 0; i < count; ++i) {
        if (!cut_out(static_cast<const char*>(table), length, i, image)) return false;
        const ftbl_file_entry_t* known = file_table.find_by_fileno(load<_cfg_file_entry_t>(image.data()).fileno);
        if (!known) continue;

        char name[YFS_FTBL_NAME_LENGTH + 1] = {}; // the field of the entry may lack a terminator
        std::memcpy(name, known->name, YFS_FTBL_NAME_LENGTH);
        // An image too long for 16 bits comes out shorter than its record, and is refused.
        if (addNewFile(handle, "", name, image.data(), low16(image.size()), false) != fcs_status::ok) return false;
    }
    return true;
}
