#include "tool/error.h"

#include <fmt/format.h>

#include <utility>

namespace yfs::tool {

namespace {

struct fault_row {
    fault which;
    std::string_view id;
    exit_status status;
};

constexpr fault_row fault_table[] = {
    {fault::usage, "usage", exit_status::usage},
    {fault::set_missing, "set-missing", exit_status::usage},
    {fault::set_invalid, "set-invalid", exit_status::usage},
    {fault::file_unreadable, "file-unreadable", exit_status::failed},
    {fault::table_damaged, "table-damaged", exit_status::damaged},
    {fault::volume_damaged, "volume-damaged", exit_status::damaged},
    {fault::volume_incomplete, "volume-incomplete", exit_status::damaged}, // a deployed volume without a value's file
    {fault::efs_damaged, "efs-damaged", exit_status::damaged},
    {fault::no_volume, "no-volume", exit_status::failed},         // the set has no image for that file
    {fault::unknown_path, "unknown-path", exit_status::no},       // the file table has no such path
    {fault::no_file, "no-file", exit_status::no},                 // the path is known, the image holds no such file
    {fault::no_value, "no-value", exit_status::no},               // the path is known, no value of it is in force
    {fault::volume_full, "volume-full", exit_status::failed},     //
    {fault::too_large, "too-large", exit_status::failed},         //
    {fault::empty_on_efs, "empty-on-efs", exit_status::failed},   //
    {fault::efs_read_only, "efs-read-only", exit_status::failed}, //
    {fault::not_modifiable, "not-modifiable", exit_status::failed},
    {fault::unknown_records, "unknown-records", exit_status::failed}, // a rebuild would lose them
    {fault::would_overwrite, "would-overwrite", exit_status::failed},
    {fault::binary_to_terminal, "binary-to-terminal", exit_status::usage},
    {fault::save_failed, "save-failed", exit_status::failed},
    {fault::output_failed, "output-failed", exit_status::failed},
    {fault::library, "library", exit_status::failed}, // an answer that no other id covers
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
