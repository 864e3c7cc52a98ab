// A mounted volume on a strict chip beside a map of what must be in it, and the operations on both.
#pragma once

#include "tests/support/check_volume.h"
#include "tests/support/nor_chip.h"
#include "tests/support/spi_chip.h"

#include <cstdint>
#include <string>
#include <vector>

namespace yfs::test {

// One call of the file system.
struct operation {
    enum class kind { write, remove, mark_zombie, idle_reclaim, full_reclaim, dirty_erase } what;
    unsigned file = 0;
    std::uint32_t offset = 0;
    std::vector<std::uint8_t> data;
    bool ends_file = false; // write: nothing behind the new bytes
};
std::string to_string(const operation& op);

inline operation replace(unsigned file, std::vector<std::uint8_t> data)
{
    return {operation::kind::write, file, 0, std::move(data), true};
}
inline operation overwrite(unsigned file, std::uint32_t offset, std::vector<std::uint8_t> data)
{
    return {operation::kind::write, file, offset, std::move(data), false};
}
inline operation cut_to(unsigned file, std::uint32_t size)
{
    return {operation::kind::write, file, size, {}, true};
}
inline operation only(operation::kind what, unsigned file = 0)
{
    return {what, file, 0, {}, false};
}

// What the operation makes of the files.
void apply(contents& files, const operation& op);
// Carries it out on the mounted volume. The last status; a full reclaim goes on until its pass is over.
std::uint32_t run(const operation& op);
// Whether the mounted volume reads as `files`, through the library's own calls; in `number` the first that doesn't.
bool reads_as(const contents& files, unsigned& number);
// The same of one file; absent where `files` doesn't have it.
bool file_reads_as(const contents& files, unsigned number);

// A volume in an image of its own. It must outlive nothing: mount() puts its chip under the library.
struct rig {
    std::vector<std::uint8_t> image;
    nor_chip chip;
    contents files;

    explicit rig(std::vector<std::uint8_t> start) : image(std::move(start)), chip(image) {}
    rig(const rig&) = delete;
    rig& operator=(const rig&) = delete;
    ~rig() { use_spi_chip(nullptr); }

    std::uint32_t mount();
    // Runs it and keeps the map in step. 0, or the status of what failed.
    std::uint32_t perform(const operation& op);
    inspect::picture look() const { return inspect::inspect_image(image); }
};

// Adds `delta` to the sequence numbers of all units.
void shift_sequence(std::vector<std::uint8_t>& image, std::uint32_t delta);

} // namespace yfs::test
