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
        return same_bytes<sizeof record>(bytes_ + offset, &record);
    }

private:
    // Word by word, which for these few bytes is shorter than a call.
    template <std::size_t count>
    static bool same_bytes(const std::uint8_t* a, const void* b)
    {
        const auto* c = static_cast<const std::uint8_t*>(b);
        std::uint64_t differ = 0;
        std::size_t i = 0;
        for (; i + sizeof differ <= count; i += sizeof differ) {
            std::uint64_t left = 0, right = 0;
            std::memcpy(&left, a + i, sizeof left);
            std::memcpy(&right, c + i, sizeof right);
            differ |= left ^ right;
        }
        for (; i < count; ++i) differ |= static_cast<std::uint64_t>(a[i] ^ c[i]);
        return differ == 0;
    }

    std::uint32_t at_;
    std::uint8_t* bytes_;
};

// Erases a whole EU, both halves. False at the first half that failed.
[[nodiscard]] bool erase_eu(std::uint32_t at);

// CRC of a page's data, keyed with the low 16 bits of its page number.
inline std::uint16_t page_crc(const std::uint8_t* data, std::uint32_t page)
{
    return crc16_of_page(data, low16(page));
}

// The frame as it goes to flash.
inline page_frame_t make_frame(const void* data, std::uint32_t page)
{
    page_frame_t frame;
    std::memcpy(frame.data, data, page_bytes);
    frame.crc = page_crc(frame.data, page);
    return frame;
}

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
