// The image under the medium. It stands apart from the chip itself, so that a replacement chip can use it too.
#include "yfs/medium.h"

uint8_t* gpBuffer = nullptr;

uint32_t SpiFlashDrvInitialize(void* image)
{
    gpBuffer = static_cast<uint8_t*>(image);
    return 0;
}

void SpiFlashDrvDeinitialize(void) {}
