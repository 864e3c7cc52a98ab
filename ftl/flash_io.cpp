#include "ftl/flash_io.h"

namespace yfs::ftl {

bool erase_eu(std::uint32_t at)
{
    return SpiDrvEraseBlock(at) == 0 && SpiDrvEraseBlock(at + erase_block_size) == 0;
}

page_frame_t make_frame(const void* data, std::uint32_t page)
{
    page_frame_t frame;
    std::memcpy(frame.data, data, page_bytes);
    frame.crc = page_crc(frame.data, page);
    return frame;
}

} // namespace yfs::ftl
