// The active file table as the layers above search it.
#pragma once

#include "vfs/table_index.h"
#include "yfs/vfs.h"

namespace yfs::vfs {

// The entries that lookups may touch: g_table_buf and g_table_num_files, less what runs out of the buffer of the last
// load.
table_view active_table();

// The first entry of that number or name, or null. A null name finds nothing.
const ftbl_file_entry_t* find_by_fileno(fileno_t fileno);
const ftbl_file_entry_t* find_by_name(const char* name);

// A run of lookups by number during which nobody changes the active table. A miss then costs no more than a hit, where
// find_by_fileno has to walk the table to be sure of it.
class lookup_run {
public:
    lookup_run() : table_(active_table()), indexed_(index_.make(table_)) {}
    const ftbl_file_entry_t* find_by_fileno(fileno_t fileno) const;

private:
    table_view table_;
    fileno_index index_;
    bool indexed_;
};

} // namespace yfs::vfs
