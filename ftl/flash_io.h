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
// or they never did; the write itself is not repeated. The library's own chip is plain memory, in which what was stored
// is what stands there: nothing is left to be compared.
[[nodiscard]] inline bool write_verified(std::uint32_t at, std::uint32_t len, const void* data, void* check_buf)
{
    if (!chip::write(at, len, data)) return false;
    if (chip::built_in) return true;
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

// CRC of a page's data, keyed with the low 16 bits of its page number.
inline std::uint16_t page_crc(const std::uint8_t* data, std::uint32_t page)
{
    return crc16_of_page(data, low16(page));
}

// The frame as it goes to flash.
inline page_frame_t frame_with(const std::uint8_t* data, le16 crc)
{
    page_frame_t frame;
    std::memcpy(frame.data, data, page_bytes);
    frame.crc = crc;
    return frame;
}

// Access to one EU, whose place on the library's own chip is looked up but once.
class unit_access {
public:
    explicit unit_access(std::uint32_t at) : at_(at), bytes_(chip::in_place(at, eu_size)) {}

    template <flash_record R>
    [[nodiscard]] bool read(std::uint32_t offset, R& record) const
    {
        if (bytes_ == nullptr) return chip::read(at_ + offset, sizeof record, &record);
        record = load<R>(bytes_ + offset);
        return true;
    }
    template <flash_record R>
    [[nodiscard]] bool write_verified(std::uint32_t offset, const R& record) const
    {
        if (bytes_ == nullptr) return ftl::write_verified(at_ + offset, record);
        store(bytes_ + offset, record);
        return true;
    }
    // The frame of a page, which on the library's own chip is put together in its place.
    [[nodiscard]] bool write_frame(std::uint32_t offset, const std::uint8_t* data, le16 crc) const
    {
        if (bytes_ == nullptr) return ftl::write_verified(at_ + offset, frame_with(data, crc));
        std::memcpy(bytes_ + offset, data, page_bytes);
        store(bytes_ + offset + page_bytes, crc);
        return true;
    }

private:
    std::uint32_t at_;
    std::uint8_t* bytes_;
};

// Erases a whole EU, both halves. False at the first half that failed.
[[nodiscard]] bool erase_eu(std::uint32_t at);

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
