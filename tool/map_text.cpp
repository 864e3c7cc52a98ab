#include "tool/map_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace yfs::tool {

namespace {

// A row: unit, kind, group and wear take 19 columns, and two slots each of the other 61.
constexpr std::size_t cell_columns = 61, slots_a_column = 2;

enum class column : std::uint8_t { live, mixed, dead, free, torn, marked, unused };

struct glyph {
    const char* shape;
    const char* ascii;
    const char* colour; // SGR
    const char* meaning;
};
constexpr glyph glyphs[] = {
    {"█", "#", "32", "live"},   {"▓", "+", "33", "live and dead"}, {"▒", "-", "31", "dead"},   {"·", ".", "2", "free"},
    {"×", "x", "1;31", "torn"}, {"◆", "@", "1;36", "of the file"}, {" ", " ", "0", "no slot"},
};

std::string draw(column which, const map_style& style, std::size_t count = 1)
{
    const glyph& g = glyphs[static_cast<std::size_t>(which)];
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += style.ascii ? g.ascii : g.shape;
    return style.colour && count != 0 ? fmt::format("\x1b[{}m{}\x1b[0m", g.colour, text) : text;
}

column column_of(std::span<const map_cell> cells, const map_style& style)
{
    const auto any = [&](cell_state state) {
        return std::any_of(cells.begin(), cells.end(), [=](const map_cell& cell) { return cell.state == state; });
    };
    const auto of_file = [&](const map_cell& cell) {
        return style.file && cell.state == cell_state::live && cell.file == *style.file;
    };
    if (std::any_of(cells.begin(), cells.end(), of_file)) return column::marked;
    if (any(cell_state::torn)) return column::torn;
    if (any(cell_state::live)) return any(cell_state::dead) ? column::mixed : column::live;
    if (any(cell_state::dead)) return column::dead;
    return any(cell_state::free) ? column::free : column::unused;
}

std::string cells_text(const map_unit& unit, const map_style& style)
{
    std::string text;
    std::size_t columns = 0, run = 0;
    column last = column::unused;
    for (std::size_t slot = 0; slot < unit.cells.size(); slot += slots_a_column, ++columns) {
        const auto cells = std::span(unit.cells).subspan(slot, std::min(slots_a_column, unit.cells.size() - slot));
        const column now = column_of(cells, style);
        if (now != last) text += draw(last, style, std::exchange(run, 0));
        last = now;
        ++run;
    }
    text += draw(last, style, run);
    return text + std::string(cell_columns - std::min(columns, cell_columns), ' ');
}

std::string bar_text(const map_unit& unit, std::uint32_t highest, const map_style& style)
{
    const std::size_t length = highest == 0 ? 0 : std::uint64_t{unit.erase_count} * cell_columns / highest;
    return draw(column::live, style, length) + std::string(cell_columns - length, ' ');
}

// Four digits and a blank; more have no room, and no unit lives that long.
std::string wear_text(std::uint32_t count)
{
    return count > 9999 ? ">9999" : fmt::format("{:>5}", count);
}

std::string legend(const map_style& style)
{
    std::string text = "each column is two slots of 64 bytes:";
    for (const column which : {column::live, column::mixed, column::dead, column::free, column::torn, column::marked}) {
        if (which == column::marked && !style.file) continue;
        text += fmt::format(" {} {}", draw(which, style), glyphs[static_cast<std::size_t>(which)].meaning);
    }
    return text + "\n";
}

std::string afs_text(const image_map& map, const map_style& style)
{
    std::uint32_t highest = 0;
    for (const map_unit& unit : map.units) highest = std::max(highest, unit.erase_count);
    std::string text = fmt::format(" EU kind  grp wear {}\n", style.wear ? "how often erased" : "slots");
    for (std::size_t eu = 0; eu < map.units.size(); ++eu) {
        const map_unit& unit = map.units[eu];
        text += fmt::format("{:>3} {:<5}{:>4}{} {}\n", eu, to_string(unit.role),
                            unit.group == inspect::none ? std::string("-") : fmt::format("{}", unit.group),
                            wear_text(unit.erase_count),
                            style.wear ? bar_text(unit, highest, style) : cells_text(unit, style));
    }
    return style.wear ? text : text + legend(style);
}

std::string efs_text(const image_map& map, const map_style& style)
{
    using enum text_table::align;
    text_table out({left, left, left, right, left});
    out.row({"block", "state", "", "wear", "files"});
    for (const map_block& block : map.blocks) {
        std::vector<std::string> files;
        for (const std::uint32_t file : block.files)
            files.push_back((style.file == file ? "*" : "") + map.file_name(file));
        out.row({block.name, block.state, block.detail,
                 block.erase_count ? fmt::format("{}", *block.erase_count) : std::string(),
                 fmt::format("{}", fmt::join(files, " "))});
    }
    return out.text();
}

} // namespace

std::string map_text(const image_map& map, const map_style& style)
{
    return map.summary() + "\n" + (map.kind == image_kind::afs ? afs_text(map, style) : efs_text(map, style));
}

std::string unit_text(const image_map& map, std::uint32_t eu)
{
    using enum text_table::align;
    const map_unit& unit = map.units[eu];
    std::string head = fmt::format("EU {}: {}, sequence {}, erased {} times", eu, to_string(unit.role), unit.sequence,
                                   unit.erase_count);
    if (unit.group != inspect::none) head += fmt::format(", group {}", unit.group);
    text_table out({right, left, right, left});
    out.row({"slot", "state", "page", "holds"});
    for (std::size_t slot = 0; slot < unit.cells.size(); ++slot) {
        const map_cell& cell = unit.cells[slot];
        out.row({fmt::format("{}", slot), std::string(to_string(cell.state)),
                 cell.page == inspect::none ? std::string("-") : fmt::format("{}", cell.page),
                 cell.file != inspect::none                                         ? map.file_name(cell.file)
                 : unit.role == inspect::eu_role::log && cell.page != inspect::none ? std::string("chain table")
                                                                                    : std::string()});
    }
    return head + "\n" + out.text();
}

} // namespace yfs::tool
