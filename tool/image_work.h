// Work on mounted images that changes no file, as reclaim, wipe and repair need it.
#pragma once

#include "tool/session.h"

#include <string_view>

namespace yfs::tool {

// Fails with volume_damaged unless `status` is 0.
void expect(std::uint32_t status, const working_copy& image, std::string_view step);

// Every erase unit of the mounted volume once, whether it is worth while or not.
void reclaim_all_units(const working_copy& image);
// Only what gains room.
void reclaim_worthwhile(const working_copy& image);
// The background work of the mounted EFS, until it finds nothing more to do.
void settle_efs(const working_copy& image);

} // namespace yfs::tool
