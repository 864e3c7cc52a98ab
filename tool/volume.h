// The images of a session, mounted: files by their rows of the file table, and how full the AFS volume is. The library
// has one mounted volume of each kind in a process, so there is one of these at a time.
#pragma once

#include "tool/error.h"
#include "tool/session.h"

#include <optional>
#include <vector>

namespace yfs::tool {

// How full the AFS volume is, in chunks of 64 bytes.
struct volume_space {
    std::uint32_t data_units = 0;
    std::uint32_t log_units = 0;
    std::uint32_t chunks = 0; // that the data units can hold
    std::uint32_t used = 0;
    std::uint32_t at_once = 0; // free without a reclaim
    std::uint32_t lowest_erase_count = 0;
    std::uint32_t highest_erase_count = 0;
    std::uint32_t file_heads = 0; // indices that the volume has room for

    std::uint32_t free() const { return chunks - used; }
};

struct stored_file {
    file_row row; // of a file that no path names: only its place
    std::optional<std::uint32_t> size;
    std::optional<failure> fault; // why there is no size: this file is damaged, the others may be sound
};

// Bytes that a file on EFS may have: its entry in the layout sets a limit, and so do the spare blocks, which have to
// take it whole. Nothing if the layout has no such entry.
std::optional<std::uint32_t> largest_on_efs(const file_row& row);

class volume {
public:
    explicit volume(session& set) : set_(set) {}

    // Mount what the set has; nothing otherwise. Fail with volume_damaged, efs_damaged.
    void mount_afs();
    void mount_efs();
    void mount(file_system where); // the one that such files need

    // Everything stored in what is mounted, named files first, in order of their paths.
    std::vector<stored_file> files() const;
    // Nothing if the image holds no such file. Fails with no_volume if the set lacks the image.
    std::optional<std::uint32_t> size_of(const file_row& row) const;
    // Fails with no_file too.
    bytes read(const file_row& row) const;
    [[noreturn]] void refuse_absent(const file_row& row) const;

    const working_copy& image_of(const file_row& row) const;

    // The whole file becomes `contents`. Fails with no_volume, too_large, volume_full.
    void write(const file_row& row, const bytes& contents);
    void remove(const file_row& row);

    bool deployed() const; // the volume holds the live values
    volume_space space() const;

private:
    void need(const file_row& row) const;
    [[noreturn]] void refuse_full(const file_row& row, std::size_t size, const volume_space& room) const;
    [[noreturn]] void refuse_index(const file_row& row, const std::string& why) const;
    void write_afs(const file_row& row, const bytes& contents);
    void write_efs(const file_row& row, const bytes& contents);

    session& set_;
    bool afs_ = false;
    bool efs_ = false;
};

inline constexpr const char* deploy_path = "/home/qrd/deploy";

} // namespace yfs::tool
