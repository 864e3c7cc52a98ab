// An edit that is made, recorded and not saved: what trace shows, cut stops in the middle, and torture goes through.
#pragma once

#include "tool/flash_recorder.h"
#include "tool/verbs.h"

#include <array>
#include <string>

namespace yfs::tool {

// Both images of a session; empty where it lacks one.
struct image_pair {
    bytes afs, efs;

    bytes& of(image_kind kind) { return kind == image_kind::afs ? afs : efs; }
    const bytes& of(image_kind kind) const { return kind == image_kind::afs ? afs : efs; }
    friend bool operator==(const image_pair&, const image_pair&) = default;
};

struct trial {
    std::string what;
    image_pair before, after;
    // From `before` to `after`; what the library does on the way out, and nobody saves, isn't among them.
    std::vector<flash_operation> operations;
};

// Fails as the edit does.
trial try_edit(session& set, const options& given);

} // namespace yfs::tool
