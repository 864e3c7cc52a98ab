/* The file table ftbl.bin and the mini VFS over it: what ties a file's path to its numbers, attributes and size limit.

   A file has two numbers. Its fileno_t is the key by which cfg tables name it; the DFS file number, by which its
   contents are reached (yfs/dfs.h), is composed from other fields of its entry. Neither is the other.

   The active table is process-wide. It points into the buffer that was given to load_file_table: that buffer must stay
   valid and unchanged as long as the table is active. Not thread-safe. */
#pragma once

#include "yfs/le.h"

YFS_BEGIN_C

typedef uint32_t fileno_t;
typedef uint16_t file_attributes_t;

enum {
    YFS_FTBL_NAME_LENGTH = 48, /* bytes of a name field; a name that fills it has no terminator */
    YFS_FTBL_MIN_BYTES = 1024, /* a shorter buffer is no file table */
    YFS_FTBL_MAX_SKUS = 10
};

/* Head of the table; the rows of the SKUs follow at once. */
typedef struct ftbl_header_t { /* at */
    yfs_le32 magic;            /*  0  "FTBL" */
    uint8_t unread[8];         /*  4 */
    yfs_le32 sku_count;        /* 12  rows, at most 10 */
} ftbl_header_t;

typedef struct ftbl_sku_entry_t { /* at */
    yfs_le32 sku;                 /*  0 */
    yfs_le32 table_offset;        /*  4  of the first file entry, from the start of the buffer */
    yfs_le32 num_files;           /*  8  file entries */
    uint8_t unread[4];            /* 12 */
} ftbl_sku_entry_t;

typedef struct ftbl_file_entry_t {   /* at */
    char name[YFS_FTBL_NAME_LENGTH]; /*  0  full path */
    yfs_le32 fileno;                 /* 48  its top four bits are also those of the DFS file number */
    yfs_le16 attributes;             /* 52  file_attributes_t */
    uint8_t unread_54[4];            /* 54 */
    yfs_le16 file_index;             /* 58  low 11 bits: index in its file system */
    uint8_t unread_60[3];            /* 60 */
    uint8_t fs_selector;             /* 63  bits 11 to 18 of the DFS file number; 1 counts as 0: AFS */
    yfs_le32 maxSize;                /* 64  bytes of the largest payload */
} ftbl_file_entry_t;

/* The active table. All three are set by load_file_table once it has found the SKU, and never cleared. A program may
   set the first two itself: all lookups then go through what it set. */
extern YFS_API const ftbl_file_entry_t* g_table_buf; /* null until a table is loaded */
extern YFS_API int32_t g_table_num_files;            /* entries; below 1: an empty table */
extern YFS_API uint32_t g_dfs_sku;                   /* 0xFFFFFFFF until a table is loaded */

/* Makes the file entries of `sku` in `buffer`, `length` bytes, the active table, and hands the three arguments to
   load_autogen_data. 0 | 1: not a file table (null, below 1024 bytes, wrong magic, more than 10 rows), the file entries
   begin behind the buffer, or load_autogen_data failed; in that last case the active table is the new one already.
   A `sku` that no row names leaves the active table as it is and is no failure by itself. Entries that run out of the
   buffer are not refused; lookups stop at the last one that lies wholly inside. */
YFS_API uint32_t load_file_table(const void* buffer, uint32_t sku, uint32_t length);

/* Lookups in the active table; the first entry in its order wins. A name is compared as by strncmp over 48 characters,
   so a longer query finds a 48-character name that it begins with. A null query finds nothing. */

/* The entry, inside the buffer of the table and read-only, or null. */
YFS_API const ftbl_file_entry_t* get_file_entry_by_file_name(const char* name);
YFS_API const ftbl_file_entry_t* get_file_entry_by_fileno(const fileno_t* fileno);

/* 0 and *fileno | -1: no such name, *fileno unchanged. */
YFS_API int32_t get_fileno_by_file_name(const char* name, fileno_t* fileno);

/* 0 and the 48 bytes of the name field in `name` (no terminator behind a 48-character name) | -1: no such number. */
YFS_API int32_t get_file_name_by_fileno(const fileno_t* fileno, char* name);

/* 0, *attributes and *max_size | -1: no such name, or a null max_size; nothing is written then. */
YFS_API int32_t get_file_attributes_by_file_name(const char* name, file_attributes_t* attributes, uint32_t* max_size);

/* Mini VFS: paths are the names of the file table as they stand, nothing is put in front. */

/* Mounts the AFS volume in `image`, `size` bytes, as dfs_init does. 0 | 1: any failure. */
YFS_API uint32_t mini_vfs_init(void* image, uint32_t size);

/* *number becomes the DFS file number of `path`. 0 | 1: null `number` | 2: no such path, *number unchanged. */
YFS_API uint32_t pathToFileNumber(const char* path, uint32_t* number);

/* Reads up to `length` bytes of the file `path` from byte `offset` on into `buffer`. 0, also where the file ended
   before `length` bytes | 2: no such path | 6: the read failed, also for want of such a file. */
YFS_API uint32_t readVfs(const char* path, uint32_t offset, void* buffer, uint32_t length);

YFS_END_C

#ifdef __cplusplus
static_assert(sizeof(ftbl_header_t) == 16 && yfs::flash_record<ftbl_header_t>);
static_assert(sizeof(ftbl_sku_entry_t) == 16 && yfs::flash_record<ftbl_sku_entry_t>);
static_assert(sizeof(ftbl_file_entry_t) == 68 && yfs::flash_record<ftbl_file_entry_t>);
#endif
