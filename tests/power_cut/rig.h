// A mounted volume on a strict chip beside a map of what must be in it, the operations on both, and what the power-cut
// tests count.
#pragma once

#include "tests/support/check_volume.h"
#include "tests/support/spi_chip.h"
#include "tests/support/volume_builder.h"
#include "yfs/dfs.h"
#include "yfs/status.h"

namespace yfs::test {

enum class kind { write, remove, mark_zombie, idle_reclaim, full_reclaim, dirty_erase };

// One call of the file system.
struct operation {
    kind what;
    unsigned file = 0;
    std::uint32_t offset = 0;
    std::vector<std::uint8_t> data = {};
    bool ends_file = false; // write: nothing behind the new bytes

    std::string text() const;
    // What it makes of the files.
    void apply(contents& files) const;
    // Carries it out on the mounted volume. The last status; a full reclaim goes on until its pass is over.
    std::uint32_t run() const;
};

inline const auto replace = [](unsigned file, std::vector<std::uint8_t> data) {
    return operation{kind::write, file, 0, std::move(data), true};
};
inline const auto cut_to = [](unsigned file, std::uint32_t size) {
    return operation{kind::write, file, size, {}, true};
};

// A volume in an image of its own, its chip under the library.
struct rig {
    std::vector<std::uint8_t> image;
    nor_chip chip{image};
    spi_chip_guard guard{chip};
    contents files = {};

    explicit rig(std::vector<std::uint8_t> start) : image(std::move(start)) {}
    std::uint32_t mount() { return dfs_init(image.data(), static_cast<std::uint32_t>(image.size())); }
    // Runs it and keeps the map in step. 0, or the status of what failed.
    std::uint32_t perform(const operation& op);
    inspect::picture look() const { return inspect::inspect_image(image); }
};

// Moves the sequence numbers of all headers on.
void count_up(std::vector<std::uint8_t>& image, std::uint32_t delta);

// Printed at the end of the program.
struct tally {
    std::uint64_t cuts, built_in, lost, old_state, new_state, random_steps, random_cuts;
};
extern tally the_tally;

// Copies that a log reclaim programmed before their records: the next log writes pass them by.
constexpr auto frames_only = inspect::finding_id::frame_unrecorded;

} // namespace yfs::test
