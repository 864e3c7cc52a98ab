// What the power-cut tests count and report, and the states that the order of writes itself can't tell or repair. Each
// of these has a test for it in the picture of the cut image, so that nothing else hides behind its name.
#pragma once

#include "inspect/picture.h"

#include <cstdint>

namespace yfs::test {

struct tally {
    std::uint64_t cuts = 0, lost = 0, old_state = 0, new_state = 0;
    std::uint64_t frames = 0;            // see has_unrecorded_frames()
    std::uint64_t torn_headers = 0;      // see has_torn_header_that_checks()
    std::uint64_t torn_headers_lost = 0; // of these, the volume failed later on
    std::uint64_t random_steps = 0, random_cuts = 0;
};
// Printed at the end of the program.
tally& the_tally();

// Copies that a log reclaim programmed before their records: the volume is whole, but the next log writes go over them,
// which a real chip refuses.
bool has_unrecorded_frames(const inspect::picture& cut);
// A header cut in its erase count or before, whose checksum byte, still 0xFF, happens to match: it passes for a whole
// one with an absurd erase count. The next reclaim takes that count over, or counts 0xFFFFFFFF up to 0, which no header
// may hold.
bool has_torn_header_that_checks(const inspect::picture& cut);

} // namespace yfs::test
