// Maps as text of 80 columns.
#pragma once

#include "tool/map_model.h"

#include <string>

namespace yfs::tool {

struct map_style {
    bool ascii = false;
    bool colour = false;
    bool wear = false;                 // bars of erase counts in place of the slots
    std::optional<std::uint32_t> file; // this one stands out
};

std::string map_text(const image_map& map, const map_style& style);

// One erase unit, slot by slot.
std::string unit_text(const image_map& map, std::uint32_t eu);

} // namespace yfs::tool
