// map: what every part of the images is for, as text, JSON, or a picture.
#include "tool/error.h"
#include "tool/map_svg.h"
#include "tool/map_text.h"
#include "tool/output.h"
#include "tool/verbs.h"

#include <fmt/format.h>

#include <cstdlib>
#include <unistd.h>

namespace yfs::tool {

namespace {

json document_of(const map_unit& unit)
{
    std::string cells;
    for (const map_cell& cell : unit.cells) cells += to_string(cell.state).front();
    return json::object{{"kind", to_string(unit.role)},
                        {"group", unit.group == inspect::none ? json() : json(unit.group)},
                        {"sequence", unit.sequence},
                        {"erase_count", unit.erase_count},
                        {"slots", cells}};
}

json document_of(const image_map& map, const map_block& block)
{
    json::array files;
    for (const std::uint32_t file : block.files) files.emplace_back(map.file_name(file));
    return json::object{{"block", block.name},
                        {"state", block.state},
                        {"detail", block.detail},
                        {"erase_count", block.erase_count ? json(*block.erase_count) : json()},
                        {"files", std::move(files)}};
}

json document_of(const image_map& map)
{
    json::array parts;
    for (const map_unit& unit : map.units) parts.push_back(document_of(unit));
    for (const map_block& block : map.blocks) parts.push_back(document_of(map, block));
    return json::object{{"path", map.name},
                        {"kind", to_string(map.kind)},
                        {map.kind == image_kind::afs ? "units" : "blocks", std::move(parts)}};
}

bool colour_wanted()
{
    const char* const no_colour = std::getenv("NO_COLOR");
    return ::isatty(STDOUT_FILENO) == 1 && (no_colour == nullptr || *no_colour == '\0');
}

void save_picture(const std::string& target, const std::vector<image_map>& maps)
{
    const bool page = target.ends_with(".html");
    if (!page && !target.ends_with(".svg"))
        throw failure(fault::usage, fmt::format("'{}' is neither .svg nor .html", target), "name one of these");
    const std::string text = page ? map_html(maps, "Map of a flash image") : map_svg(maps);
    save_list list;
    list.add(target, {text.begin(), text.end()});
    list.commit();
    note(fmt::format("drew {}", target));
}

} // namespace

exit_status map(const options& given)
{
    const session set(given);
    std::optional<file_row> marked;
    if (!given.path.empty()) marked = set.table.resolve(given.path);
    std::vector<image_map> maps;
    for (const image_kind kind : {image_kind::afs, image_kind::efs}) {
        if (const auto& image = set.image(kind)) maps.push_back(map_of(set, *image, kind));
    }
    if (maps.empty()) throw failure(fault::no_volume, fmt::format("{} names no image", set.name()));
    if (!given.change.output.empty()) {
        save_picture(given.change.output, maps);
        return exit_status::done;
    }
    if (given.json) {
        json::array images;
        for (const image_map& each : maps) images.push_back(document_of(each));
        print(json(json::object{{"schema", "yfs.map/1"}, {"images", std::move(images)}}).dump());
        return exit_status::done;
    }
    std::string text;
    for (const image_map& each : maps) {
        map_style style{given.ascii, !given.ascii && colour_wanted(), given.wear, {}};
        if (marked && (marked->where == file_system::efs) == (each.kind == image_kind::efs)) style.file = marked->index;
        if (given.unit && each.kind == image_kind::efs) continue;
        if (given.unit && *given.unit >= each.units.size()) {
            throw failure(fault::usage, fmt::format("{} has {}, counted from 0", each.name,
                                                    count_of(each.units.size(), "erase unit")));
        }
        text += (text.empty() ? "" : "\n") + (given.unit ? unit_text(each, *given.unit) : map_text(each, style));
    }
    print(text);
    return exit_status::done;
}

} // namespace yfs::tool
