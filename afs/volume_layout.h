// The volume format of AFS in its virtual address space: header, then the chain table (FAT), then 64-byte chunks.
#pragma once

#include "yfs/le.h"

#include <cstddef>

namespace yfs::afs {

inline constexpr std::uint32_t chunk_bytes = 64;
inline constexpr std::uint32_t volume_magic = 0x724F6201;

struct volume_header_t {       // at
    le32 magic;                //  0
    std::uint8_t byte4;        //  4  header_byte4
    std::uint8_t field12_low;  //  5  low 8 bits of header_field12
    std::uint8_t field12_high; //  6  bits 8 to 11 of header_field12 in the low 4 bits
    std::uint8_t zero;         //  7
    le32 volume_size;          //  8  bytes of virtual address space
    le16 files;                // 12  file heads in the table
};
static_assert(offsetof(volume_header_t, volume_size) == 8 && offsetof(volume_header_t, files) == 12);
static_assert(sizeof(volume_header_t) == 14 && flash_record<volume_header_t>);

// The FAT begins right behind the header: 16-bit entries, first the file heads, then one entry a chunk.
inline constexpr std::uint32_t fat_at = sizeof(volume_header_t);
constexpr std::uint32_t fat_entry_at(std::uint32_t entry)
{
    return fat_at + 2 * entry;
}

// Values of FAT entries beside chunk ids (files to files + chunks - 1).
inline constexpr std::uint16_t no_file = 0;
inline constexpr std::uint16_t last_chunk_max = 64; // 1 to 64 in a chain entry: bytes used in the last chunk
inline constexpr std::uint16_t zombie = 0xFFFE;     // reads as no file; the next mount frees it
inline constexpr std::uint16_t empty_file = 0xFFFF;

inline constexpr std::uint32_t min_files = 65; // so that a chunk id is never taken for a byte count
inline constexpr std::uint32_t max_files = 2048;
inline constexpr std::uint32_t max_file_bytes = 0x40000;
inline constexpr std::uint32_t min_flash_size = 0x8000;
inline constexpr std::uint32_t max_flash_size = 0x200000;

// A chunk costs 64 bytes of data and 2 of FAT. All in 64 bits: the numbers can come from a hostile header.
constexpr std::uint64_t chunks_of(std::uint64_t volume_size, std::uint64_t files)
{
    const std::uint64_t fixed = fat_at + 2 * files;
    return volume_size < fixed ? 0 : (volume_size - fixed) / (chunk_bytes + 2);
}
// 14 + 2 * (files + chunks), rounded up to whole pages.
constexpr std::uint64_t fat_size_of(std::uint64_t files, std::uint64_t chunks)
{
    return (fat_at + 2 * (files + chunks) + 63) & ~std::uint64_t{63};
}
static_assert(fat_size_of(1024, 465) == (((465 + 1024 + 39) * 2 - 1) & ~63));

} // namespace yfs::afs
