// Files of the host: reading them whole, and replacing them so that an interruption leaves the old file or the new one.
#pragma once

#include "tool/text.h"

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace yfs::tool {

// Larger than any image or table that the library takes; what is longer isn't one of them.
inline constexpr std::uint64_t largest_file = 64ULL << 20;

// The whole file, or of standard input if `path` is "-". Fails with file_unreadable, also above `limit` bytes.
bytes read_file(const std::filesystem::path& path, std::uint64_t limit = largest_file);

// Keeps other programs of this kind from changing a file until it goes; readers aren't held up, since a save replaces
// files as a whole.
class file_lock {
public:
    explicit file_lock(int fd) : fd_(fd) {}
    file_lock(file_lock&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    file_lock(const file_lock&) = delete;
    file_lock& operator=(const file_lock&) = delete;
    ~file_lock();

private:
    int fd_;
};

// Locks each of the files once, however often and by whatever name it is listed; one that doesn't exist is passed over.
// Waits for some seconds, then fails with locked.
std::vector<file_lock> lock_files(const std::vector<std::filesystem::path>& paths);

// Files to be replaced together. Nothing is touched before commit(): it writes every new content to a temporary file
// beside its target first, synced, and then renames them in the order in which they were added. A symbolic link stays
// and what it points to is replaced; mode and owner stay. A failure before the first rename leaves all as it was.
class save_list {
public:
    void add(std::filesystem::path target, bytes contents);
    // New bytes from `offset` on, in a file that stays as long as it is and keeps all others. Such changes of one file
    // are saved as one.
    void add_range(const std::filesystem::path& target, std::uint64_t offset, const bytes& contents);
    bool empty() const { return entries_.empty(); }
    // Before a file is replaced its old contents go into a file of that name and this suffix.
    void keep_old_files(const std::string& suffix);
    void commit();

    // The names of the targets, in order, as "a, b and c".
    std::string names() const;

private:
    struct entry {
        std::filesystem::path target;
        bytes contents;
    };
    std::vector<entry> entries_;
    std::vector<entry> backups_;
};

} // namespace yfs::tool
