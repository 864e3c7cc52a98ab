/* Making an EFS image where none was. */
#pragma once

#include "yfs/export.h"

YFS_BEGIN_C

/* Lays a formatted EFS image of the loaded geometry into `image`: no file exists, every data block was erased once, BM
   0 is in force. Touches no medium and no mounted image; the buffer stays the caller's. 0 | 1: no autogen data loaded |
   12 | 22: null image, or `size` isn't EFS_get_efs_size() | 41: a geometry that the format can't carry | 99: a file's
   offset above 4072. On any but 0 the buffer is untouched. */
YFS_API uint32_t yfs_make_efs(void* image, uint32_t size);

YFS_END_C
