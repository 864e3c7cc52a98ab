#include "tool/map_model.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>

namespace yfs::tool {

namespace {

using inspect::eu_role;
using inspect::slot_state;

bool differs(std::span<const std::uint8_t> image, const bytes* other, std::size_t from, std::size_t length)
{
    if (other == nullptr || from >= image.size()) return false;
    const auto own = image.subspan(from, std::min(length, image.size() - from));
    if (from + own.size() > other->size()) return true;
    return !std::equal(own.begin(), own.end(), other->begin() + static_cast<std::ptrdiff_t>(from));
}

cell_state cell_of(slot_state state)
{
    switch (state) {
    case slot_state::blank:
        return cell_state::free;
    case slot_state::live:
        return cell_state::live;
    case slot_state::stale:
        return cell_state::dead;
    case slot_state::torn:
    case slot_state::lost:
        return cell_state::torn;
    case slot_state::unreachable:
        return cell_state::unused;
    }
    return cell_state::unused;
}

std::size_t frame_at(const inspect::erase_unit& unit, std::size_t slot)
{
    const std::size_t first =
        unit.role == eu_role::log ? offsetof(ftl::log_eu_t, frame) : offsetof(ftl::data_eu_t, frame);
    return first + slot * ftl::frame_size;
}

map_unit unit_of(const inspect::picture& picture, std::uint32_t eu, const bytes* other)
{
    const inspect::erase_unit& unit = picture.eus[eu];
    const std::size_t start = std::size_t{eu} * ftl::eu_size;
    map_unit out;
    out.role = unit.role;
    out.group = unit.group;
    out.erase_count = unit.header.erase_count;
    out.sequence = unit.header.seq;
    out.changed = differs(picture.image, other, start, ftl::eu_size);
    const std::uint32_t fat_pages = picture.fat_size / ftl::page_bytes;
    for (std::size_t slot = 0; slot < unit.slots.size(); ++slot) {
        map_cell cell;
        cell.state = cell_of(unit.slots[slot].state);
        cell.page = unit.slots[slot].page;
        cell.changed = differs(picture.image, other, start + frame_at(unit, slot), ftl::frame_size);
        const std::uint32_t index = cell.page - fat_pages;
        if (unit.role == eu_role::data && cell.page >= fat_pages && index < picture.chunk_file.size())
            cell.file = picture.chunk_file[index];
        out.cells.push_back(cell);
    }
    return out;
}

// ---- EFS ----

std::string_view text_of(inspect::bm_state state)
{
    constexpr std::string_view names[] = {"blank",   "prepared", "current", "superseded",
                                          "retired", "marked",   "unsound", "foreign"};
    return names[static_cast<std::size_t>(state)];
}

map_block map_block_of(const inspect::efs_picture& picture, std::uint32_t bm, const bytes* other)
{
    const inspect::bm_view& view = picture.bms[bm];
    map_block out;
    out.name = fmt::format("map {}", bm);
    out.state = text_of(view.state);
    if (view.state == inspect::bm_state::current || view.state == inspect::bm_state::superseded)
        out.detail = fmt::format("sequence {}, {} of {} entries", std::uint32_t{view.header.sequence},
                                 view.slots_written, view.slots);
    const std::uint32_t at = bm * efs::block_bytes;
    const std::uint32_t end = efs::first_slot_at + view.slots_written * picture.plan.geo.bme_bytes();
    const auto add = [&](std::uint32_t from, std::uint32_t to, cell_state state) {
        if (from < to)
            out.extents.push_back(
                {from, to, state, differs(picture.image, other, at + from, to - from), inspect::none});
    };
    const bool current = view.state == inspect::bm_state::current;
    const std::uint32_t last = end - std::min(end, picture.plan.geo.bme_bytes());
    add(0, efs::first_slot_at, current ? cell_state::live : cell_state::dead);
    add(efs::first_slot_at, current ? std::max(last, efs::first_slot_at) : end, cell_state::dead);
    if (current) add(std::max(last, efs::first_slot_at), end, cell_state::live);
    add(end, efs::block_bytes, cell_state::free);
    return out;
}

// Which parts of a logical block the table of files keeps for whom.
std::vector<map_extent> extents_of(const inspect::efs_picture& picture, std::uint32_t logical, std::uint32_t at,
                                   const bytes* other)
{
    constexpr std::uint32_t begin = offsetof(efs::data_block_t, data_area);
    std::vector<map_extent> list;
    for (std::uint32_t file = 0; file < picture.plan.files.size(); ++file) {
        const efs_file_t& entry = picture.plan.files[file];
        const inspect::efs_file_view& view = picture.files[file];
        if (view.state == inspect::efs_file_state::not_in_use || logical < entry.first_block) continue;
        const std::uint32_t number = logical - entry.first_block; // of its blocks
        const std::uint32_t first = efs::chunk_room - std::min<std::uint32_t>(entry.offset, efs::chunk_room);
        const std::uint64_t before = number == 0 ? 0 : first + std::uint64_t{number - 1} * efs::chunk_room;
        if (number != 0 && before >= entry.max_size) continue;
        const std::uint32_t from = begin + (number == 0 ? std::uint32_t{entry.offset} : 0);
        const auto left = static_cast<std::uint32_t>(entry.max_size - before);
        const std::uint32_t to = std::min<std::uint32_t>(from + std::uint32_t{sizeof(efs::efs_chunk_header_t)} + left,
                                                         begin + efs::data_area_bytes);
        const cell_state state = view.state == inspect::efs_file_state::present   ? cell_state::live
                                 : view.state == inspect::efs_file_state::damaged ? cell_state::torn
                                                                                  : cell_state::free;
        list.push_back({from, to, state, differs(picture.image, other, at + from, to - from), file});
    }
    std::sort(list.begin(), list.end(), [](const map_extent& a, const map_extent& b) { return a.from < b.from; });
    return list;
}

map_block data_block_of(const inspect::efs_picture& picture, std::uint32_t block, const bytes* other)
{
    const std::uint32_t at = picture.plan.geo.data_block_at(block);
    map_block out;
    out.name = fmt::format("block {}", block);
    const inspect::block_view view = block < picture.blocks.size() ? picture.blocks[block] : inspect::block_view{};
    if (view.header_sound) out.erase_count = view.erase_count;
    if (view.role == inspect::block_role::in_use) {
        out.state = "in use";
        out.detail = fmt::format("logical {}", view.logical);
        out.extents = extents_of(picture, view.logical, at, other);
        for (const map_extent& extent : out.extents) {
            if (extent.state == cell_state::live || extent.state == cell_state::torn) out.files.push_back(extent.file);
        }
        return out;
    }
    const bool dirty = view.role == inspect::block_role::spare_dirty;
    out.state = dirty ? "dirty" : view.role == inspect::block_role::spare_free ? "free" : "unknown";
    const bool changed = differs(picture.image, other, at, efs::block_bytes);
    out.extents.push_back({offsetof(efs::data_block_t, data_area), efs::block_bytes,
                           dirty ? cell_state::dead : cell_state::free, changed, inspect::none});
    return out;
}

void add_names(const session& set, image_map& map, std::size_t count)
{
    map.names.resize(count);
    const file_system where = map.kind == image_kind::afs ? file_system::afs : file_system::efs;
    for (const file_row& row : set.table.rows()) {
        if (row.where == where && row.index < count) map.names[row.index] = row.path;
    }
}

} // namespace

std::string_view to_string(cell_state state)
{
    constexpr std::string_view names[] = {"free", "live", "dead", "torn", "unused"};
    return names[static_cast<std::size_t>(state)];
}

std::string_view to_string(eu_role role)
{
    constexpr std::string_view names[] = {"log", "data", "spare", "?"};
    return names[static_cast<std::size_t>(role)];
}

std::string image_map::file_name(std::uint32_t file) const
{
    const std::string place = fmt::format("{}#{}", tool::to_string(kind), file);
    return file < names.size() && !names[file].empty() ? printable(names[file]) : place;
}

std::uint64_t image_map::count(cell_state state) const
{
    std::uint64_t sum = 0;
    for (const map_unit& unit : units) {
        sum += static_cast<std::uint64_t>(std::count_if(unit.cells.begin(), unit.cells.end(),
                                                        [=](const map_cell& cell) { return cell.state == state; }));
    }
    return sum;
}

std::string image_map::summary() const
{
    if (kind == image_kind::efs)
        return fmt::format("{}: EFS, {} of 4096 bytes", name, count_of(blocks.size(), "block"));
    return fmt::format("{}: AFS, {} of 8192 bytes; slots: {} live, {} dead, {} free, {} torn", name,
                       count_of(units.size(), "erase unit"), count(cell_state::live), count(cell_state::dead),
                       count(cell_state::free), count(cell_state::torn));
}

image_map map_of(const session& set, const working_copy& image, image_kind kind, const bytes* other)
{
    image_map map;
    map.name = image.name();
    map.kind = kind;
    if (kind == image_kind::afs) {
        const inspect::picture picture = inspect::inspect_image(image.before);
        for (std::uint32_t eu = 0; eu < picture.eus.size(); ++eu) map.units.push_back(unit_of(picture, eu, other));
        add_names(set, map, picture.file.size());
        return map;
    }
    const inspect::efs_picture picture = inspect::inspect_efs(image.before, plan_for(image.ref, image.before));
    for (std::uint32_t bm = 0; bm < picture.bms.size(); ++bm) map.blocks.push_back(map_block_of(picture, bm, other));
    for (std::uint32_t block = 0; block < picture.blocks.size(); ++block)
        map.blocks.push_back(data_block_of(picture, block, other));
    add_names(set, map, picture.files.size());
    return map;
}

} // namespace yfs::tool
