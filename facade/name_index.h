// Finds an entry of a table by its name without a walk over the list.
#pragma once

#include "yfs/cfgtable.h"

namespace yfs::facade {

// The first entry in list order whose name equals `name` over 255 characters, or null. The index is the facade's own,
// beside the record, and follows the list by itself as that grows at its end. Where there is no memory for it, the list
// is walked.
FcsFileEntry* find_by_name(const FcsTable& table, const char* name) noexcept;

// Call when entries leave the table: they do so only all at once.
void forget_names(const FcsTable& table) noexcept;

} // namespace yfs::facade
