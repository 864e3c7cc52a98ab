// stat: all that is known of one file, down to the places of its contents on the flash.
#include "inspect/efs_picture.h"
#include "inspect/picture.h"
#include "tool/output.h"
#include "tool/verbs.h"
#include "tool/volume.h"
#include "yfs/efs.h"

#include <fmt/format.h>

#include <map>

namespace yfs::tool {

namespace {

// A piece of a file: a chunk of 64 bytes in an erase unit, or its part of a block.
struct piece {
    std::uint32_t id;   // chunk id; logical block
    std::uint32_t unit; // erase unit; physical block
    std::uint32_t address;
};

std::vector<piece> pieces_on_afs(const bytes& image, std::uint32_t index)
{
    const inspect::picture picture = inspect::inspect_image(image);
    std::vector<piece> pieces;
    for (const std::uint16_t chunk : picture.chunks_of(index)) {
        const std::uint32_t address = picture.frame_address(chunk);
        pieces.push_back({chunk, address / ftl::eu_size, address});
    }
    return pieces;
}

std::vector<piece> pieces_on_efs(const working_copy& image, std::uint32_t index)
{
    const inspect::efs_picture picture = inspect::inspect_efs(image.before, plan_for(image.ref, image.before));
    std::vector<piece> pieces;
    if (index >= picture.files.size()) return pieces;
    const std::uint32_t first = picture.plan.files[index].first_block;
    for (std::uint32_t block = first; block < first + picture.files[index].blocks; ++block)
        pieces.push_back({block, picture.valid_table[block], picture.data_area_at(block)});
    return pieces;
}

std::string where_text(const std::vector<piece>& pieces, bool on_efs)
{
    std::map<std::uint32_t, std::size_t> units;
    for (const piece& each : pieces) ++units[each.unit];
    std::vector<std::string> names;
    names.reserve(units.size());
    for (const auto& [unit, count] : units)
        names.push_back(on_efs || units.size() == 1 ? fmt::format("{}", unit) : fmt::format("{} ({})", unit, count));
    return fmt::format("{} in {} {}", on_efs ? count_of(pieces.size(), "block") : count_of(pieces.size(), "chunk"),
                       on_efs ? "data block" : "erase unit", fmt::join(names, ", "));
}

json document_of(const file_row& row, std::uint32_t size, const std::vector<piece>& pieces)
{
    const bool on_efs = row.where == file_system::efs;
    json::array list;
    for (const piece& each : pieces) {
        list.emplace_back(json::object{{on_efs ? "logical_block" : "chunk", each.id},
                                       {on_efs ? "block" : "eu", each.unit},
                                       {"address", each.address}});
    }
    json::object members = {
        {"schema", "yfs.stat/1"}, {"path", printable(row.path)}, {"place", row.place()}, {"size", size}};
    if (row.limit != no_limit) {
        members.emplace_back("limit", row.limit);
        members.emplace_back("tail", row.tail());
        members.emplace_back("attributes", std::uint32_t{row.attributes});
        members.emplace_back("fileno", row.fileno);
    }
    members.emplace_back("pieces", std::move(list));
    return members;
}

std::string text_of(const file_row& row, std::uint32_t size, const std::vector<piece>& pieces)
{
    text_table out({text_table::align::left, text_table::align::left});
    out.row({"path", printable(row.path)});
    out.row({"place", row.place()});
    out.row({"size", bytes_text(size)});
    if (row.limit != no_limit) {
        out.row({"limit", bytes_text(row.limit)});
        if (row.tail() != 0) out.row({"tail", fmt::format("the last {}", bytes_text(row.tail()))});
        out.row({"attributes", fmt::format("{:04x}", row.attributes)});
        out.row({"fileno", fmt::format("0x{:x}", row.fileno)});
    }
    if (!pieces.empty()) out.row({"contents", where_text(pieces, row.where == file_system::efs)});
    return out.text();
}

} // namespace

exit_status stat_file(const options& given)
{
    session set(given);
    const file_row row = set.table.resolve(given.path);
    volume images(set);
    images.mount(row.where);
    const auto size = images.size_of(row);
    if (!size) images.refuse_absent(row);
    const std::vector<piece> pieces =
        row.where == file_system::efs ? pieces_on_efs(*set.efs, row.index) : pieces_on_afs(set.yfs->before, row.index);
    print(given.json ? document_of(row, *size, pieces).dump() : text_of(row, *size, pieces));
    return exit_status::done;
}

} // namespace yfs::tool
