// The files of an image as a reader sees them that knows nothing of the code that writes images: for comparing two
// states of one image, or two images.
#pragma once

#include "inspect/findings.h"
#include "tool/image.h"

#include <map>
#include <set>
#include <vector>

namespace yfs::tool {

struct contents_view {
    std::vector<inspect::finding> faults;
    std::map<std::uint32_t, bytes> files; // by number; damaged ones as they lie
    std::set<std::uint32_t> damaged;
};

contents_view view_contents(const image_ref& ref, std::span<const std::uint8_t> image, image_kind kind);

} // namespace yfs::tool
