// The format of a cfg table: a count, the records, then the payloads. No magic, no version, no checksum, no length: the
// length of the byte string comes from outside, and everything in it is held against that length.
#pragma once

#include "yfs/cfgtable.h"

#include <cstddef>

namespace yfs::cfgtable {

static_assert(offsetof(_cfg_file_entry_t, offset) == 4 && offsetof(_cfg_file_entry_t, size) == 8);
static_assert(offsetof(_cfg_file_entry_t, flags) == 10);

inline constexpr std::uint32_t record_bytes = sizeof(_cfg_file_entry_t);
inline constexpr std::uint32_t records_at = sizeof(le32); // behind the count

// In 64 bits: a count can come from a hostile table.
constexpr std::uint64_t record_at(std::uint64_t index)
{
    return records_at + index * record_bytes;
}
constexpr std::uint64_t payloads_at(std::uint64_t count)
{
    return record_at(count);
}

// A file image crosses the interfaces with a 16-bit length, which leaves 65,523 bytes to the largest payload.
inline constexpr std::uint32_t max_image_bytes = 0xFFFF;
inline constexpr std::uint32_t max_payload_bytes = max_image_bytes - record_bytes;
static_assert(max_payload_bytes == 65523);

} // namespace yfs::cfgtable
