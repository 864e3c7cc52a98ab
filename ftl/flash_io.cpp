#include "ftl/flash_io.h"

namespace yfs::ftl {

bool erase_eu(std::uint32_t at)
{
    return SpiDrvEraseBlock(at) == 0 && SpiDrvEraseBlock(at + erase_block_size) == 0;
}

} // namespace yfs::ftl
