// One set in memory: private copies of its files, with the library's file table active over them. Nothing on disk
// changes unless a verb saves its changes.
#pragma once

#include "tool/file_table.h"
#include "tool/files.h"
#include "tool/image.h"
#include "tool/set_file.h"

#include <optional>
#include <string>
#include <vector>

namespace yfs::tool {

// What a command works on: a set, images named beside it or without any, and a file table of its own for these.
struct source {
    std::string set;                  // --set; empty: the working directory
    std::vector<std::string> images;  // -i, or arguments: in place of the set's, or alone if there is no set
    std::string ftbl;                 // --ftbl
    std::optional<std::uint32_t> sku; // --sku
    bool tables_only = false;         // no image is read, and there need be no set
    bool inputs_only = false;         // neither images nor zonc.cfg are read: they are to be made
};

// A file of the set as it was read, and as it stands now.
struct working_copy {
    image_ref ref;
    bytes before;
    bytes now;

    bool changed() const { return now != before; }
    const std::string& name() const { return ref.text; }
    // New contents for a table; what of a range they don't fill stays as it was.
    void replace(bytes contents);
};

working_copy read_copy(image_ref ref);
// How many bytes are others, or only in one of them.
std::uint64_t differing_bytes(const bytes& a, const bytes& b);

enum class access : std::uint8_t {
    read,
    change // the files are locked against other programs of this kind until the session ends
};

struct session {
    explicit session(const source& from, access mode = access::read);
    session(const session&) = delete; // the library points into the copies
    session& operator=(const session&) = delete;

    // No set file: images alone, and a file table if one was named.
    bool bare() const { return set.path.empty(); }
    std::optional<working_copy>& image(image_kind kind) { return kind == image_kind::afs ? yfs : efs; }
    const std::optional<working_copy>& image(image_kind kind) const { return kind == image_kind::afs ? yfs : efs; }
    // For messages: the set file, or the images.
    std::string name() const;
    [[noreturn]] void refuse_bare(const std::string& what) const;

private:
    std::vector<file_lock> locks_; // before all that is read

public:
    const set_file set;
    working_copy ftbl;
    working_copy velor;
    std::optional<working_copy> zonc; // nothing if the set names none, or the file isn't there yet
    std::optional<working_copy> yfs;
    std::optional<working_copy> efs;
    const file_table table;
};

} // namespace yfs::tool
