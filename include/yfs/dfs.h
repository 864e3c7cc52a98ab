/* Dispatch: the one door to file contents. A DFS file number says where a file lives: bits 0 to 10 its index, bits 11
   and 12 the file system (0 AFS, 2 EFS; 1 and 3 answer 22), bits 28 to 31 are ignored by size, read and write.

   Statuses: what a call lists comes through; any other of the file systems becomes 5. One volume a process. */
#pragma once

#include "yfs/afs.h"

YFS_BEGIN_C

/* The mounted AFS volume; null until dfs_init. */
extern YFS_API afs_context* dfs_context;

/* Mounts the AFS volume in `image`, `size` bytes, in place: the caller keeps the buffer, valid until the next dfs_init.
   A volume mounted before is released. 0 | 0xFFFFFFFF no memory for the context | 12 | 22: size outside 0x8000 to
   0x200000 | 5: no volume there. After a failure the context stays, and every AFS operation on it answers 22. */
YFS_API uint32_t dfs_init(void* image, uint32_t size);

/* 0, nothing else: the image is complete after every call. */
YFS_API uint32_t dfs_terminate(void);
YFS_API uint32_t dfs_is_fs_erased(void);

/* *size becomes the file's length. 0 | 2 no such file, or no volume | 22 | 5. */
YFS_API uint32_t dfs_getsize(uint32_t fileno, uint32_t* size);

/* At most *len bytes from `offset` on; *len becomes the bytes delivered. 0 | 2 no such file | 22 | 5. */
YFS_API uint32_t dfs_read(uint32_t fileno, uint32_t offset, uint32_t* len, void* buf);

/* `len` bytes at `offset`; `flags` bit 0: the file ends behind them. 0 | 22 | 27 too large | 28 no space | 562 | 5. A
   file on EFS is replaced whole: `offset` must be 0, `flags` don't count, and what EFS refuses as too large becomes 5.
 */
YFS_API uint32_t dfs_write(uint32_t fileno, uint32_t offset, uint32_t len, const void* buf, uint32_t flags);

/* AFS only; the number is handed down as it came, so one with any of bits 28 to 31 answers 22. 0 | 2 | 22 | 5. */
YFS_API uint32_t dfs_delete_file(uint32_t fileno);

/* Forwards to AFS with dfs_context; their statuses come through as they are. */
YFS_API uint32_t dfs_mark_zombie_file(uint32_t fileno);
YFS_API uint32_t dfs_force_full_reclaim(void);
YFS_API uint32_t dfs_force_dirty_erase(void);
YFS_API uint32_t dfs_idle_reclaim(void);
YFS_API uint8_t dfs_idle_reclaim_needed(void);
YFS_API uint8_t dfs_get_idle_reclaim_enabled(void);
YFS_API uint32_t dfs_set_idle_reclaim_enabled(void); /* always 0 */

/* A cache of 8192 / page_size lines, each of one 64-byte page. 0 | 22 page_size 0 or out of range | 12 | 5 | 99. */
YFS_API uint32_t dfs_set_page_size(uint32_t page_size);

YFS_END_C
