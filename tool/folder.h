// Files of the images as files of a folder of the host: extracted into it, or to be imported from it. The names come
// out of a table that nobody vouches for, and none of them leads out of the folder.
#pragma once

#include "tool/text.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace yfs::tool {

// The path inside a folder that stands for a stored file: its own without the first slash, where each part that would
// be empty, "." or "..", and each byte that isn't printable, is written as %XX; so is %. Different paths stay
// different, but for that slash.
std::string host_path(std::string_view path);
// The way back, with the slash. Nothing if some %XX isn't one.
std::optional<std::string> stored_path(std::string_view host_path);

// A folder to write into, made if it isn't there.
class target_folder {
public:
    explicit target_folder(const std::string& path);
    target_folder(const target_folder&) = delete;
    target_folder& operator=(const target_folder&) = delete;
    ~target_folder();

    // A new file at `host_path`, with the folders on its way. No link on the way is followed. Fails with
    // would_overwrite if there is something already, unless `force`d; with save_failed.
    void write(const std::string& host_path, const bytes& contents, bool force) const;

private:
    [[noreturn]] void fail(const std::string& host_path, int error) const;

    std::string path_;
    int fd_;
};

struct folder_file {
    std::string path; // as stored_path gives it
    bytes contents;
};

// Every regular file below `folder`, in order of its path. Fails with file_unreadable, usage.
std::vector<folder_file> read_folder(const std::string& folder);

} // namespace yfs::tool
