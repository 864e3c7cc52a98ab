/* EFS: a fixed set of files on a small run of 4096-byte blocks. The first blocks are block maps (BM), logs of entries
   (BME) that each tell which physical data block holds which logical block; a file is an index into EFS_files, which
   says where it lies. Every chunk that a read touches is verified by its CRC; a change goes to spare blocks and comes
   into force by one entry of the map.

   Order of calls: load_autogen_data with the contents of ftbl.bin, EFS_get_efs_size if the size is needed,
   EFS_init_tools with an image of that size, then reads and changes. One EFS a process; not thread-safe.

   Statuses: 0 | 1 not mounted, no autogen data, no image, or a bad table | 2 the file does not exist | 12 no memory |
   22 argument out of range, or an entry not in use | 34 offset beyond the end of the file | 41 the medium contradicts
   its checksums, its table or the geometry. */
#pragma once

#include "yfs/export.h"

YFS_BEGIN_C

/* ---- The table of files and the geometry ---- */

/* One file of the table in memory: where it begins and how large it may grow. 8 bytes, no padding. */
typedef struct efs_file_t {
    uint8_t first_block; /* logical block of the first chunk */
    uint16_t offset;     /* of the first chunk in that block's data area; at most 4072 */
    uint16_t max_size;   /* largest size in bytes */
    uint8_t flags;       /* bit 0: the entry is in use */
    uint16_t reserved;   /* 0 */
} YFS_PACKED efs_file_t;

/* g_efs_files_num entries, indexed by file index; null until load_autogen_data. The library owns a table that it made
   and keeps it until it makes the next one. A program may point it at a table of its own, which then stays its own. */
extern YFS_API efs_file_t* EFS_files;

/* The geometry. load_autogen_data sets it; a program that sets it itself has to mount anew, and until then every
   operation on a mounted image of another geometry answers 1. The image is g_efs_bm_num BM blocks and behind them
   g_efs_valid_block_num + g_efs_non_valid_block_num data blocks. Each count is at most 255, the data blocks together
   are at most 256. */
extern YFS_API uint32_t g_efs_bm_num;                  /* 2: BM blocks */
extern YFS_API uint32_t g_efs_valid_block_num;         /* 7: logical blocks */
extern YFS_API uint32_t g_efs_non_valid_block_num;     /* 3: spare blocks */
extern YFS_API uint32_t g_efs_files_num;               /* 16: entries of EFS_files */
extern YFS_API uint32_t g_efs_wear_leveling_threshold; /* 100: difference of erase counts at which wear is levelled */
extern YFS_API uint8_t g_efs_sku_id;                   /* 0: low byte of the SKU whose record was loaded */
extern YFS_API uint8_t g_efs_layout_id;                /* 0: compared at mount */
extern YFS_API uint8_t g_efs_autogen_data_loaded;      /* 0; 1 once a record was loaded */

/* Takes the table of files and the geometry for `sku` from the record "EFST" in `ftbl`, the whole contents of ftbl.bin,
   `ftbl_size` bytes. Nothing of the buffer is kept.
   0: taken, or there is no EFST or none for this SKU; g_efs_autogen_data_loaded tells whether one was ever taken |
   1: no file table, a record or count outside the buffer, a file index at or above the number of files | 12.
   On 1 and 12 the former EFS_files stays in force. Nothing at all changes, but for a record whose file list begins
   behind the end of the buffer (1) and a failed allocation (12): these leave the new geometry behind. More than 65536
   files are refused with 12. */
YFS_API uint32_t load_autogen_data(const uint8_t* ftbl, uint32_t sku, uint32_t ftbl_size);

/* ---- Checksums ---- */

/* The byte tables: polynomial 0x1021, most significant bit first; reflected polynomial 0xEDB88320. */
extern YFS_API const uint16_t gCrc16_table[256];
extern YFS_API const uint32_t gCrc32_table[256];

/* CRC-16 over `length` bytes, most significant bit first, from `initial`, no final XOR; 0 bytes give `initial`. From 0,
   "abc" gives 0x9DD6. Guards a chunk, from the number of its logical block. */
YFS_API uint16_t EFS_crc16(uint16_t initial, const uint8_t* data, uint32_t length);

/* CRC-32 over `length` bytes, least significant bit first, from `initial`, no final XOR; 0 bytes give `initial`. From
   0, "abc" gives 0xCA6598D0. Guards headers, map entries and data areas, from 0. */
YFS_API uint32_t EFS_crc32(uint32_t initial, const uint8_t* data, uint32_t length);

/* ---- The medium ---- */

/* The image and its size in bytes. All addresses count from its first byte. The image given to EFS_init_tools stays the
   caller's, who keeps it valid while EFS is used; the library never releases it. One that EFS_physical_init made
   belongs to the library and is kept until EFS_physical_init makes the next one. */
extern YFS_API uint8_t* efs_image;
extern YFS_API uint32_t efs_size;

/* Copy `length` bytes at `address` of the image out, in; set them to 0xFF. A write is a plain copy over what is there.
   0 | 22: length 0, a range outside the image, no image, a null pointer; for the erase also an address or length that
   is no multiple of 4096. On 22 nothing is copied. A program that defines these three itself, in its own link or in a
   preloaded library, puts its own medium under EFS, and may fail with any status; callers hand it up. */
YFS_API uint32_t EFS_physical_read(uint32_t address, uint32_t length, void* destination);
YFS_API uint32_t EFS_physical_write(uint32_t address, uint32_t length, const void* source);
YFS_API uint32_t EFS_physical_erase(uint32_t address, uint32_t length);

/* Sets efs_size from the geometry. `format` 0: 0 if there is an image, else 1. `format` not 0: a new image of 0xFF
   bytes takes the place of the one before: 0 | 12, and then there is no image. 41, with nothing changed: a geometry
   that the format can't carry. */
YFS_API uint32_t EFS_physical_init(uint8_t format);

/* ---- The mounted image ---- */

/* One BME in memory. */
typedef struct efs_bme_t {
    uint8_t* valid_table;     /* g_efs_valid_block_num entries: the data block that holds logical block i */
    uint8_t* non_valid_table; /* g_efs_non_valid_block_num entries: the data blocks that hold none */
    uint32_t reserved0;       /* 0 */
    uint32_t reserved1;       /* 0 */
    uint32_t crc;             /* as on the medium */
} efs_bme_t;

/* The state of the mounted image. The tables behind its pointers belong to the library and end with the next EFS_init;
   after a failed one they are null. */
typedef struct efs_ctx_t {
    uint8_t initialized;       /* 1 while an image is mounted */
    uint8_t page_buf[4096];    /* working copy; the verifying calls leave their result here */
    uint8_t verify_buf[4096];  /* scratch of writes and erases, which leave page_buf as it is */
    uint32_t read_retries;     /* reads that a test gets in all: 7 */
    uint8_t force_bm_switch;   /* 1: the next commit goes to a new BM, since the slot behind bme_offset is torn */
    uint32_t current_bm;       /* index of the BM in force */
    uint32_t bm_sequence;      /* its sequence number */
    uint8_t next_bm_state;     /* 0 unknown, 1 erased, 2 dirty */
    uint32_t* block_ec;        /* erase count of each data block; valid with scan_done */
    uint32_t bme_offset;       /* of the BME in force, in the BM block */
    efs_bme_t current_bme;     /* the BME in force */
    uint32_t free_block_count; /* entries of block_status that are 2; valid with scan_done */
    uint8_t* block_status;     /* of each position of the non-valid table: 1 dirty, 2 free; valid with scan_done */
    uint8_t scan_done;         /* 1: the erase counts and states were read from the data blocks */

    /* The library's own: the geometry and layout that were mounted. */
    uint32_t mounted_bm_num;
    uint32_t mounted_valid_block_num;
    uint32_t mounted_non_valid_block_num;
    uint8_t mounted_layout_id;
    uint8_t older_maps;        /* 1: the mount found sound maps beside the one in force */
    uint32_t undecided_at;     /* a commit was told as failed, and what of it landed at this address */
    uint32_t undecided_length; /* isn't void yet; 0: none */
} efs_ctx_t;

extern YFS_API efs_ctx_t efs_ctx;

/* Mounts the image that is there; a former mount ends, whatever comes out. Reads the BM headers and one BM block and
   writes nothing. Of two sound BMs the one with the higher sequence is taken; a torn last entry gives way to the one
   before it.
   0 | 1: no autogen data, or no image | 12 | 41: no sound BM, one for another geometry or layout, no sound BME, a BME
   that names a block twice or one outside the image, or a geometry that the format can't carry | a replacement
   medium's failure.
   `format` not 0 makes a new image first: a fresh buffer of the library's own (12) is formatted as by EFS_do_format,
   whose status comes back. */
YFS_API uint32_t EFS_init(uint8_t format);

/* Takes `image`, EFS_get_efs_size() bytes at least, and mounts it. 22: null, and nothing changes | as EFS_init(0). */
YFS_API uint32_t EFS_init_tools(void* image);

/* 1 while an image is mounted. */
YFS_API uint8_t EFS_is_initialized(void);

/* Bytes of an image of this geometry, with or without one; 0xFFFFFFFF if they don't fit 32 bits. */
YFS_API uint32_t EFS_get_efs_size(void);

/* Reads data block `physical_block` whole into efs_ctx.page_buf and verifies its header and footer. 0 | 1 not mounted |
   22 no such block | 41 still bad after 7 reads | a medium's failure. */
YFS_API uint32_t EFS_read_and_verify_data_block_header_and_footer(uint32_t physical_block);

/* Reads one chunk to the start of efs_ctx.page_buf, header at byte 0, payload from byte 4, and verifies it.
   offset    of the chunk in the data area of `logical_block`
   is_first  not 0: the payload is what the chunk's own length tells, as far as the block goes; 0: `length` bytes
   0 | 1 not mounted | 2 no such file | 22 no such block, or `length` runs past the data area | 41 still bad after 7
   reads, or no room for a chunk at `offset` | a medium's failure. */
YFS_API uint32_t EFS_read_and_verify_file(uint8_t logical_block, uint16_t offset, uint8_t is_first, uint16_t length);

/* *size becomes the size of `file` in bytes. 0 | 1 | 2 | 22: index out of range, null size, entry not in use, or one in
   a block that isn't there | 41: chunk damaged, stored size above max_size, or the entry's offset above 4072 | a
   medium's failure. On any but 0 *size stays as it was. */
YFS_API uint32_t EFS_get_file_size(uint32_t file, uint32_t* size);

/* Reads at most *length bytes of `file` from byte `offset` on into `buffer`; *length becomes the bytes delivered.
   0: fewer than asked for at the end of the file; an empty file gives 0 bytes at any offset | 1 | 2 | 22: index out of
   range, null length or buffer, offset + *length above 32 bits, entry not in use, or one in a block that isn't there |
   34: offset above the size | 41: as EFS_get_file_size, or the file runs past the last logical block | a medium's
   failure. On any but 0 *length is 0, and `buffer` may hold a beginning that does not count. Allocates nothing. */
YFS_API uint32_t EFS_read(uint32_t file, uint32_t offset, uint32_t* length, uint8_t* buffer);

/* ---- Changes ---- */

/* Replaces the whole contents of `file` by `size` bytes of `data`; `offset` must be 0. Other files in the same blocks
   are carried along. Each chunk takes a spare block, and one commit puts all of them in force: cut short anywhere, the
   file reads as before or as after. 0 | 1 | 12 | 22: index out of range, null data, entry not in use, or the file runs
   past the last logical block | 34: size above the entry's max_size, 0xFFFF, or more than the spares can take | 41 | 5:
   a new BM is due and the sequence numbers are used up | a medium's failure. On any but 0 the old contents stand;
   blocks may have been erased and one wear-levelling move committed. */
YFS_API uint32_t EFS_write(uint32_t file, uint32_t offset, uint32_t size, const uint8_t* data);

/* Makes `file` not exist. As EFS_write; 2: it doesn't exist, and no block is used. */
YFS_API uint32_t EFS_delete(uint32_t file);

/* Verified writes: the target must read blank where that is asked for, and the read-back must equal the data, each
   within 7 reads. `length` at most 4096. 0 | 22 | 41 | a medium's failure. data_area points to 4076 bytes. */
YFS_API uint32_t EFS_write_with_read_check(uint32_t address, uint32_t length, const void* data, uint8_t check_blank);
YFS_API uint32_t EFS_write_data_block(uint32_t physical_block, const void* data_area);  /* data area, then footer */
YFS_API uint32_t EFS_write_data_footer(uint32_t physical_block, const void* data_area); /* the CRC of `data_area` */

/* *position becomes that of the free spare with the lowest erase count, the lowest position on a tie. 0 | 1 | 22 | 41:
   none is free. */
YFS_API uint32_t EFS_select_free_page_for_write(uint32_t* position);

/* Writes `data_area` to a free spare and lets it take the place of `logical_block` in `bme`, a copy of the BME in
   force; nothing is in force before a commit. 0 | 1 | 22 | 41 | a medium's failure: `bme` is unchanged, the spare
   counts as dirty. */
YFS_API uint32_t EFS_bme_swap_and_write_new_block(efs_bme_t* bme, uint32_t logical_block, const void* data_area);

/* Seals `bme` and appends it to the BM in force, or goes on to the next BM: then it is in force. 0 | 1 | 12 | 22 | 41 |
   5 | a medium's failure: the former BME stays in force. May take page_buf. */
YFS_API uint32_t EFS_commit_BME(efs_bme_t* bme, uint32_t reserved0, uint32_t reserved1);

/* Goes on to the next BM with `bme`. Statuses as EFS_commit_BME; 41 too if there is only one BM. */
YFS_API uint32_t EFS_switch_BM(efs_bme_t* bme);

/* Finds out whether BM block `bm` is blank and sets efs_ctx.next_bm_state. Takes page_buf. 0 | 22 | a medium's failure.
 */
YFS_API uint32_t EFS_check_next_BM_state(uint32_t bm);

/* ---- The blocks ---- */

/* Reads all data blocks once: erase counts, free and dirty spares. One spare without a sound header, as a cut erase
   leaves it, is erased anew with the mean of the other counts. 0 | 1 | 41: an unsound header in a block in use, more
   than one unsound spare, fewer than two data blocks | a medium's failure. Takes page_buf. */
YFS_API uint32_t EFS_scan_for_Data_Blocks_status_and_EC(void);

/* Erases a data block and writes its header with erase_count + 1. Changes no table. 0 | 22 | 41 | a medium's failure;
   after a failure the next operation scans again. */
YFS_API uint32_t EFS_erase_data_block(uint32_t physical_block, uint32_t erase_count);

/* Erases the dirty spare with the lowest erase count. 0 | 1 | 41: none is dirty, or as EFS_erase_data_block. */
YFS_API uint32_t EFS_erase_dirty_block(void);

/* Moves the least worn block in use onto the most worn spare, if their erase counts differ by the threshold. At most
   one move a call. 0 | 1 | 12 | 41 | a commit's status. */
YFS_API uint32_t EFS_wear_leveling(uint32_t reserved0, uint32_t reserved1);

/* One bounded step of background work: the erase of the next BM, or a wear-levelling move and the erase of one dirty
   spare. 0 | 1 | what the step answers. */
YFS_API uint32_t EFS_idle_reclaim(void);

/* Erases BM block `bm`. 0 | 22 | a medium's failure. */
YFS_API uint32_t EFS_erase_next_BM(uint32_t bm);

/* Erases all BMs, the one in force last, and ends the mount: the image has to be formatted then. 0 | 1 | a medium's
   failure. */
YFS_API uint32_t EFS_erase(void);

/* Puts "RDFS" over the start of BM block 0, so that the next mount passes over it. 0 | 1 | a medium's failure. */
YFS_API uint32_t EFS_write_RTFD_marker(void);

/* Formats the image that is there: no file exists, every block was erased once. 0 | 12 | 41 | 99: a file's offset above
   4072 | a medium's failure. Cut short, the image doesn't mount. */
YFS_API uint32_t EFS_do_format(void);

YFS_END_C

#ifdef __cplusplus
static_assert(sizeof(efs_file_t) == 8 && alignof(efs_file_t) == 1);
#endif
