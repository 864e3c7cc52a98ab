#include "tool/tables.h"

#include "tool/error.h"
#include "yfs/cfgtable.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>

namespace yfs::tool {

namespace {

struct partition_header_t {    // at
    std::uint8_t unread[8];    //  0  firmware's own
    le32 table_length;         //  8
    std::uint8_t unread_12[4]; // 12  firmware's own
};
static_assert(offsetof(partition_header_t, table_length) == 8);
static_assert(sizeof(partition_header_t) == 16 && flash_record<partition_header_t>);

[[noreturn]] void refuse(const std::string& name, const std::string& why)
{
    throw failure(fault::table_damaged, fmt::format("{}: {}", name, why));
}

} // namespace

std::vector<cfg_record> read_cfg_records(std::span<const std::uint8_t> table, const std::string& name)
{
    if (table.size() < sizeof(le32)) refuse(name, fmt::format("{} bytes are no cfg table", table.size()));
    const std::uint64_t count = load<le32>(table.data());
    const std::uint64_t needed = sizeof(le32) + count * sizeof(_cfg_file_entry_t);
    if (needed > table.size())
        refuse(name, fmt::format("{} records need {} bytes, the table has {}", count, needed, table.size()));

    std::vector<cfg_record> records;
    for (std::uint64_t i = 0; i < count; ++i) {
        const auto entry = load<_cfg_file_entry_t>(table.data() + sizeof(le32) + i * sizeof(_cfg_file_entry_t));
        const std::uint64_t end = std::uint64_t{entry.offset} + entry.size;
        if (entry.size != 0 && end > table.size()) {
            refuse(name, fmt::format("record {} (fileno 0x{:x}) ends at byte {}, the table at {}", i,
                                     std::uint32_t{entry.fileno}, end, table.size()));
        }
        const auto payload = entry.size == 0 ? table.first(0) : table.subspan(entry.offset, entry.size);
        records.push_back({entry.fileno, entry.size, (entry.flags & 1U) != 0, entry.flags, payload});
    }
    return records;
}

std::span<const std::uint8_t> table_in_partition(std::span<const std::uint8_t> partition, const std::string& name)
{
    if (partition.size() < sizeof(partition_header_t))
        refuse(name, fmt::format("{} bytes are shorter than the partition header of 16", partition.size()));
    const std::uint32_t length = load<partition_header_t>(partition.data()).table_length;
    const std::span<const std::uint8_t> rest = partition.subspan(sizeof(partition_header_t));
    if (length > rest.size())
        refuse(name, fmt::format("the header tells of a table of {} bytes, {} are there", length, rest.size()));
    return rest.first(length);
}

cfg_file read_cfg_file(std::span<const std::uint8_t> contents, const std::string& name)
{
    cfg_file file;
    // In a partition the place of the count holds firmware's own bytes: zeros, or a name that is no count.
    try {
        file.records = read_cfg_records(contents, name);
        if (!file.records.empty()) return file;
    } catch (const failure&) {
    }
    file.in_partition = true;
    file.records = read_cfg_records(table_in_partition(contents, name), name);
    file.header = contents.first(sizeof(partition_header_t));
    return file;
}

bool is_cfg_file(std::span<const std::uint8_t> contents)
{
    try {
        return !read_cfg_file(contents, {}).records.empty();
    } catch (const failure&) {
        return false;
    }
}

bytes make_cfg_table(const std::vector<cfg_record>& records)
{
    bytes out(sizeof(le32) + records.size() * sizeof(_cfg_file_entry_t));
    store(out.data(), le32(low32(records.size())));
    for (std::size_t i = 0; i < records.size(); ++i) {
        const auto& [fileno, size, available, flags, payload] = records[i];
        if (payload.size() > UINT16_MAX) {
            throw failure(fault::too_large, fmt::format("record 0x{:x} holds {}; the format carries 65535", fileno,
                                                        bytes_text(payload.size())));
        }
        _cfg_file_entry_t entry{};
        entry.fileno = fileno;
        entry.offset = low32(out.size());
        entry.size = low16(low32(payload.size()));
        entry.flags = flags;
        store(out.data() + sizeof(le32) + i * sizeof entry, entry);
        append(out, payload);
    }
    return out;
}

bytes make_partition(std::span<const std::uint8_t> before, std::span<const std::uint8_t> table)
{
    partition_header_t header{};
    if (before.size() >= sizeof header) header = load<partition_header_t>(before.data());
    header.table_length = low32(table.size());
    bytes out(sizeof header);
    store(out.data(), header);
    append(out, table);
    return out;
}

} // namespace yfs::tool
