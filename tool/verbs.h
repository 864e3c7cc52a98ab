// What each verb does. The grammar fills the options; a verb prints its data and answers the exit status, or throws a
// failure.
#pragma once

#include "tool/edits.h"
#include "tool/error.h"
#include "tool/session.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace yfs::tool {

struct options : source {
    edit how = nullptr; // for make_change and the verbs that try a change
    change_flags change;
    std::string path;                  // of a file or a value; explain: an id; dump: what to show
    std::string source_file = "-";     // put: the file with the contents
    std::string value;                 // nvar set: FILE, utf8:TEXT or hex:BYTES
    std::string folder;                // sample, extract, import
    std::vector<std::string> inputs;   // diff: the two sides
    std::string format;                // completion: the shell
    std::string depfile;               // build
    std::uint64_t size = 0;            // mkfs afs
    std::uint32_t files = 1024;        // mkfs afs
    bool json = false;                 // one document instead of text
    bool long_list = false;            // -l
    bool force = false;                // binary data to a terminal; what is in the way is overwritten
    bool drop_unknown = false;         // nvar set: a rebuild may lose records
    std::uint32_t number = 0;          // dump: of a unit, a map, a block
    bool values = false;               // diff: of two sets
    bool contents = false;             // diff: not the flash
    bool ascii = false;                // map
    bool wear = false;                 // map
    std::optional<std::uint32_t> unit; // map: this erase unit, slot by slot
    bool all = false;                  // reclaim: every unit
    std::uint32_t after = 0;           // cut: operations that are done
    std::uint32_t torn_bytes = 0;      // cut: bytes of the next one
    bool lossy = false;                // repair: files that can't be saved may go
};

// look
exit_status info(const options& given);
exit_status list_files(const options& given);
exit_status stat_file(const options& given);
exit_status cat(const options& given);
exit_status extract(const options& given);
exit_status check(const options& given);
exit_status map(const options& given);
exit_status diff_images(const options& given);
exit_status disk_free(const options& given);
exit_status dump_erase_unit(const options& given);
exit_status dump_block_map(const options& given);
exit_status dump_data_block(const options& given);
exit_status dump_cfg_table(const options& given);
exit_status dump_file_table(const options& given);
exit_status scan(const options& given);

// change
exit_status make_change(const options& given);

// values
exit_status list_values(const options& given);
exit_status get_value(const options& given);
exit_status export_values(const options& given);
exit_status diff_values(const options& given);

exit_status list_records(const options& given);
exit_status unpack_table(const options& given);
exit_status pack_table(const options& given);
exit_status list_file_table(const options& given);

// make
exit_status make_sample(const options& given);
exit_status make_afs(const options& given);
exit_status make_efs(const options& given);
exit_status init_set(const options& given);
exit_status build(const options& given);
exit_status smallest_size(const options& given);

// test: what of an edit they try, the options say as for the edit itself
exit_status trace(const options& given);
exit_status cut(const options& given);
exit_status torture(const options& given);

// support
exit_status explain(const options& given);

} // namespace yfs::tool
