// What a byte address of an image is for, in words: "EU 9, slot 12: frame".
#pragma once

#include "inspect/efs_picture.h"
#include "inspect/picture.h"

#include <cstdint>
#include <string>

namespace yfs::tool {

std::string place_text(const inspect::picture& volume, std::uint32_t address);
std::string place_text(const inspect::efs_picture& image, std::uint32_t address);

} // namespace yfs::tool
