// Maps as pictures to scale: SVG, and HTML pages with one inside. Self-contained, without scripts; colours follow the
// reader's light or dark mode, and each state has a pattern of its own for print.
#pragma once

#include "tool/map_model.h"

#include <string>
#include <vector>

namespace yfs::tool {

std::string map_svg(const std::vector<image_map>& maps);
std::string map_html(const std::vector<image_map>& maps, std::string_view title, std::string_view extra = {});

// For text between tags and in attributes.
std::string escaped_xml(std::string_view text);

} // namespace yfs::tool
