// An EFS image to measure on.
#pragma once

#include "bench/scenario.h"

namespace bench {

// A small file in a block that it shares with nothing, and a long one on the blocks behind it.
inline constexpr std::uint32_t small_file = 0, long_file = 1;
inline constexpr std::uint32_t small_size = 1024, long_size = 12 * 1024;

inline constexpr std::uint32_t default_spares = 3, many_spares = 8;

// A formatted image of the default geometry but for its spare blocks, the state from which a run starts and the buffer
// in which it runs. The geometry is the library's global one, so each run sets it anew.
class efs_image {
public:
    explicit efs_image(std::uint32_t spares);

    void reset();
    void keep() { start_ = image_; }
    void mount();

private:
    void set_geometry() const;

    std::uint32_t spares_;
    std::vector<std::uint8_t> start_;
    std::vector<std::uint8_t> image_;
};

void put_efs(std::uint32_t file, const std::vector<std::uint8_t>& content);

} // namespace bench
