// The steps of inspect_image(), in the order in which they build on each other.
#pragma once

#include "inspect/picture.h"

namespace yfs::inspect {

inline std::uint32_t eu_at(std::uint32_t eu)
{
    return eu * ftl::eu_size;
}

// Whether a page frame's checksum matches the page number that it is to hold.
bool frame_matches(const std::uint8_t* frame, std::uint32_t page);
bool all_blank(std::span<const std::uint8_t> bytes);

// Headers, roles, the spare.
void read_erase_units(picture& p);
// Records of the log units: slots and, for each page number, the newest copy (`places`, by page number).
void walk_logs(picture& p, std::vector<page_place>& places);
// Volume header and geometry from page 0; false if there is no volume.
bool read_volume(picture& p, const std::vector<page_place>& places);
// The chain table, its pages checked; which unit holds which group.
void read_fat(picture& p, std::vector<page_place> places);
void assign_groups(picture& p);
// Chains from the file heads; who owns which chunk.
void follow_chains(picture& p);
// Records and frames of the data units against what the files say; free space.
void check_data(picture& p);

} // namespace yfs::inspect
