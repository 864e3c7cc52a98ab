// A host's run of the library over a session: the values in force, changes to them, and the new zonc.cfg at its end.
// What the library reports on the way becomes part of a failure's message.
#pragma once

#include "tool/session.h"

#include <optional>
#include <span>

namespace yfs::tool {

// A record carries its value's length, its own 12 bytes included, in 16 bits.
inline constexpr std::uint32_t largest_value = 65523;

// A value in force. The bytes are the library's, until the value is set or the run ends.
struct value_in_force {
    std::span<const std::uint8_t> contents;
    std::uint32_t limit = 0;
    bool modifiable = false; // no: the rebuild wouldn't write it back into the deployed volume
};

class host_run {
public:
    // Loads the tables, mounts the images and takes the values over. Fails with table_damaged, volume_damaged,
    // volume_incomplete, efs_damaged or library.
    explicit host_run(session& set);
    host_run(const host_run&) = delete;
    host_run& operator=(const host_run&) = delete;
    // Lets go of a run that wasn't finished: nothing is rebuilt, nothing written.
    ~host_run();

    // Nothing if no value of that file is in force.
    std::optional<value_in_force> get(const file_row& row) const;
    void set(const file_row& row, const bytes& contents);

    // Ends the run: the images of the session hold the values, and the new zonc.cfg table comes back. What the library
    // does to the images when it shuts down isn't kept.
    bytes finish();

private:
    session& set_;
};

} // namespace yfs::tool
