// The one way in which a verb changes files: the result is checked as 'check' would check it, every file of the images
// that the verb didn't mean has to be what it was, and then all that changed is saved together.
#pragma once

#include "tool/error.h"
#include "tool/session.h"

#include <set>
#include <string>
#include <utility>

namespace yfs::tool {

// How a change is to be saved.
struct change_flags {
    bool dry_run = false;              // -n: only say what would change
    std::optional<std::string> backup; // --backup: the old files stay beside the new ones, with this suffix
    std::string output;                // -o: into this file, folder or "-" instead
};

class changes {
public:
    changes(session& set, change_flags flags) : set_(set), flags_(std::move(flags)) {}

    // The verb means this file.
    void touch(const file_row& row) { touched_.emplace(row.where, row.index); }
    // -o takes this image, changed or not.
    void mean(image_kind kind) { meant_.insert(kind); }
    // The verb may change any file, as one that drops damaged data does.
    void touch_all() { any_file_ = true; }
    // The result is meant to be damaged.
    void accept_faults() { any_fault_ = true; }
    // A file beside the images.
    void add_file(std::filesystem::path target, bytes contents);

    // Nothing has changed so far.
    bool empty() const;
    // What the verb ends with once all is saved; done, unless it says otherwise.
    exit_status status = exit_status::done;
    // Fails with check_failed, save_failed, usage.
    void save(const std::string& what);

private:
    void check(const working_copy& image, image_kind kind) const;
    save_list files_to_save() const;
    void save_elsewhere() const;
    std::string summary() const;
    std::vector<const working_copy*> changed_copies() const;
    std::vector<const working_copy*> copies_for_elsewhere() const;

    session& set_;
    change_flags flags_;
    std::set<std::pair<file_system, std::uint32_t>> touched_;
    std::set<image_kind> meant_;
    bool any_file_ = false;
    bool any_fault_ = false;
    std::vector<std::pair<std::filesystem::path, bytes>> others_;
};

} // namespace yfs::tool
