#include "tool/map_svg.h"

#include <fmt/format.h>

#include <algorithm>

namespace yfs::tool {

namespace {

// One unit of the picture is one CSS pixel. A slot is 6 wide; an EFS block is as wide as the 122 slots of a data unit.
constexpr int left_edge = 172, slot_width = 6, row_height = 14, cell_height = 11, right_edge = 18;
constexpr int row_width = 122 * slot_width;
constexpr int picture_width = left_edge + row_width + right_edge;

// Colours stand in rules, not in variables, which not every renderer knows.
constexpr const char* style_sheet = R"(
.ground { fill: #ffffff; } .live { fill: #2a7fb8; } .dead { fill: #d3bd87; } .free { fill: #eef1f4; } .torn { fill: #c0392b; }
.unused { fill: none; }
text { font: 11px ui-monospace, SFMono-Regular, Menlo, Consolas, "DejaVu Sans Mono", monospace; fill: #1f2328; }
text.head { font-size: 14px; font-weight: 600; } text.soft { fill: #6e7781; } text.lit-text { fill: #e8590c; }
rect.frame { fill: none; stroke: #d0d7de; } rect.lit { fill: none; stroke: #e8590c; stroke-width: 2; }
@media screen and (prefers-color-scheme: dark) {
  .ground { fill: #0d1117; } .live { fill: #58a6d6; } .dead { fill: #8d7a4a; } .free { fill: #21262d; } .torn { fill: #ff6b5e; }
  text { fill: #e6edf3; } text.soft { fill: #8b949e; } text.lit-text { fill: #ffa94d; }
  rect.frame { stroke: #30363d; } rect.lit { stroke: #ffa94d; }
}
@media print {
  .live { fill: #333333; } .dead { fill: #aaaaaa; } .free { fill: #ffffff; } .torn { fill: #000000; }
  text, text.soft, text.lit-text { fill: #000000; } rect.frame { stroke: #666666; } rect.lit { stroke: #000000; }
}
)";

class drawing {
public:
    void heading(const std::string& text)
    {
        y_ += 26;
        out_ += fmt::format("<text class=\"head\" x=\"16\" y=\"{}\">{}</text>\n", y_, escaped_xml(text));
        y_ += 12;
    }
    void columns(std::string_view left, std::string_view right)
    {
        y_ += 8;
        out_ += fmt::format("<text class=\"soft\" x=\"16\" y=\"{}\" xml:space=\"preserve\">{}</text>"
                            "<text class=\"soft\" x=\"{}\" y=\"{}\">{}</text>\n",
                            y_, left, left_edge, y_, right);
        y_ += 6;
    }
    void row(const std::string& label, bool lit)
    {
        out_ += fmt::format("<text class=\"{}\" x=\"16\" y=\"{}\" xml:space=\"preserve\">{}</text>\n",
                            lit ? "lit-text" : "label", y_ + cell_height - 1, escaped_xml(label));
    }
    void box(double x, double width, cell_state state, const std::string& hover)
    {
        out_ += fmt::format(
            "<rect class=\"{}\" x=\"{:.4g}\" y=\"{}\" width=\"{:.4g}\" height=\"{}\"><title>{}</title></rect>\n",
            to_string(state), left_edge + x, y_, width, cell_height, escaped_xml(hover));
    }
    void outline(double x, double width, const char* kind)
    {
        out_ += fmt::format("<rect class=\"{}\" x=\"{:.4g}\" y=\"{}\" width=\"{:.4g}\" height=\"{}\"/>\n", kind,
                            left_edge + x, y_, width, cell_height);
    }
    void next_row() { y_ += row_height; }
    void legend(bool lit)
    {
        int x = left_edge;
        for (const cell_state state : all_cell_states) {
            out_ += fmt::format("<rect class=\"{}\" x=\"{}\" y=\"{}\" width=\"18\" height=\"{}\"/>"
                                "<text x=\"{}\" y=\"{}\">{}</text>\n",
                                to_string(state), x, y_ + 6, cell_height, x + 24, y_ + 16, to_string(state));
            out_ += fmt::format("<rect class=\"frame\" x=\"{}\" y=\"{}\" width=\"18\" height=\"{}\"/>\n", x, y_ + 6,
                                cell_height);
            x += 90;
        }
        if (lit) {
            out_ += fmt::format("<rect class=\"lit\" x=\"{}\" y=\"{}\" width=\"18\" height=\"{}\"/>"
                                "<text x=\"{}\" y=\"{}\">changed</text>\n",
                                x, y_ + 6, cell_height, x + 24, y_ + 16);
        }
        y_ += 26;
    }
    std::string text() const
    {
        return fmt::format("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{}\" height=\"{}\" viewBox=\"0 0 {} {}\" "
                           "role=\"img\">\n<title>Map of a flash image</title>\n<style>{}</style>\n"
                           "<rect class=\"ground\" width=\"100%\" height=\"100%\"/>\n{}</svg>\n",
                           picture_width, y_ + 12, picture_width, y_ + 12, style_sheet, out_);
    }

private:
    std::string out_;
    int y_ = 0;
};

bool same_run(const map_cell& a, const map_cell& b)
{
    return a.state == b.state && a.file == b.file;
}

std::string hover_of(const image_map& map, std::size_t eu, std::size_t first, std::size_t last)
{
    const map_cell& cell = map.units[eu].cells[first];
    const std::string slots =
        first == last ? fmt::format("slot {}", first) : fmt::format("slots {} to {}", first, last);
    std::string text = fmt::format("EU {}, {}: {}", eu, slots, to_string(cell.state));
    if (cell.file != inspect::none) text += ", " + map.file_name(cell.file);
    if (cell.page != inspect::none) text += fmt::format(", page {}", cell.page);
    return text;
}

void draw_unit(drawing& to, const image_map& map, std::size_t eu)
{
    const map_unit& unit = map.units[eu];
    to.row(fmt::format("{:>3} {:<5} {:>4} {:>5}", eu, to_string(unit.role),
                       unit.group == inspect::none ? std::string("-") : fmt::format("{}", unit.group),
                       unit.erase_count),
           unit.changed);
    for (std::size_t first = 0; first < unit.cells.size();) {
        std::size_t last = first;
        while (last + 1 < unit.cells.size() && same_run(unit.cells[first], unit.cells[last + 1])) ++last;
        to.box(static_cast<double>(first * slot_width), static_cast<double>((last + 1 - first) * slot_width) - 0.7,
               unit.cells[first].state, hover_of(map, eu, first, last));
        first = last + 1;
    }
    for (std::size_t first = 0; first < unit.cells.size(); ++first) {
        if (!unit.cells[first].changed) continue;
        std::size_t last = first;
        while (last + 1 < unit.cells.size() && unit.cells[last + 1].changed) ++last;
        to.outline(static_cast<double>(first * slot_width), static_cast<double>((last + 1 - first) * slot_width),
                   "lit");
        first = last;
    }
    const std::size_t slots = unit.cells.empty() ? 122 : unit.cells.size();
    if (!unit.changed || unit.cells.empty())
        to.outline(0, static_cast<double>(slots * slot_width), unit.changed ? "lit" : "frame");
    to.next_row();
}

void draw_block(drawing& to, const image_map& map, const map_block& block)
{
    constexpr double scale = static_cast<double>(row_width) / efs::block_bytes;
    const bool changed =
        std::any_of(block.extents.begin(), block.extents.end(), [](const map_extent& each) { return each.changed; });
    to.row(fmt::format("{:<8} {:<7} {:>4}", block.name, block.state,
                       block.erase_count ? fmt::format("{}", *block.erase_count) : std::string()),
           changed);
    for (const map_extent& each : block.extents) {
        const std::string what = each.file == inspect::none ? block.state : map.file_name(each.file);
        to.box(
            each.from * scale, std::max((each.to - each.from) * scale - 1, 1.0), each.state,
            fmt::format("{}, bytes {} to {}: {}, {}", block.name, each.from, each.to - 1, what, to_string(each.state)));
        if (each.changed) to.outline(each.from * scale, std::max((each.to - each.from) * scale - 1, 2.0), "lit");
    }
    if (!changed) to.outline(0, row_width, "frame");
    to.next_row();
}

} // namespace

std::string escaped_xml(std::string_view text)
{
    std::string out;
    for (const char c : text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::string map_svg(const std::vector<image_map>& maps)
{
    drawing picture;
    bool lit = false;
    for (const image_map& map : maps) {
        picture.heading(map.summary());
        if (map.kind == image_kind::afs)
            picture.columns(" EU kind   grp  wear", "slots of 64 bytes");
        else
            picture.columns("block    state   wear", "4096 bytes, as the layout keeps them for files");
        for (std::size_t eu = 0; eu < map.units.size(); ++eu) {
            lit |= map.units[eu].changed;
            draw_unit(picture, map, eu);
        }
        for (const map_block& block : map.blocks) {
            for (const map_extent& each : block.extents) lit |= each.changed;
            draw_block(picture, map, block);
        }
    }
    picture.legend(lit);
    return picture.text();
}

std::string map_html(const std::vector<image_map>& maps, std::string_view title, std::string_view extra)
{
    return fmt::format("<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>{0}</title>\n"
                       "<style>:root {{ color-scheme: light dark; }} body {{ margin: 24px; font: 14px system-ui, "
                       "sans-serif; }} svg {{ max-width: 100%; height: auto; }} pre {{ overflow-x: auto; }}\n"
                       "@media screen and (prefers-color-scheme: dark) {{ body {{ background: #0d1117; }} }}</style>\n"
                       "</head>\n<body>\n<h1>{0}</h1>\n{1}{2}</body>\n</html>\n",
                       escaped_xml(title), extra, map_svg(maps));
}

} // namespace yfs::tool
