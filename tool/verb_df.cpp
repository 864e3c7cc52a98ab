// df: how full the images are, what a reclaim would win, and which files take most.
#include "inspect/efs_picture.h"
#include "inspect/picture.h"
#include "tool/output.h"
#include "tool/verbs.h"
#include "tool/volume.h"
#include "yfs/efs.h"

#include <fmt/format.h>

#include <algorithm>

namespace yfs::tool {

namespace {

constexpr std::size_t shown_files = 5;

json largest_document(const std::vector<stored_file>& files, file_system where)
{
    json::array list;
    for (const stored_file& file : files) {
        if (file.row.where != where || !file.size || list.size() == shown_files) continue;
        list.emplace_back(json::object{{"path", printable(file.row.path)}, {"size", *file.size}});
    }
    return list;
}

void add_largest(text_table& out, const std::vector<stored_file>& files, file_system where)
{
    std::size_t count = 0;
    for (const stored_file& file : files) {
        if (file.row.where != where || !file.size || count == shown_files) continue;
        out.row({count++ == 0 ? "largest" : "", fmt::format("{:>8}  {}", *file.size, printable(file.row.path))});
    }
}

json::object afs_report(text_table& out, const working_copy& image, const volume_space& space)
{
    const auto percent = space.chunks == 0 ? 0 : std::uint64_t{space.used} * 100 / space.chunks;
    out.row({image.name(), fmt::format("AFS, {} of 64 bytes", count_of(space.chunks, "chunk"))});
    out.row({"used", fmt::format("{} ({} %)", count_of(space.used, "chunk"), percent)});
    out.row(
        {"free", fmt::format("{}, {}", count_of(space.free(), "chunk"), bytes_text(std::uint64_t{space.free()} * 64))});
    out.row({"", fmt::format("{} at once, {} more after a reclaim", space.at_once, space.free() - space.at_once)});
    return {{"path", image.name()}, {"kind", "afs"},        {"chunks", space.chunks},
            {"used", space.used},   {"free", space.free()}, {"free_at_once", space.at_once}};
}

json::object efs_report(text_table& out, const working_copy& image)
{
    const inspect::efs_picture picture = inspect::inspect_efs(image.before, plan_for(image.ref, image.before));
    std::uint64_t used = 0, kept = 0;
    for (std::size_t file = 0; file < picture.files.size(); ++file) {
        if (picture.files[file].state == inspect::efs_file_state::not_in_use) continue;
        kept += picture.plan.files[file].max_size;
        used += picture.files[file].size;
    }
    const auto blocks = std::uint32_t{picture.plan.geo.valid_block_num},
               spares = std::uint32_t{picture.plan.geo.non_valid_block_num};
    out.row({image.name(),
             fmt::format("EFS, {} of 4096 bytes and {}", count_of(blocks, "block"), count_of(spares, "spare"))});
    out.row({"used", fmt::format("{} of {} that the layout keeps for files", bytes_text(used), bytes_text(kept))});
    out.row({"spares", fmt::format("{} blank, {} to be erased", picture.free_spares, picture.dirty_spares)});
    return {{"path", image.name()},
            {"kind", "efs"},
            {"blocks", blocks},
            {"spares", spares},
            {"used", used},
            {"kept", kept},
            {"spares_blank", picture.free_spares},
            {"spares_dirty", picture.dirty_spares}};
}

} // namespace

exit_status disk_free(const options& given)
{
    session set(given);
    volume images(set);
    images.mount_afs();
    const bool efs_mounts = set.efs && g_efs_autogen_data_loaded != 0;
    if (efs_mounts) images.mount_efs();
    std::vector<stored_file> files = images.files();
    std::stable_sort(files.begin(), files.end(),
                     [](const stored_file& a, const stored_file& b) { return a.size > b.size; });

    text_table out({text_table::align::left, text_table::align::left});
    json::array documents;
    if (set.yfs) {
        json::object one = afs_report(out, *set.yfs, images.space());
        one.emplace_back("largest", largest_document(files, file_system::afs));
        add_largest(out, files, file_system::afs);
        documents.emplace_back(std::move(one));
    }
    if (set.efs) {
        json::object one = efs_report(out, *set.efs);
        one.emplace_back("largest", largest_document(files, file_system::efs));
        add_largest(out, files, file_system::efs);
        documents.emplace_back(std::move(one));
    }
    print(given.json ? json(json::object{{"schema", "yfs.df/1"}, {"images", std::move(documents)}}).dump()
                     : out.text());
    return exit_status::done;
}

} // namespace yfs::tool
