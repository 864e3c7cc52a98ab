// What the targets do with what they have made. Where the library promises something for any image whatever, an abort
// tells that the promise was broken.
#pragma once

#include "fuzz/patched.h"

#include <optional>

namespace fuzz {

void must(bool holds);

// A file by its number, whole; its size has to be that of the bytes. Nothing: no such file, or the read failed.
std::optional<bytes> read_afs(std::uint32_t file, bool size_known = true);
std::optional<bytes> read_efs(std::uint32_t file);

// The rest of the input as calls: writes, deletes, maintenance, mounts. `image` is what is mounted.
void change_afs(input& in, bytes& image);
void change_efs(input& in);

// Nothing stays mounted, nor any memory: the next run begins as this one did, and leaks are seen.
void leave_afs();
void leave_efs();

} // namespace fuzz
