// Writing a tree as a table. Each node appends its record and its payload; flush then knows where the payloads begin
// and moves the offsets of the copies, while a node's own record keeps the offset that counts from the first payload.
#include "cfgtable/cfgtable_internal.h"

#include "yfs/status.h"

#include <algorithm>

namespace image_editor {

using yfs::cfgtable::record_bytes;

void File::serialize(std::vector<_cfg_file_entry_t>& records, std::vector<char>& payloads)
{
    if (data.size() < record_bytes) return;
    auto record = yfs::load<_cfg_file_entry_t>(data.data());
    record.offset = yfs::low32(payloads.size());
    yfs::store(data.data(), record);

    // Programs reach the stored record; the written one never tells more than the node has.
    record.size = yfs::low16(std::min<std::size_t>(record.size, data.size() - record_bytes));
    records.push_back(record);
    const auto payload = data.begin() + record_bytes;
    payloads.insert(payloads.end(), payload, payload + record.size);
}

void Directory::serialize(std::vector<_cfg_file_entry_t>& records, std::vector<char>& payloads)
{
    if (name[0] != '\0' && data.size() >= record_bytes) {
        auto record = yfs::load<_cfg_file_entry_t>(data.data());
        record.offset = 0;
        yfs::store(data.data(), record);
        records.push_back(record);
    }
    for (const std::shared_ptr<IFile>& child : children)
        if (child) child->serialize(records, payloads);
}

} // namespace image_editor

namespace yfs::cfgtable {

std::uint32_t write_table(image_editor::IFile& root, void* buffer, std::uint32_t& length)
{
    std::vector<_cfg_file_entry_t> records;
    std::vector<char> payloads;
    root.serialize(records, payloads);

    const std::uint64_t first_payload = payloads_at(records.size());
    const std::uint64_t total = first_payload + payloads.size();
    if (length < total) {
        length = low32(std::min<std::uint64_t>(total, UINT32_MAX));
        return fcs_status::bad_length;
    }
    if (!buffer) return fcs_status::null_pointer;

    for (_cfg_file_entry_t& record : records) record.offset = low32(record.offset + first_payload);
    char* to = static_cast<char*>(buffer);
    store(to, le32(low32(records.size())));
    if (!records.empty()) std::memcpy(to + records_at, records.data(), records.size() * record_bytes);
    if (!payloads.empty()) std::memcpy(to + first_payload, payloads.data(), payloads.size());
    length = low32(total);
    return fcs_status::ok;
}

} // namespace yfs::cfgtable
