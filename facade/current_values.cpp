// The merge: precedence between the tables is settled here, once, and every later lookup goes to one table alone.
#include "facade/facade_internal.h"
#include "facade/name_index.h"

namespace yfs::facade {

// The value in force for a file of the defaults: that of zonc.cfg where it has one, whatever that one's state.
static owned_entry value_in_force(const FcsFileEntry& fallback, const FcsTable& zon)
{
    if (const FcsFileEntry* const overriding = find_by_name(zon, fallback.name)) {
        if (owned_entry copy{copyFileEntry(overriding)}) return copy;
        report(yfs_error_out_of_memory); // the default stands in: never without a word
    }
    return owned_entry(copyFileEntry(&fallback));
}

bool yeYfsGenerateFcsCurrentsTable(const FcsTable& velor, const FcsTable& zon, FcsTable& current)
{
    current = {};
    current.name = FCS_CURRENT_VALUES;
    if (!open_empty_tree(current)) {
        report(yfs_error_create_current_values);
        return false;
    }
    for (const FcsFileEntry* entry = velor.head; entry != nullptr; entry = entry->next) {
        if (!carried(*entry)) continue;
        // A file that can't be added is missing from the current values, and the others are there all the same.
        owned_entry value = value_in_force(*entry, zon);
        if (yeYfsAddNewFileFcs(current, value.get(), false)) value.release(); // NOLINT(bugprone-unused-return-value)
    }
    return true;
}

} // namespace yfs::facade
