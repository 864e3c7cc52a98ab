// Checksums by carry-less multiplication, for processors that have it: 16 bytes are folded by two multiplications where
// a table takes sixteen lookups, and four such lanes run side by side. The values are those of the tables in every
// case; the tests hold all forms against each other. Lanes take whole blocks of 16 bytes, at any address; what is left
// over is the tables' part.
#pragma once

#include <cstddef>
#include <cstdint>

namespace yfs {

inline constexpr std::size_t lane_bytes = 16;

// Found out when the library is loaded; false until then. What follows may be called only if it is true.
[[gnu::visibility("hidden")]] extern const bool has_lanes;

// The register of the CRC with polynomial 0x1021, most significant bit first, behind blocks * 16 bytes, at least 16.
std::uint16_t crc16_lanes(std::uint16_t crc, const std::uint8_t* data, std::size_t blocks);

// crc16 of the 64 bytes of a page and the two of its key, the first of which is the upper one of `key`.
std::uint16_t crc16_page_lanes(const std::uint8_t* page, std::uint16_t key);

// For the CRC with the reflected polynomial 0xEDB88320: 16 bytes that take a register of 0 to where `crc` would have
// come behind blocks * 16 bytes, at least 16.
struct crc32_rest {
    std::uint8_t bytes[lane_bytes];
};
crc32_rest crc32_lanes(std::uint32_t crc, const std::uint8_t* data, std::size_t blocks);

} // namespace yfs
