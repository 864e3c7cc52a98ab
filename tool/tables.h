// The two cfg tables as they lie in their files: which records they hold, and the partition around zonc.cfg.
#pragma once

#include "tool/text.h"

#include <span>
#include <string>
#include <vector>

namespace yfs::tool {

struct cfg_record {
    std::uint32_t fileno = 0;
    std::uint16_t size = 0;
    bool available = false;                // bit 0 of the flags: the table has a value for this file
    std::uint16_t flags = 0;               // all of them
    std::span<const std::uint8_t> payload; // in the table
};

// The records of a table. Fails with table_damaged where they or a payload run out of it; `name` is for the message.
std::vector<cfg_record> read_cfg_records(std::span<const std::uint8_t> table, const std::string& name);

// The table inside a zonc.cfg partition, likewise.
std::span<const std::uint8_t> table_in_partition(std::span<const std::uint8_t> partition, const std::string& name);

// A cfg table by itself, or the partition around one; which of them is told from the bytes.
struct cfg_file {
    bool in_partition = false;
    std::span<const std::uint8_t> header; // of the partition: 16 bytes
    std::vector<cfg_record> records;
};
cfg_file read_cfg_file(std::span<const std::uint8_t> contents, const std::string& name);
// Whether read_cfg_file would find at least one record.
bool is_cfg_file(std::span<const std::uint8_t> contents);

// A table of these records, their payloads packed in the same order. Fails with too_large.
bytes make_cfg_table(const std::vector<cfg_record>& records);

// A partition for `table`: header bytes that only firmware reads come from `before`, or are zero if that is empty.
bytes make_partition(std::span<const std::uint8_t> before, std::span<const std::uint8_t> table);

} // namespace yfs::tool
