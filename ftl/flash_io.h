// Access to the chip as the translation layer makes it: reads that are checked up to seven times, writes that are read
// back up to seven times. Nobody else loops by hand.
#pragma once

#include "frame/chip.h"
#include "frame/crc.h"
#include "ftl/eu_layout.h"

namespace yfs::ftl {

inline constexpr int tries = 7;

// One read; false if the chip failed.
[[nodiscard]] inline bool read_flash(std::uint32_t at, std::uint32_t len, void* buf)
{
    return chip::read(at, len, buf);
}

// Writes `len` bytes at `at` and reads them back, perhaps into `check_buf`, until they match. False if the chip failed
// or they never did; the write itself is not repeated.
[[nodiscard]] inline bool write_verified(std::uint32_t at, std::uint32_t len, const void* data, void* check_buf)
{
    if (!chip::write(at, len, data)) return false;
    for (int t = 0; t < tries; ++t) {
        const std::uint8_t* const seen = chip::look(at, len, check_buf);
        if (seen == nullptr) return false;
        if (std::memcmp(seen, data, len) == 0) return true;
    }
    return false;
}

// The same for what fits on the stack: a header, a record, a page frame, a byte.
template <flash_record R>
[[nodiscard]] bool write_verified(std::uint32_t at, const R& record)
{
    R check;
    return write_verified(at, sizeof record, &record, &check);
}

// Erases a whole EU, both halves. False at the first half that failed.
[[nodiscard]] bool erase_eu(std::uint32_t at);

// CRC of a page's data, keyed with the low 16 bits of its page number.
inline std::uint16_t page_crc(const std::uint8_t* data, std::uint32_t page)
{
    const le16 key = low16(page);
    return crc16_of_page(data, key.byte);
}

// The frame as it goes to flash.
page_frame_t make_frame(const void* data, std::uint32_t page);

// Reads a run of frames until page_of(i) is the key that fits the i-th. Null if the chip failed or a frame stayed
// wrong; else the frames, in `buf` or where they stand on the flash: they are to be used before the next write.
template <typename PageOf>
[[nodiscard]] const std::uint8_t* look_at_checked_frames(std::uint32_t at, std::uint32_t count, std::uint8_t* buf,
                                                         PageOf page_of)
{
    for (int t = 0; t < tries; ++t) {
        const std::uint8_t* const frames = chip::look(at, count * frame_size, buf);
        if (frames == nullptr) return nullptr;
        std::uint32_t i = 0;
        while (i < count) {
            const std::uint8_t* frame = frames + i * frame_size;
            if (load<le16>(frame + page_bytes) != page_crc(frame, page_of(i))) break;
            ++i;
        }
        if (i == count) return frames;
    }
    return nullptr;
}

} // namespace yfs::ftl
