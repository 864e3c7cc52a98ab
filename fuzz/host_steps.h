// Runs of the facade over a set of buffers.
#pragma once

#include "fuzz/steps.h"
#include "yfs/facade.h"

namespace fuzz {

// Starts a run, with a callback that calls back.
bool start_run(host_set& set, std::uint32_t sku = 7);

// The rest of the input as calls: gets, resizes with writes through the pointers, rebuilds.
void use_values(input& in);

// What the host sees of the current values, path by path, but for those that a rebuild doesn't write back.
std::vector<std::optional<bytes>> current_values();

// The table that the last rebuild made, as a zonc partition. Nothing: there is none.
std::optional<bytes> built_partition();

// Rebuilds, ends the run, and starts it anew over the table that it has built. `same`: the values have to be the same,
// as they are unless the first start had failed and the volumes stood aside.
void end_and_repeat(host_set& set, bool same, std::uint32_t sku = 7);

} // namespace fuzz
