// A new image with the contents of a damaged one: for images that no mount takes, or whose damage no mount mends.
#pragma once

#include "tool/session.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace yfs::tool {

// What can be read of an image without mounting it.
struct salvage {
    std::map<std::uint32_t, bytes> sound; // by file number
    std::vector<std::uint32_t> damaged;   // files whose contents can't be read whole
    std::string doubt;                    // why none of them is certain to be the newest state; empty if all are
};

// Nothing if not even the files that there are can be told.
std::optional<salvage> salvage_image(const working_copy& image, image_kind kind);

// Tells what of an image can't be saved, and whether the rest is certain.
void list_losses(const session& set, const working_copy& image, image_kind kind, const salvage& saved);
// The row of the file table for a file by its number, or one that stands in for it.
file_row row_in(const session& set, image_kind kind, std::uint32_t file);

// An image of the same geometry with these files. Units of AFS keep their erase counts, each one higher. Fails with
// volume_full where the files don't fit a fresh volume of that size, with volume_damaged, efs_damaged.
bytes rebuild_image(const working_copy& image, image_kind kind, const std::map<std::uint32_t, bytes>& files);

} // namespace yfs::tool
