// What the sound images of the targets are made of, where one of them has to agree with another.
#pragma once

#include "efs/layout.h"
#include "fuzz/input.h"
#include "yfs/efs.h"

namespace fuzz {

inline constexpr yfs::efs::geometry efs_shape = {2, 4, 3};
inline constexpr std::uint32_t efs_wear_threshold = 4;
const std::vector<efs_file_t>& efs_layout();

const std::vector<std::uint8_t>& efs_base_image();
const std::vector<std::uint8_t>& host_volume_image();

} // namespace fuzz
