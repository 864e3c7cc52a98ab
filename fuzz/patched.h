// Images with some bytes changed. A run begins with a list of changes, each a place, a length of 1 to 8 and bytes; a
// bit of it tells whether the checksums around the place are made to fit again, so that runs get past the first check.
#pragma once

#include "fuzz/input.h"

namespace fuzz {

using bytes = std::vector<std::uint8_t>;

// An AFS volume of 8 units with files and a past.
bytes patched_volume(input& in);
// An EFS image, its layout set in the library's globals; the input can change the layout too.
bytes patched_efs(input& in);
// `base` with plain changes.
bytes patched(bytes base, input& in);

// A set of buffers for a run of the facade: file table with EFST, Velor.cfg, zonc partition, volume, EFS.
struct host_set {
    bytes ftbl, velor, zonc, yfs, efs;
};
const host_set& sound_set();

} // namespace fuzz
