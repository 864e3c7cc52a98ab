// The flash format of an erase unit (EU): header, page records, page frames. Data EUs map a group of 122 pages
// directly; log EUs take 120 pages in order of writing. Programming only clears bits, so every later change to a
// written byte is a change to a subset of its bits.
#pragma once

#include "yfs/le.h"

#include <cstddef>

namespace yfs::ftl {

inline constexpr std::uint32_t eu_size = 8192;
inline constexpr std::uint32_t erase_block_size = 4096; // the chip erases half an EU at a time
inline constexpr std::uint32_t page_bytes = 64;

inline constexpr std::uint32_t eu_magic = 0xAA557887;
inline constexpr std::uint32_t eu_magic_old = 0x82416801; // accepted on reading, never written
inline constexpr std::uint32_t eu_magic_alt = 0xAA050887; // accepted on reading, never written
inline constexpr std::uint32_t eu_magic_given_up = 0;     // the spare

inline constexpr std::uint8_t not_committed = 0xFF;
inline constexpr std::uint8_t committed = 0x00;

struct eu_header_t {     // at
    le32 magic;          //  0  eu_magic; 0 in the spare
    le32 seq;            //  4  higher is newer; never 0
    le32 erase_count;    //  8  never 0
    le16 src_eu;         // 12  the unit that this one replaced, which became the spare then
    le16 base_page;      // 14  first page of a data unit's group; 0 in a log unit
    std::uint8_t crc;    // 16  crc8 of bytes 0 to 15, taken with eu_magic in place
    std::uint8_t commit; // 17  0xFF until the unit is in force, then 0x00
};
static_assert(offsetof(eu_header_t, base_page) == 14 && offsetof(eu_header_t, commit) == 17);
static_assert(sizeof(eu_header_t) == 18 && flash_record<eu_header_t>);

inline constexpr std::uint32_t header_crc_bytes = offsetof(eu_header_t, crc);
// What the header write puts down at once; the commit byte follows by itself.
inline constexpr std::uint32_t header_write_bytes = offsetof(eu_header_t, commit);

struct page_frame_t {              // at
    std::uint8_t data[page_bytes]; //  0
    le16 crc;                      // 64  crc16 of the data, keyed with the page number
};
static_assert(sizeof(page_frame_t) == 66 && flash_record<page_frame_t>);
inline constexpr std::uint32_t frame_size = sizeof(page_frame_t);

// Log unit. rec[k] describes slot k; its top bit also commits slot k - 1, hence one record more than slots.
inline constexpr std::uint32_t log_slots = 120;
struct log_eu_t {
    eu_header_t header;
    le16 rec[log_slots + 1];
    page_frame_t frame[log_slots];
    std::uint8_t unused[12];
};
static_assert(offsetof(log_eu_t, rec) == 18 && offsetof(log_eu_t, frame) == 260 && offsetof(log_eu_t, unused) == 8180);
static_assert(sizeof(log_eu_t) == eu_size && flash_record<log_eu_t>);

// Data unit. One record byte a slot; slot k holds page base_page + k. It fills the unit exactly.
inline constexpr std::uint32_t data_slots = 122;
struct data_eu_t {
    eu_header_t header;
    std::uint8_t rec[data_slots];
    page_frame_t frame[data_slots];
};
static_assert(offsetof(data_eu_t, rec) == 18 && offsetof(data_eu_t, frame) == 140);
static_assert(sizeof(data_eu_t) == eu_size && flash_record<data_eu_t>);
inline constexpr std::uint32_t group_bytes = data_slots * page_bytes;
static_assert(group_bytes == 7808);

// Offsets inside an EU.
constexpr std::uint32_t log_record_at(std::uint32_t slot)
{
    return static_cast<std::uint32_t>(offsetof(log_eu_t, rec) + 2 * slot);
}
// The byte whose top bit commits `slot`: the high byte of the record behind it.
constexpr std::uint32_t log_commit_at(std::uint32_t slot)
{
    return log_record_at(slot + 1) + 1;
}
constexpr std::uint32_t log_frame_at(std::uint32_t slot)
{
    return static_cast<std::uint32_t>(offsetof(log_eu_t, frame) + frame_size * slot);
}
constexpr std::uint32_t data_record_at(std::uint32_t slot)
{
    return static_cast<std::uint32_t>(offsetof(data_eu_t, rec) + slot);
}
constexpr std::uint32_t data_frame_at(std::uint32_t slot)
{
    return static_cast<std::uint32_t>(offsetof(data_eu_t, frame) + frame_size * slot);
}
static_assert(log_commit_at(log_slots - 1) == 259);

// States of a log record. A written record is below 0x4000: the page number's 14 bits, XORed with the chain value.
inline constexpr std::uint16_t log_rec_untouched = 0xFFFF;
inline constexpr std::uint16_t log_rec_end = 0x7FFF; // the slot before is committed, this one never touched
inline constexpr std::uint8_t log_commit_byte = 0x7F;
constexpr bool commits_slot_before(std::uint16_t rec)
{
    return (rec & 0x8000U) == 0;
}

// States of a data record.
inline constexpr std::uint8_t data_rec_free = 0xFF;
inline constexpr std::uint8_t data_rec_begun = 0x7F;
inline constexpr std::uint8_t data_rec_complete = 0x00;

} // namespace yfs::ftl
