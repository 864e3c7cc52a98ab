// What the sample set holds: an invented device with two SKUs, as one table of files and the layout of its EFS.
#pragma once

#include "efs/layout.h"
#include "tool/text.h"

#include <array>
#include <optional>
#include <span>
#include <string_view>

namespace yfs::tool {

inline constexpr std::array<std::uint32_t, 2> sample_skus = {17, 42};
inline constexpr std::size_t own_sku = 0; // of sample_skus: the one that the set file names
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

// Where a file lies in the EFS of both SKUs; its largest size is the file's limit.
struct efs_place {
    std::uint16_t first_block;
    std::uint16_t offset;
};

struct sample_file {
    std::string_view path;
    std::uint32_t fileno;
    std::uint16_t attributes;
    std::uint32_t limit;
    std::array<std::uint16_t, 2> index; // in its file system, for each SKU
    sample_bytes velor;                 // none: no record in that table
    sample_bytes zonc;
    sample_bytes live;                    // in its image, but for a tail; none: not stored
    std::optional<efs_place> on_efs = {}; // nothing: the file is in the volume
};

std::span<const sample_file> sample_files();

inline constexpr efs::geometry sample_efs_geometry = {.bm_num = 2, .valid_block_num = 7, .non_valid_block_num = 4};
inline constexpr std::uint32_t sample_efs_entries = 16;
// Low, so that a short past is enough to level wear.
inline constexpr std::uint32_t sample_efs_threshold = 20;

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
