// What can go wrong, as a user meets it: a stable id, what happened where and with which numbers, and a way out. The
// ids and their exit statuses stand in one table, in error.cpp; scripts rely on both.
#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace yfs::tool {

enum class exit_status : int {
    done = 0,
    no = 1,      // not there, it differs, or faults were found and repaired
    damaged = 4, // an image or a table contradicts its format
    failed = 8,
    usage = 16,
    interrupted = 32, // by a signal; nothing was left half done
};

enum class fault {
    usage,
    set_missing,
    set_invalid,
    file_unreadable,
    unknown_image,
    table_damaged,
    volume_damaged,
    volume_incomplete,
    efs_damaged,
    no_volume,
    unknown_path,
    no_file,
    no_value,
    volume_full,
    too_large,
    empty_on_efs,
    not_modifiable,
    unknown_records,
    would_overwrite,
    binary_to_terminal,
    check_failed,
    locked,
    save_failed,
    output_failed,
    interrupted,
    library,
};

std::string_view id_of(fault which);
exit_status status_of(fault which);

class failure : public std::exception {
public:
    failure(fault which, std::string message, std::string hint = {});

    fault which() const { return fault_; }
    const std::string& hint() const { return hint_; }
    const char* what() const noexcept override { return message_.c_str(); }

private:
    fault fault_;
    std::string message_;
    std::string hint_;
};

// The text for standard error: "yfs: error[ID]: MESSAGE", and the hint on a line of its own.
std::string describe(const failure& error);

} // namespace yfs::tool
