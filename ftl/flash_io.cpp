#include "ftl/flash_io.h"

#include "frame/crc.h"
#include "yfs/medium.h"

namespace yfs::ftl {

bool read_flash(std::uint32_t at, std::uint32_t len, void* buf)
{
    return SpiDrvRead(at, len, buf) == 0;
}

bool write_verified(std::uint32_t at, std::uint32_t len, const void* data, void* check_buf)
{
    if (SpiDrvWrite(at, len, data) != 0) return false;
    for (int t = 0; t < tries; ++t) {
        if (SpiDrvRead(at, len, check_buf) != 0) return false;
        if (std::memcmp(check_buf, data, len) == 0) return true;
    }
    return false;
}

bool erase_eu(std::uint32_t at)
{
    return SpiDrvEraseBlock(at) == 0 && SpiDrvEraseBlock(at + erase_block_size) == 0;
}

std::uint16_t page_crc(const void* data, std::uint32_t page)
{
    const le16 key = low16(page);
    return crc16_of_page(static_cast<const std::uint8_t*>(data), key.byte);
}

page_frame_t make_frame(const void* data, std::uint32_t page)
{
    page_frame_t frame;
    std::memcpy(frame.data, data, page_bytes);
    frame.crc = page_crc(data, page);
    return frame;
}

} // namespace yfs::ftl
