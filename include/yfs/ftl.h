/* The flash translation layer (FTL): 64-byte pages at virtual addresses (VA), kept on 8192-byte erase units (EU) so
   that a page can be rewritten and a power cut at any byte leaves a state that the next mount resolves.

   VAs below fat_size are the FAT area, written to a log; VAs from there to volume_size are the data area, mapped
   directly, 122 pages a group, a group on one EU. One more EU, the spare, is the target of the next reclaim.

   Statuses: 0 | 5 medium failure, wrong CRC after 7 reads, or EUs that contradict each other | 12 no memory |
   28 no space | what else a call names. A call that fails leaves the pages that were there. */
#pragma once

#include "yfs/export.h"

YFS_BEGIN_C

struct afs_context;

/* One erase unit, in memory. */
typedef struct ftl_eu_entry {
    uint32_t seq;         /* from the header */
    uint32_t erase_count; /* from the header */
    uint16_t base_page;   /* from the header: first page of the group; 0 for log EUs and for the spare */
    uint8_t dirty;        /* slots that hold no live page: stale, trimmed or never written */
    uint8_t free;         /* log EU: 1 while it holds no record at all; data EU: slots whose record reads 0xFF */
} ftl_eu_entry;

/* Where the newest copy of a FAT page stands; slot 0xFF: nowhere, it reads as zeros. */
typedef struct ftl_page_entry {
    uint8_t eu;
    uint8_t slot;
} ftl_page_entry;

/* The FTL's working memory; owned by the afs_context that points to it. */
typedef struct ftl_context {
    uint32_t seq;             /* highest sequence number in use */
    uint32_t log_eu;          /* the EU that takes log writes; 0xFFFFFFFF while none is known */
    uint32_t log_slot;        /* next free slot there; 120 is full */
    uint32_t alloc_next;      /* allocation cursor: page index in the data area; 0xFFFFFFFF: no group is open */
    uint32_t alloc_end;       /* the index behind the open group */
    ftl_eu_entry* eu_table;   /* eu_count entries; to be read: a group that a program moves there may not be seen */
    ftl_page_entry* page_map; /* fat_size / 64 entries */
    uint16_t spare_eu;
    uint16_t last_page;        /* page of the newest committed record in log_eu: the chain value of the next */
    uint8_t alloc_check_flash; /* 1: a clear bit in the map isn't enough, the slot's record decides */
    uint8_t alloc_flush_asked; /* 1: the caller has been asked to flush; the next exhaustion reclaims */
    uint8_t eu_count;          /* flash_size / 8192 */
    uint8_t log_eu_count;      /* eu_count - 1 - data EUs */
    uint8_t full_reclaim_next; /* place of the forced reclaim between its calls */
    uint32_t eu_entries;       /* length of eu_table */
    uint32_t page_entries;     /* length of page_map */
    uint8_t missing_commit;    /* 1: the mount took an EU as done whose commit byte still reads 0xFF on flash */
    uint8_t missing_commit_eu; /* that EU */
    uint8_t group_owner[256];  /* the EU last found to hold a group, for lookups; counts while eu_table agrees */
} ftl_context;

/* Mounts the EUs of ctx->flash_base, flash_size, with ctx->fat_size and ctx->volume_size already set. Reads only.
   `flags`: 0x10000 allocates ctx->ftl and its tables (releasing those held), else the held ones are used again;
   0x20000 attaches ctx->image to the medium. 0 | 5 | 12. A failed mount leaves the tables as far as they got. */
YFS_API uint32_t afs_physical_ftl_init(struct afs_context* ctx, uint32_t flash_size, uint32_t flags);

/* Fills `dirty` and `free` of the data EUs from ctx->alloc_map and places the allocation cursor; once, at the end of a
   mount. 0 | 5: a read failed, a page in use isn't complete on flash, or a data EU's group lies outside the volume. */
YFS_API uint32_t afs_physical_ftl_set_allocation_map(struct afs_context* ctx);

/* Bytes of data area that a flash of ctx->flash_size can carry; `fat_bytes` isn't used. */
YFS_API uint32_t afs_physical_ftl_get_data_vas(struct afs_context* ctx, uint32_t fat_bytes);

/* Reads the page at `va`, a multiple of 64, into the 64 bytes of `buf`; `len` and `flash_base` are ignored. A page
   that was never written, or a data page not in use, reads as zeros. 0 | 5, `buf` then unchanged. */
YFS_API uint32_t afs_physical_ftl_read_page(struct afs_context* ctx, uint32_t va, uint32_t len, void* buf,
                                            uint32_t flash_base YFS_DEFAULT(0));

/* Reads `count` data pages from `va` on. `buf` holds count * 66 bytes; the data stand packed, 64 bytes a page, from its
   start. A run covers at most two EUs. If the first page isn't in use, 64 zero bytes and 0, whatever `count`. 0 | 5. */
YFS_API uint32_t afs_physical_ftl_read_data_pages(struct afs_context* ctx, void* buf, uint32_t va, uint32_t count);

/* Writes the 64 bytes of `buf` as the page at `va`. A FAT page goes to the log, which may take a whole reclaim; a data
   page goes to its fixed slot, once between two reclaims of its EU. 0 | 5: a verified write failed, or the data slot
   isn't blank | a reclaim's status. Until its last flash write the old page is in force. */
YFS_API uint32_t afs_physical_ftl_write_page(struct afs_context* ctx, uint32_t va, uint32_t len, const void* buf,
                                             uint32_t flash_base YFS_DEFAULT(0));

/* The contents of the page at `va` are no longer needed. A change in memory only; the next mount maps the last copy of
   a FAT page again, harmlessly. Always 0. */
YFS_API uint32_t afs_physical_ftl_trim_page(struct afs_context* ctx, uint32_t va, uint32_t len YFS_DEFAULT(0),
                                            uint32_t flash_base YFS_DEFAULT(0));

/* Gives a free chunk: *cid is files + its index in the data area. It counts as used once its page is written.
   0 | 65533: flush the cache and call again | 28 | 5 | 12. May run a reclaim. */
YFS_API uint32_t afs_physical_ftl_allocate_page(struct afs_context* ctx, uint16_t* cid);

/* True if a reclaim in idle time is worth while. Then *hint is the EU recommended, or 0xFFFFFFFF for none, and
 *is_data tells its kind; otherwise both stay as they were. */
YFS_API uint8_t afs_physical_ftl_idle_reclaim_needed(struct afs_context* ctx, uint32_t* hint, uint32_t* is_data);

/* One reclaim if one is worth while. 0 | 38807: it was made but gained no slot | 5 | 12. */
YFS_API uint32_t afs_physical_ftl_idle_reclaim(struct afs_context* ctx);

/* Lays a new EU structure for the volume_size and fat_size in ctx; ctx->ftl is allocated and its counts match them.
   With `erase` set every EU is erased first, else only headers are written. 0 | 5: the flash is half formatted. */
YFS_API uint32_t afs_physical_ftl_format(struct afs_context* ctx, uint8_t erase);

/* Reclaims the next data EU of a pass over all of them. 11: call again | 0: the pass is over | 5 | 12, and the next
   call goes on at the same EU. */
YFS_API uint32_t afs_physical_ftl_force_full_reclaim(struct afs_context* ctx);

/* Overwrites with zeros the frames that hold no live page: dead slots of data EUs, all slots of the spare.
   0 | 5 | 22: null ctx, or no FTL. */
YFS_API uint32_t afs_physical_ftl_force_dirty_erase(struct afs_context* ctx);

/* Rewrites the first two EUs of the flash and leaves EU 1 as the spare. 0 | a reclaim's status. */
YFS_API uint32_t afs_physical_ftl_end_reserved_files_mode(struct afs_context* ctx);

YFS_END_C
