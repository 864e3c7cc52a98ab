// What the sample set holds: an invented device with two SKUs, as one table of files.
#pragma once

#include "tool/text.h"

#include <array>
#include <span>
#include <string_view>

namespace yfs::tool {

inline constexpr std::array<std::uint32_t, 2> sample_skus = {17, 42};
inline constexpr std::uint16_t not_in_sku = 0xFFFF;

// Contents as the table below states them: text, or a number of bytes without a pattern that a compressor would see.
struct sample_bytes {
    enum class kind : std::uint8_t { none, unavailable, text, noise };
    kind what = kind::none;
    std::string_view text;
    std::uint32_t size = 0;

    // The same bytes for the same seed, always.
    bytes make(std::uint32_t seed) const;
};

struct sample_file {
    std::string_view path;
    std::uint32_t fileno;
    std::uint16_t attributes;
    std::uint32_t limit;
    std::array<std::uint16_t, 2> index; // in the volume of each SKU
    sample_bytes velor;                 // none: no record in that table
    sample_bytes zonc;
    sample_bytes live; // in the volume, but for a tail; none: not stored
};

std::span<const sample_file> sample_files();

// Numbers without a pattern, the same from the same seed.
class sample_random {
public:
    explicit sample_random(std::uint64_t seed) : state_(seed) {}
    std::uint64_t next();
    std::uint32_t below(std::uint32_t bound) { return static_cast<std::uint32_t>(next() % bound); }

private:
    std::uint64_t state_;
};

} // namespace yfs::tool
