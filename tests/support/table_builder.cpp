#include "tests/support/table_builder.h"

#include <algorithm>
#include <cstring>

namespace yfs::test {

template <flash_record R>
static void append(blob& to, const R& record)
{
    to.resize(to.size() + sizeof record);
    store(to.data() + to.size() - sizeof record, record);
}

static void append(blob& to, const blob& bytes)
{
    to.insert(to.end(), bytes.begin(), bytes.end());
}

static _cfg_file_entry_t cfg_record(const cfg_file& file, std::size_t payload_at)
{
    return {file.fileno, file.offset.value_or(low32(payload_at)), file.size.value_or(low16(file.payload.size())),
            file.flags};
}

ftbl_file_entry_t file_entry(const table_file& file)
{
    ftbl_file_entry_t entry{};
    std::memcpy(entry.name, file.name.data(), std::min<std::size_t>(file.name.size(), sizeof entry.name));
    entry.fileno = file.fileno;
    entry.attributes = file.attributes;
    entry.file_index = file.file_index;
    entry.fs_selector = file.fs_selector;
    entry.maxSize = file.max_size;
    return entry;
}

blob make_file_table(const std::vector<table_sku>& skus, std::size_t min_length)
{
    const std::size_t entries_at = sizeof(ftbl_header_t) + skus.size() * sizeof(ftbl_sku_entry_t);
    blob table, entries;
    ftbl_header_t header{};
    std::memcpy(header.magic.byte, "FTBL", 4);
    header.sku_count = low32(skus.size());
    append(table, header);
    for (const table_sku& sku : skus) {
        ftbl_sku_entry_t row{};
        row.sku = sku.sku;
        row.table_offset = low32(entries_at + entries.size());
        row.num_files = low32(sku.files.size());
        append(table, row);
        for (const table_file& file : sku.files) append(entries, file_entry(file));
    }
    append(table, entries);
    table.resize(std::max(table.size(), min_length));
    return table;
}

blob make_cfg_table(const std::vector<cfg_file>& files)
{
    blob table, payloads;
    append(table, le32(low32(files.size())));
    const std::size_t payloads_at = table.size() + files.size() * sizeof(_cfg_file_entry_t);
    for (const cfg_file& file : files) {
        append(table, cfg_record(file, payloads_at + payloads.size()));
        if (!file.offset) append(payloads, file.payload);
    }
    append(table, payloads);
    return table;
}

blob make_partition(const blob& table)
{
    blob partition(16);
    for (std::size_t i = 0; i < partition.size(); ++i) partition[i] = low8(0xA0 + i);
    store(partition.data() + 8, le32(low32(table.size())));
    append(partition, table);
    return partition;
}

blob make_file_image(std::uint32_t fileno, const blob& payload, std::uint16_t flags)
{
    blob image;
    append(image, cfg_record({.fileno = fileno, .payload = payload, .flags = flags}, 0));
    append(image, payload);
    return image;
}

} // namespace yfs::test
