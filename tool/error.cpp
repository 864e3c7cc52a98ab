#include "tool/error.h"

#include <fmt/format.h>

#include <utility>

namespace yfs::tool {

namespace {

struct fault_row {
    fault which;
    exit_status status;
    std::string_view id;
};

constexpr fault_row fault_table[] = {
    {fault::usage, exit_status::usage, "usage"},
    {fault::set_missing, exit_status::usage, "set-missing"},
    {fault::set_invalid, exit_status::usage, "set-invalid"},
    {fault::file_unreadable, exit_status::failed, "file-unreadable"},
    {fault::unknown_image, exit_status::damaged, "unknown-image"},
    {fault::table_damaged, exit_status::damaged, "table-damaged"},
    {fault::volume_damaged, exit_status::damaged, "volume-damaged"},
    {fault::volume_incomplete, exit_status::damaged, "volume-incomplete"}, // a deployed volume without a value's file
    {fault::efs_damaged, exit_status::damaged, "efs-damaged"},
    {fault::no_volume, exit_status::failed, "no-volume"},   // the set has no image for that file, or the image no place
    {fault::unknown_path, exit_status::no, "unknown-path"}, // the file table has no such path
    {fault::no_file, exit_status::no, "no-file"},           // the path is known, the image holds no such file
    {fault::no_value, exit_status::no, "no-value"},         // the path is known, no value of it is in force
    {fault::volume_full, exit_status::failed, "volume-full"},
    {fault::too_large, exit_status::failed, "too-large"},
    {fault::empty_on_efs, exit_status::failed, "empty-on-efs"},
    {fault::not_modifiable, exit_status::failed, "not-modifiable"},
    {fault::unknown_records, exit_status::failed, "unknown-records"}, // a rebuild would lose them
    {fault::would_overwrite, exit_status::failed, "would-overwrite"},
    {fault::binary_to_terminal, exit_status::usage, "binary-to-terminal"},
    {fault::check_failed, exit_status::failed, "check-failed"}, // a change would leave faults, or touch other files
    {fault::locked, exit_status::failed, "locked"},             // another program is changing the same file
    {fault::save_failed, exit_status::failed, "save-failed"},
    {fault::output_failed, exit_status::failed, "output-failed"},
    {fault::interrupted, exit_status::interrupted, "interrupted"},
    {fault::library, exit_status::failed, "library"}, // an answer that no other id covers
};

constexpr bool in_order()
{
    std::size_t at = 0;
    for (const fault_row& row : fault_table) {
        if (row.which != static_cast<fault>(at++)) return false;
    }
    return at == static_cast<std::size_t>(fault::library) + 1;
}
static_assert(in_order(), "one row for each fault, in the order of the enumeration");

const fault_row& row_of(fault which)
{
    return fault_table[static_cast<std::size_t>(which)];
}

} // namespace

std::string_view id_of(fault which)
{
    return row_of(which).id;
}

exit_status status_of(fault which)
{
    return row_of(which).status;
}

failure::failure(fault which, std::string message, std::string hint)
    : fault_(which), message_(std::move(message)), hint_(std::move(hint))
{
}

std::string describe(const failure& error)
{
    std::string text = fmt::format("yfs: error[{}]: {}\n", id_of(error.which()), error.what());
    if (!error.hint().empty()) text += fmt::format("  hint: {}\n", error.hint());
    return text;
}

} // namespace yfs::tool
