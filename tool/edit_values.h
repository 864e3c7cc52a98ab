// Values changed in one run of the library, and put back into images and zonc.cfg.
#pragma once

#include "tool/changes.h"
#include "tool/values_document.h"

#include <string>
#include <vector>

namespace yfs::tool {

struct changed_value {
    std::string path;
    std::size_t old_size;
    std::size_t new_size;
};

// Sets all of `wanted` that isn't in force yet. Everything that a host would refuse is looked for before the first is
// set; nothing runs where the size alone forbids one. Then the copies hold the new state, and a second run over them
// has shown the values as they should be. Fails with unknown_path, no_value, too_large, empty_on_efs, not_modifiable,
// unknown_records, check_failed.
std::vector<changed_value> apply_values(session& set, const named_values& wanted, bool drop_unknown, changes& done);

// The same for a set without zonc.cfg: a table is made in any case, and no file on disk is in its way.
void build_values(session& set, const named_values& values, changes& done);

[[noreturn]] void refuse_absent_value(const session& set, const file_row& row);

} // namespace yfs::tool
