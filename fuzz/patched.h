// Images and tables with some places changed. A run begins with a list of changes; each is a kind of place, the place
// and its new contents, and a bit tells whether the checksums around it are made to fit again, so that runs get past
// the first check. Buffers are exactly as long as told: a step past their end is seen.
#pragma once

#include "fuzz/input.h"

namespace fuzz {

using bytes = std::vector<std::uint8_t>;

// Cut or grown, to a block of memory of just that size.
inline void set_length(bytes& of, std::size_t length)
{
    of.resize(length, 0xFF);
    of.shrink_to_fit();
}

// `change` at `at`, as far as the bytes reach.
inline void overwrite(bytes& of, std::size_t at, const bytes& change)
{
    for (std::size_t i = 0; i < change.size() && at + i < of.size(); ++i) of[at + i] = change[i];
}
// At most `most` bytes of zeros or ones, as an erase, a wipe or a cut leaves a stretch.
void fill_stretch(bytes& of, input& in, std::uint32_t most);
// One part of `size` bytes over another: two units, or blocks, that say the same.
void copy_part(bytes& of, input& in, std::uint32_t size);

// The same bytes for the same seed.
bytes some_bytes(std::size_t count, unsigned seed);

// An AFS volume of 4 or 5 units with files and a past. The input can make the buffer shorter or longer, and lift the
// sequence numbers and erase counts to their end.
bytes patched_volume(input& in);

// An EFS image, its layout set in the library's globals; the input can change layout, geometry, and the counters too.
bytes patched_efs(input& in);

// `base` with plain changes; perhaps cut or grown by some bytes.
bytes patched(bytes base, input& in);

// A set of buffers for a run of the facade: file table with EFST, Velor.cfg, zonc partition, volume, EFS.
struct host_set {
    bytes ftbl, velor, zonc, yfs, efs;
};
const host_set& sound_set();
bytes patched_host_volume(input& in);

} // namespace fuzz
