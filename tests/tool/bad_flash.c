/* A chip that, with every write, spoils one byte elsewhere: YFS_SPOIL is its address. */
#include "yfs/medium.h"

#include <stdlib.h>
#include <string.h>

uint32_t SpiDrvWrite(uint32_t addr, uint32_t len, const void* buf)
{
    memcpy(gpBuffer + addr, buf, len);
    gpBuffer[strtoul(getenv("YFS_SPOIL"), NULL, 0)] = 0x5A;
    return 0;
}
