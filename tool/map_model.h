// What every part of an image is for, ready to be drawn: slots of erase units, blocks of an EFS. Drawing it is left to
// map_text.cpp and map_svg.cpp.
#pragma once

#include "inspect/efs_picture.h"
#include "inspect/picture.h"
#include "tool/session.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace yfs::tool {

enum class cell_state : std::uint8_t { free, live, dead, torn, unused };
inline constexpr std::array all_cell_states = {cell_state::live, cell_state::dead, cell_state::free, cell_state::torn};
std::string_view to_string(cell_state state);

struct map_cell {
    cell_state state = cell_state::unused;
    bool changed = false; // against the other image, if there is one
    std::uint32_t file = inspect::none;
    std::uint32_t page = inspect::none;
};

struct map_unit {
    inspect::eu_role role = inspect::eu_role::unknown;
    std::uint32_t group = inspect::none;
    std::uint32_t erase_count = 0;
    std::uint32_t sequence = 0;
    bool changed = false;
    std::vector<map_cell> cells; // slots; none for the spare
};

// A part of an EFS block, in bytes.
struct map_extent {
    std::uint32_t from = 0, to = 0;
    cell_state state = cell_state::unused;
    bool changed = false;
    std::uint32_t file = inspect::none;
};

struct map_block {
    std::string name;  // "map 0", "block 3"
    std::string state; // "current", "in use", "free", "dirty"
    std::string detail;
    std::optional<std::uint32_t> erase_count;
    std::vector<std::uint32_t> files;
    std::vector<map_extent> extents;
};

struct image_map {
    std::string name;
    image_kind kind = image_kind::afs;
    std::vector<map_unit> units;    // AFS
    std::vector<map_block> blocks;  // EFS
    std::vector<std::string> names; // of files, by number; empty where no table names one

    std::string file_name(std::uint32_t file) const;
    std::string summary() const;
    std::uint64_t count(cell_state state) const;
};

// `other`: an image of the same kind, to light what differs from it.
image_map map_of(const session& set, const working_copy& image, image_kind kind, const bytes* other = nullptr);

std::string_view to_string(inspect::eu_role role);

} // namespace yfs::tool
