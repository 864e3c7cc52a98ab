/* AFS: numbered files as chains of 64-byte chunks in the address space of the FTL. Chunk c of a volume with `files`
   file heads has FAT entry c, so a chunk id is also an index into the same table; ids begin at `files`.

   A change of a file is in force with one page write, its commit: a power cut before it leaves the old contents, one
   after it the new ones.

   Statuses: 0 | 2 no such file | 5 medium or structure failure | 12 no memory | 22 argument out of range | what else a
   call names. Not thread-safe. */
#pragma once

#include "yfs/export.h"
#include "yfs/ftl.h"

YFS_BEGIN_C

typedef struct cache_line_entry {
    uint16_t link; /* bit 0 valid, bit 1 dirty, bits 2 to 15 next line in order of recency; index 0xFFF ends the list */
    uint16_t page; /* VA / page_size */
} cache_line_entry;

/* The operations of the flash layer as AFS calls them, in this order. */
typedef struct afs_physical_handler {
    uint32_t (*read_page)(struct afs_context* ctx, uint32_t va, uint32_t len, void* buf, uint32_t flash_base);
    uint32_t (*write_page)(struct afs_context* ctx, uint32_t va, uint32_t len, const void* buf, uint32_t flash_base);
    uint32_t (*trim_page)(struct afs_context* ctx, uint32_t va, uint32_t len, uint32_t flash_base);
    uint32_t (*force_full_reclaim)(struct afs_context* ctx);
    uint32_t (*force_dirty_erase)(struct afs_context* ctx);
} afs_physical_handler;

extern YFS_API const afs_physical_handler afs_physical_spi_handler;

/* One mounted volume. What it points to is owned by it, but for `image` and `staging`. */
typedef struct afs_context {
    uint32_t fat_size;      /* bytes of FAT area: start of the data area in VA */
    uint32_t scan_next;     /* cursor of the plain search for a free chunk */
    uint32_t flash_base;    /* offset of the volume in the image */
    uint32_t flash_size;    /* bytes of flash */
    uint32_t volume_size;   /* bytes of VA space */
    uint32_t header_word;   /* bytes 4 to 7 of the volume header */
    uint32_t last_fat_page; /* VA of the FAT page last seen by the FAT trim */
    struct ftl_context* ftl;
    const afs_physical_handler* handler;
    uint32_t* alloc_map;          /* one bit a chunk, set when in use: bit i & 31 of word i >> 5 */
    cache_line_entry* line_table; /* the library's own: to be read, never changed */
    uint16_t cache_head;          /* most recently used line */
    uint32_t* file_sizes;         /* bytes of each file, 0xFFFFFFFF for none; may be null */
    uint8_t* cache_data;          /* line_count lines of 64 bytes */
    uint8_t* staging;             /* 4096 bytes, given by the caller of afs_init before the call */
    uint16_t chunks;
    uint16_t page_size; /* as last asked for; a line holds a page of 64 bytes all the same */
    uint16_t line_count;
    uint16_t files;
    uint8_t sub_partition; /* always 0: a volume over the FTL */
    uint8_t ftl_allocator; /* 1: chunks come from the FTL */
    uint8_t no_alloc_map;  /* 1: the volume runs without alloc_map, for reading only */
    uint8_t idle_reclaim_enabled;
    void* image;

    /* The library's own: one bit a chunk that lies on more than one chain; null in a sound volume. */
    uint32_t* shared_map;
} afs_context;

/* Opens a volume. ctx is zeroed, but for `staging`, or one that afs_init filled before: nothing of a volume opened
   before reaches the new one, unflushed lines are dropped. (Flag 0x40 zeroes ctx, `staging` included: it is set after
   the call then, and what ctx owned is not released.) page_size is 64 over the FTL; cache_lines 2 to 1000; files 65 to
   2048, used only for a new header; flash_size 0x8000 to 0x200000. Flags: 0x1 keep file_sizes | 0x6 must be 0x4 | 0x8
   read only, without alloc_map | 0x10 create a missing header | 0x20 mount the FTL here | 0x40 zero ctx | 0x80 read the
   first pages ahead | 0x100 treat the FTL mount as failed, create a header | 0x20000 attach the medium | 0x40000 a
   failed FTL mount formats | 0x80000 the same, erasing first. 0 | 22 | 12 | 5: no mountable EUs, no header, a header
   that contradicts itself or the flash, a corrupt chain. Writes nothing but a new header, if asked to, and the commit
   byte that a cut reclaim left missing. A failed call leaves in ctx what was built so far; afs_free_context releases
   it. */
YFS_API uint32_t afs_init(afs_context* ctx, void* image, uint32_t page_size, uint32_t cache_lines, uint32_t files,
                          uint32_t flash_base, uint32_t flash_size, uint32_t flags, uint8_t header_byte4,
                          uint32_t header_field12);

/* Makes the cache anew: page_size 64 to 65535 and a multiple of 64, cache_lines 2 to 1000. Dirty lines are flushed
   first. 0 | 22 | 12: the old cache stays | a flush's status | 99: half a cache was there. */
YFS_API uint32_t afs_setcache(afs_context* ctx, uint32_t page_size, uint32_t cache_lines);

/* *size becomes the length of file number `file` in bytes. 0 | 2 free number or zombie | 22 | 5. */
YFS_API uint32_t afs_getfilesize(afs_context* ctx, int32_t file, uint32_t* size);

/* Reads at most *len bytes of file number `file` from byte `offset` on into `buf`; *len becomes the bytes delivered, 0
   at or behind the end. 0 | 2 free number or zombie | 22 null ctx, number out of range, *len above INT32_MAX | 5.
   On any but 0 *len is unchanged and `buf` may hold a beginning. Flash changes only if a line that the mount left
   dirty (a cleared zombie mark) has to make room in the cache. */
YFS_API uint32_t afs_readfile(afs_context* ctx, int32_t file, uint32_t offset, uint32_t* len, void* buf);

/* Changes a file: `len` bytes of `buf` at byte `offset`. `flags` bit 0: the file ends at offset + len afterwards;
   clear: bytes behind the new ones stay. A gap before `offset` reads as zeros. len 0 creates an empty file, or with bit
   0 cuts or extends it to `offset`. A zombie's number counts as free. `buf` doesn't lie in the cache. 0 | 22 | 27: the
   file would pass 0x40000 bytes | 28 | 12 | 5. On any but 0 the old file stands, unless the switching page was written
   already. */
YFS_API uint32_t afs_writefile(afs_context* ctx, int32_t file, uint32_t offset, uint32_t len, const void* buf,
                               uint32_t flags);

/* Deletes a file; an empty file and a zombie too. 0 | 2: a free number | 22 | 5. */
YFS_API uint32_t afs_deletefile(afs_context* ctx, int32_t file);

/* Marks a free number as zombie: it reads as no file, and the next mount frees it. 0 | 22 | 99: number in use | 5. */
YFS_API uint32_t afs_mark_zombie_file(afs_context* ctx, int32_t file);

/* *next becomes FAT entry `cid`. 0 | 5: not a value that such an entry may hold (*next is set all the same), or the
   walk has taken `chunks` steps. A `cid` that is a file head starts a new walk. */
YFS_API uint32_t afs_get_next_cid(afs_context* ctx, uint16_t cid, uint16_t* next);

/* Gives a free chunk id. 0 | 65533 flush the cache and call again | 28 | 5 | 12. */
YFS_API uint32_t afs_allocate_chunk(afs_context* ctx, uint16_t* cid);

/* Gives up to `count` chunks back from `first` on; the following ones come from `list`, or from the FAT where it is
   null. `invalidate` drops all cached lines first. 0 | 5. */
YFS_API uint32_t afs_release_resources(afs_context* ctx, uint16_t first, uint32_t count, const uint16_t* list,
                                       bool invalidate);

/* Gives a FAT page back to the FTL once a walk of freed chunks (data-area indices) has left it and it describes none
   in use. `chunk` = ctx->chunks settles the page last seen. */
YFS_API void afs_trim_fat_page_if_needed(afs_context* ctx, uint16_t chunk);

/* Maintenance: forwards to the FTL. A null or unopened ctx: 22, or false. */
YFS_API uint32_t afs_idle_reclaim(afs_context* ctx);
YFS_API uint8_t afs_idle_reclaim_needed(afs_context* ctx);
YFS_API uint32_t afs_force_full_reclaim(afs_context* ctx);
YFS_API uint32_t afs_force_dirty_erase(afs_context* ctx);
YFS_API uint8_t afs_get_idle_reclaim_enabled(afs_context* ctx);
YFS_API void afs_set_idle_reclaim_enabled(afs_context* ctx);

/* Access to a volume that lies directly on flash, without an FTL; nothing in this library calls them. */
YFS_API uint32_t afs_sub_pt_read(afs_context* ctx, uint32_t addr, uint32_t len, void* buf);
YFS_API uint32_t afs_sub_pt_write(afs_context* ctx, uint32_t addr, uint32_t len, const void* buf);
YFS_API uint32_t afs_sub_pt_trim(void);

/* Releases file_sizes; sizes then come from the chains. A null ctx is ignored. */
YFS_API void afs_free_file_size_table(afs_context* ctx);

/* Releases all that ctx owns and sets the pointers to null; not staging, not ctx itself. A null ctx is ignored.
   Nothing is flushed: every operation that changed something did so itself. */
YFS_API void afs_free_context(afs_context* ctx);

/* The page cache: write-back, least recently used line first to go. */
YFS_API uint32_t cache_init(afs_context* ctx, uint32_t page_size, uint32_t line_count);

/* *out points to the bytes of cache page `page` (VA / page_size), valid until that line has to make room. 0 | the
   status of the page write or read that failed; the line then keeps what it held. */
YFS_API uint32_t cache_ptr(afs_context* ctx, uint16_t page, void** out);

/* The line that `ptr` points into was changed. */
YFS_API void cache_line_written(afs_context* ctx, const void* ptr);

/* Writes all dirty lines, strictly from the least to the most recently used. 0 | a page write's status; what wasn't
   written stays dirty. */
YFS_API uint32_t cache_flush(afs_context* ctx);

/* Drops every line unwritten. */
YFS_API void cache_invalidate(afs_context* ctx);

YFS_END_C
