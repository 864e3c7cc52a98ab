// The format of an EFS image and of the table "EFST" in ftbl.bin. An image is BM blocks, then data blocks. A BM holds a
// header and a log of entries (BME), each a whole picture of the block tables; the last one is in force. A data block
// holds a header, a data area that is written in one piece, and its CRC. All CRC-32 start from 0.
#pragma once

#include "yfs/le.h"

#include <cstddef>

namespace yfs::efs {

inline constexpr std::uint32_t block_bytes = 4096; // also the erase unit
inline constexpr std::uint8_t erased_byte = 0xFF;

// Block numbers and counts travel in one byte each.
inline constexpr std::uint32_t max_count = 255;
inline constexpr std::uint32_t max_data_blocks = 256;

// ---- Block maps ----

inline constexpr std::uint16_t bm_version = 1;
inline constexpr std::uint32_t first_bm_sequence = 1; // after a format; a BM with sequence 0 is never chosen

// Blank: erased, or its header is still to come. All zero: retired, and that passes the CRC. Zero in crc alone: about
// to be erased.
struct efs_bm_header_t {              // at
    le16 version;                     //  0  bm_version; not tested
    le16 sku_id;                      //  2  not tested
    le32 sequence;                    //  4  one more at each switch to the next BM; the highest is in force
    std::uint8_t bm_num;              //  8
    std::uint8_t valid_block_num;     //  9
    std::uint8_t non_valid_block_num; // 10
    std::uint8_t layout_id;           // 11
    le32 crc;                         // 12  EFS_crc32 of bytes 0 to 11
};
static_assert(offsetof(efs_bm_header_t, sequence) == 4 && offsetof(efs_bm_header_t, crc) == 12);
static_assert(sizeof(efs_bm_header_t) == 16 && flash_record<efs_bm_header_t>);

// Put over bytes 0 to 3 of BM block 0, where it breaks the header's CRC.
inline constexpr std::uint8_t rtfd_marker[4] = {'R', 'D', 'F', 'S'};

// A BME is the valid table (entry i: the data block that holds logical block i), the non-valid table (the spares), one
// byte an entry, and this. The two tables hold each data block's number exactly once.
struct bme_tail_t { // at
    le32 reserved0; //  0
    le32 reserved1; //  4
    le32 crc;       //  8  EFS_crc32 of all that comes before it in the entry
};
static_assert(sizeof(bme_tail_t) == 12 && flash_record<bme_tail_t>);

inline constexpr std::uint32_t first_slot_at = sizeof(efs_bm_header_t);

// ---- Data blocks ----

// Written right after each erase; crc is zeroed before one.
struct efs_block_header_t {   // at
    le32 erase_count;         //  0
    std::uint8_t reserved[8]; //  4  zero
    le32 crc;                 // 12  EFS_crc32 of bytes 0 to 11
};
static_assert(sizeof(efs_block_header_t) == 16 && flash_record<efs_block_header_t>);

inline constexpr std::uint32_t data_area_bytes =
    block_bytes - static_cast<std::uint32_t>(sizeof(efs_block_header_t) + sizeof(le32));
static_assert(data_area_bytes == 4076);

struct data_block_t {                        // at
    efs_block_header_t header;               //    0
    std::uint8_t data_area[data_area_bytes]; //   16  chunks, at places that only the table of files knows
    le32 footer;                             // 4092  EFS_crc32 of the data area
};
static_assert(offsetof(data_block_t, data_area) == 16 && offsetof(data_block_t, footer) == 4092);
static_assert(sizeof(data_block_t) == block_bytes && flash_record<data_block_t>);

// What of either header its CRC covers.
inline constexpr std::uint32_t header_crc_bytes = offsetof(efs_block_header_t, crc);
static_assert(header_crc_bytes == offsetof(efs_bm_header_t, crc));

// ---- Chunks of files ----

// The payload follows. A file is a first chunk, at its place from the table, and as many continuation chunks as it
// needs, each at the begin of the next logical block's data area.
struct efs_chunk_header_t { // at
    le16 length;            //  0  first chunk: size of the file, or no_file; continuation: always no_file
    le16 crc;               //  2  EFS_crc16 of length and payload, from the number of the logical block
};
static_assert(sizeof(efs_chunk_header_t) == 4 && flash_record<efs_chunk_header_t>);

inline constexpr std::uint16_t no_file = 0xFFFF;
inline constexpr std::uint32_t chunk_room = data_area_bytes - sizeof(efs_chunk_header_t);
static_assert(chunk_room == 4072); // payload of a whole data area; also the last place where a chunk header fits

inline constexpr std::uint8_t file_in_use = 1; // bit 0 of efs_file_t::flags

// ---- The table "EFST" in ftbl.bin ----

inline constexpr std::uint32_t ftbl_magic = 0x4C425446; // "FTBL"
inline constexpr std::uint32_t efst_magic = 0x54534645; // "EFST"

// As much of the file table as leads to EFST, which lies behind its header and `sku_count` rows of the same size.
struct ftbl_lead_t {        // at
    le32 magic;             //  0  ftbl_magic
    std::uint8_t unread[8]; //  4
    le32 sku_count;         // 12
};
static_assert(sizeof(ftbl_lead_t) == 16 && flash_record<ftbl_lead_t>);

struct efst_header_t {      // at
    le32 magic;             //  0  efst_magic
    std::uint8_t unread[8]; //  4
    le32 record_count;      // 12  of efst_sku_record_t, which follow
};
static_assert(sizeof(efst_header_t) == 16 && flash_record<efst_header_t>);

struct efst_sku_record_t {        // at
    le32 sku_id;                  //  0
    le32 files_offset;            //  4  from the begin of ftbl.bin
    le32 files_count;             //  8  of efst_file_record_t there
    le32 files_size;              // 12  at most files_count records' bytes
    le32 bm_num;                  // 16
    le32 valid_block_num;         // 20
    le32 non_valid_block_num;     // 24
    le32 files_num;               // 28  entries of EFS_files
    le32 wear_leveling_threshold; // 32
    le32 layout_id;               // 36  low byte counts
};
static_assert(offsetof(efst_sku_record_t, bm_num) == 16 && offsetof(efst_sku_record_t, layout_id) == 36);
static_assert(sizeof(efst_sku_record_t) == 40 && flash_record<efst_sku_record_t>);

struct efst_file_record_t {      // at
    le16 file_index;             //  0  below files_num
    std::uint8_t unread[48];     //  2
    le16 first_block;            // 50  low byte counts
    le16 offset;                 // 52
    le16 max_size;               // 54
    std::uint8_t unread_tail[4]; // 56
};
static_assert(offsetof(efst_file_record_t, first_block) == 50 && offsetof(efst_file_record_t, max_size) == 54);
static_assert(sizeof(efst_file_record_t) == 60 && flash_record<efst_file_record_t>);

// ---- Geometry: where things lie, from the three counts ----

struct geometry {
    std::uint32_t bm_num;
    std::uint32_t valid_block_num;
    std::uint32_t non_valid_block_num;

    friend constexpr bool operator==(const geometry&, const geometry&) = default;

    constexpr std::uint64_t data_blocks() const { return std::uint64_t{valid_block_num} + non_valid_block_num; }
    constexpr std::uint64_t image_bytes() const { return (bm_num + data_blocks()) * block_bytes; }
    // Whether the counts fit the bytes in which the format carries them. All below needs this.
    constexpr bool representable() const
    {
        return bm_num <= max_count && valid_block_num <= max_count && non_valid_block_num <= max_count &&
               data_blocks() <= max_data_blocks;
    }

    constexpr std::uint32_t bme_bytes() const
    {
        return valid_block_num + non_valid_block_num + static_cast<std::uint32_t>(sizeof(bme_tail_t));
    }
    // A slot that would take the very last byte of the block is not used.
    constexpr bool slot_fits(std::uint32_t slot_at) const { return slot_at + bme_bytes() <= block_bytes - 1; }
    constexpr std::uint32_t data_block_at(std::uint32_t physical_block) const { return bm_at(bm_num + physical_block); }
    static constexpr std::uint32_t bm_at(std::uint32_t bm) { return bm * block_bytes; }
};
static_assert(geometry{2, 7, 3}.bme_bytes() == 22 && geometry{2, 7, 3}.image_bytes() == 49152);
static_assert(geometry{2, 7, 3}.slot_fits(first_slot_at + 184 * 22) &&
              !geometry{2, 7, 3}.slot_fits(first_slot_at + 185 * 22));

} // namespace yfs::efs
