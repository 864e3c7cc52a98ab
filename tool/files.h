// Files of the host: reading them whole, and replacing them so that an interruption leaves the old file or the new one.
#pragma once

#include "tool/text.h"

#include <filesystem>
#include <string>
#include <vector>

namespace yfs::tool {

// Larger than any image or table that the library takes; what is longer isn't one of them.
inline constexpr std::uint64_t largest_file = 64ULL << 20;

// The whole file, or of standard input if `path` is "-". Fails with file_unreadable, also above `limit` bytes.
bytes read_file(const std::filesystem::path& path, std::uint64_t limit = largest_file);

// Files to be replaced together. Nothing is touched before commit(): it writes every new content to a temporary file
// beside its target first, synced, and then renames them in the order in which they were added. A symbolic link stays
// and what it points to is replaced; mode and owner stay. A failure before the first rename leaves all as it was.
class save_list {
public:
    void add(std::filesystem::path target, bytes contents);
    bool empty() const { return entries_.empty(); }
    void commit();

    // The names of the targets, in order, as "a, b and c".
    std::string names() const;

private:
    struct entry {
        std::filesystem::path target;
        bytes contents;
    };
    std::vector<entry> entries_;
};

} // namespace yfs::tool
