/* Making an AFS volume where none was. */
#pragma once

#include "yfs/export.h"

YFS_BEGIN_C

/* Lays a formatted, empty AFS volume into `image`, so that dfs_init(image, size) opens it. `size` is 0x8000 to 0x1FE000
   bytes (4 to 255 erase units; bytes behind the last whole unit are erased), `files` the number of file heads, 65 to
   2048. As many of the units hold data as the log allows: E - 1 - E / 12 of E, or fewer where the log would not have
   room for the whole FAT with one unit to spare. Touches no medium and no mounted volume.
   0 | 22: null image, or size or files out of range; the buffer is untouched. */
YFS_API uint32_t yfs_make_volume(void* image, uint32_t size, uint32_t files);

YFS_END_C
