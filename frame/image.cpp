// The image under the medium. It stands apart from the chip itself, so that a replacement chip can use it too.
#include "frame/chip.h"
#include "yfs/medium.h"

uint8_t* gpBuffer = nullptr;

namespace yfs {

medium_bound gpBuffer_bound{};

void bound_medium(std::uint64_t bytes)
{
    gpBuffer_bound = {gpBuffer, bytes};
}

bool chip::built_in = false;

} // namespace yfs

uint32_t SpiFlashDrvInitialize(void* image)
{
    yfs::gpBuffer_bound = {};
    gpBuffer = static_cast<uint8_t*>(image);
    return 0;
}

void SpiFlashDrvDeinitialize(void) {}
