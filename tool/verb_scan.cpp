// scan: the partitions inside a flash dump, wherever they begin.
#include "inspect/picture.h"
#include "tool/error.h"
#include "tool/output.h"
#include "tool/tables.h"
#include "tool/verbs.h"
#include "yfs/vfs.h"

#include <fmt/format.h>

#include <algorithm>

namespace yfs::tool {

namespace {

constexpr std::uint64_t grain = 4096; // an erase block: partitions end with one, and mostly begin with one
constexpr std::uint64_t largest_dump = 1ULL << 30;

struct partition {
    std::uint64_t offset = 0, size = 0;
    std::string_view kind; // "afs", "efs", "ftbl"
    std::string detail;
    bool clean = true;
};

bool unit_at(std::span<const std::uint8_t> dump)
{
    return dump.size() >= ftl::eu_size && inspect::is_erase_unit(load<ftl::eu_header_t>(dump.data()));
}

// Units of one volume follow each other without a gap, but for one that a power cut left without a header.
std::optional<partition> afs_at(std::span<const std::uint8_t> dump, std::uint64_t offset)
{
    std::size_t units = 0, gaps = 0;
    const std::size_t most = std::min<std::size_t>(dump.size() / ftl::eu_size, afs::max_flash_size / ftl::eu_size - 1);
    for (std::size_t at = 0; at < most && gaps < 2; ++at) {
        if (unit_at(dump.subspan(at * ftl::eu_size)))
            units = at + 1;
        else
            ++gaps;
    }
    if (units * ftl::eu_size < afs::min_flash_size) return {};
    const inspect::picture picture = inspect::inspect_image(dump.first(units * ftl::eu_size));
    if (!picture.has_volume) return {};
    return partition{offset, units * ftl::eu_size, "afs",
                     fmt::format("{}, file numbers 0 to {}", count_of(units, "erase unit"), picture.files - 1),
                     picture.clean()};
}

// Begins with its block maps. Without the table of files its blocks are all that can be checked.
std::optional<partition> efs_at(std::span<const std::uint8_t> dump, std::uint64_t offset)
{
    const auto window =
        dump.first(std::min<std::size_t>(dump.size(), std::size_t{2} * efs::max_count * efs::block_bytes));
    const auto plan = inspect::plan_of_image(window);
    if (!plan) return {};
    const auto size = static_cast<std::size_t>(plan->geo.image_bytes());
    const inspect::efs_picture picture = inspect::inspect_efs(window.first(size), *plan);
    if (!picture.has_map || (picture.bms[0].state == inspect::bm_state::unsound && picture.current_bm != 0)) return {};
    return partition{offset, size, "efs",
                     fmt::format("{} maps, {} logical blocks, {} spares, layout {}", plan->geo.bm_num,
                                 plan->geo.valid_block_num, plan->geo.non_valid_block_num, plan->layout_id),
                     picture.clean()};
}

std::optional<partition> ftbl_at(std::span<const std::uint8_t> dump, std::uint64_t offset)
{
    constexpr std::string_view magic = "FTBL";
    if (dump.size() < magic.size() || !std::equal(magic.begin(), magic.end(), dump.begin())) return {};
    const auto window = dump.first(std::min<std::size_t>(dump.size(), largest_file));
    try {
        const std::vector<std::uint32_t> skus = skus_in({window.begin(), window.end()}, "");
        std::uint64_t end = grain;
        for (std::size_t sku = 0; sku < skus.size(); ++sku) {
            const auto entry =
                load<ftbl_sku_entry_t>(window.data() + sizeof(ftbl_header_t) + sku * sizeof(ftbl_sku_entry_t));
            end = std::max(end, std::uint64_t{entry.table_offset} +
                                    std::uint64_t{entry.num_files} * sizeof(ftbl_file_entry_t));
        }
        const std::uint64_t whole = (end + grain - 1) / grain * grain;
        return partition{offset, std::min<std::uint64_t>(whole, window.size()), "ftbl",
                         fmt::format("a file table for the SKUs {}", fmt::join(skus, ", ")), true};
    } catch (const failure&) {
        return {};
    }
}

// Off the grid of erase blocks only where a block map's version stands, since more can't be looked at for every byte.
bool may_begin_efs(std::span<const std::uint8_t> dump, std::uint64_t offset)
{
    return offset % grain == 0 || (dump.size() > 1 && dump[0] == efs::bm_version && dump[1] == 0);
}

std::vector<partition> find_partitions(std::span<const std::uint8_t> dump)
{
    std::vector<partition> found;
    for (std::uint64_t offset = 0; offset < dump.size();) {
        const auto rest = dump.subspan(offset);
        std::optional<partition> here;
        if (unit_at(rest)) here = afs_at(rest, offset);
        if (!here) here = ftbl_at(rest, offset);
        if (!here && may_begin_efs(rest, offset)) here = efs_at(rest, offset);
        if (here) found.push_back(*here);
        offset += here ? here->size : 1;
    }
    return found;
}

} // namespace

exit_status scan(const options& given)
{
    const std::string& name = given.inputs.front();
    const bytes dump = read_file(name, largest_dump);
    const std::vector<partition> found = find_partitions(dump);
    using enum text_table::align;
    text_table out({right, right, left, left, left, left});
    out.row({"offset", "size", "kind", "state", "image", ""});
    json::array list;
    for (const auto& [offset, size, kind, detail, clean] : found) {
        const std::string image = fmt::format("{}@0x{:x}+0x{:x}", name, offset, size);
        out.row({fmt::format("0x{:x}", offset), fmt::format("0x{:x}", size), std::string(kind),
                 clean ? "clean" : "check it", image, detail});
        list.emplace_back(json::object{{"offset", offset},
                                       {"size", size},
                                       {"kind", kind},
                                       {"clean", clean},
                                       {"image", image},
                                       {"detail", detail}});
    }
    if (given.json)
        print(json(json::object{{"schema", "yfs.scan/1"}, {"path", name}, {"partitions", std::move(list)}}).dump());
    else if (!found.empty())
        print(out.text());
    note(fmt::format("{} in {} of {}", count_of(found.size(), "partition"), bytes_text(dump.size()), name));
    return found.empty() ? exit_status::no : exit_status::done;
}

} // namespace yfs::tool
