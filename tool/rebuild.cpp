#include "tool/rebuild.h"

#include "inspect/efs_picture.h"
#include "inspect/picture.h"
#include "tool/error.h"
#include "tool/output.h"
#include "tool/volume.h"
#include "yfs/dfs.h"
#include "yfs/efs.h"
#include "yfs/ftl.h"
#include "yfs/le.h"
#include "yfs/make_efs.h"
#include "yfs/make_volume.h"
#include "yfs/medium.h"
#include "yfs/status.h"

#include <fmt/format.h>

#include <algorithm>

namespace yfs::tool {

namespace {

// Whether all units without a header held file contents, so that the chain table is whole. It is told by the groups
// that nothing holds, where the volume has units for every group.
bool lost_units_are_data(const inspect::picture& picture)
{
    const auto lost = std::count_if(picture.eus.begin(), picture.eus.end(),
                                    [](const auto& unit) { return unit.role == inspect::eu_role::unknown; });
    const auto unowned = std::count(picture.group_owner.begin(), picture.group_owner.end(), inspect::none);
    constexpr std::size_t log_and_spare = 2;
    return lost == unowned && picture.groups + log_and_spare <= picture.eus.size();
}

// Where a part of the log is gone, older pages of the chain table are in force: every file may read as it once was, or
// as pieces of two states, and nothing in it shows that. The finding that tells of it; null if the table is certain.
const inspect::finding* doubt_about(const inspect::picture& picture)
{
    using enum inspect::finding_id;
    const auto doubtful = [&](const inspect::finding& f) {
        switch (f.id) {
        case eu_two_invalid:
        case eu_two_incomplete:
            return !lost_units_are_data(picture);
        case eu_spare_not_named:
        case eu_incomplete_source:
        case eu_seq_twice:
        case log_record_range:
        case log_behind_end:
        case fat_page_crc:
        case fat_head_range:
            return true;
        default:
            return false;
        }
    };
    const auto found = std::find_if(picture.findings.begin(), picture.findings.end(), doubtful);
    return found == picture.findings.end() ? nullptr : &*found;
}

std::optional<salvage> salvage_afs(const working_copy& image)
{
    const inspect::picture picture = inspect::inspect_image(image.now);
    if (!picture.has_volume) return {};
    salvage out;
    if (const inspect::finding* const doubt = doubt_about(picture)) out.doubt = describe(*doubt);
    for (std::uint32_t file = 0; file < picture.file.size(); ++file) {
        const inspect::file_view& view = picture.file[file];
        if (view.damaged)
            out.damaged.push_back(file);
        else if (auto contents = inspect::read_file(picture, file))
            out.sound.emplace(file, *std::move(contents));
    }
    return out;
}

std::optional<salvage> salvage_efs(const working_copy& image)
{
    const inspect::efs_picture picture = inspect::inspect_efs(image.now, plan_for(image.ref, image.now));
    if (!picture.has_map) return {};
    salvage out;
    for (std::uint32_t file = 0; file < picture.files.size(); ++file) {
        if (picture.files[file].state == inspect::efs_file_state::damaged)
            out.damaged.push_back(file);
        else if (auto contents = inspect::read_file(picture, file))
            out.sound.emplace(file, *std::move(contents));
    }
    return out;
}

// A fresh volume counts from 1. A unit that has been worn is to be spared as before, so its count goes on from the old
// one, or from the average where the old one can't be told.
void carry_erase_counts(const inspect::picture& old, bytes& image)
{
    std::uint64_t sum = 0, sound = 0;
    for (const inspect::erase_unit& unit : old.eus) {
        if (!unit.valid) continue;
        sum += unit.header.erase_count;
        ++sound;
    }
    const auto average = static_cast<std::uint32_t>(sound == 0 ? 0 : sum / sound);
    for (std::size_t eu = 0; eu < old.eus.size() && (eu + 1) * ftl::eu_size <= image.size(); ++eu) {
        std::uint8_t* const at = image.data() + eu * ftl::eu_size;
        auto header = load<ftl::eu_header_t>(at);
        const std::uint32_t count = old.eus[eu].valid ? std::uint32_t{old.eus[eu].header.erase_count} : average;
        header.erase_count = std::min(count, UINT32_MAX - 1) + 1;
        const std::uint32_t magic = header.magic;
        header.magic = ftl::eu_magic; // also in the spare, whose magic is given up
        header.crc = crc8(&header, ftl::header_crc_bytes);
        header.magic = magic;
        store(at, header);
    }
}

[[noreturn]] void refuse(const working_copy& image, image_kind kind, const std::string& why)
{
    throw failure(kind == image_kind::afs ? fault::volume_damaged : fault::efs_damaged,
                  fmt::format("{} can't be rebuilt: {}", image.name(), why));
}

bytes rebuild_afs(const working_copy& image, const std::map<std::uint32_t, bytes>& files)
{
    const inspect::picture old = inspect::inspect_image(image.now);
    bytes fresh(image.now.size());
    const auto size = low32(fresh.size());
    if (yfs_make_volume(fresh.data(), size, old.files) != 0)
        refuse(image, image_kind::afs, fmt::format("no volume of {} for {} files can be", bytes_text(size), old.files));
    carry_erase_counts(old, fresh);
    if (dfs_init(fresh.data(), size) != afs_status::ok)
        refuse(image, image_kind::afs, "the fresh volume doesn't mount");
    for (const auto& [file, contents] : files) {
        constexpr std::uint32_t ends_behind = 1;
        const std::uint32_t status = dfs_write(file, 0, low32(contents.size()), contents.data(), ends_behind);
        if (status == afs_status::no_space)
            throw failure(fault::volume_full,
                          fmt::format("{}: what can be saved doesn't fit a volume of that size", image.name()));
        if (status != afs_status::ok)
            refuse(image, image_kind::afs, fmt::format("afs#{} answers status {}", file, status));
    }
    return fresh;
}

bytes rebuild_efs(const working_copy& image, const std::map<std::uint32_t, bytes>& files)
{
    bytes fresh(image.now.size());
    if (g_efs_autogen_data_loaded == 0 || EFS_get_efs_size() > fresh.size() ||
        yfs_make_efs(fresh.data(), EFS_get_efs_size()) != 0 || EFS_init_tools(fresh.data()) != efs_status::ok)
        refuse(image, image_kind::efs, "no file table with its layout");
    std::copy(image.now.begin() + static_cast<std::ptrdiff_t>(EFS_get_efs_size()), image.now.end(),
              fresh.begin() + static_cast<std::ptrdiff_t>(EFS_get_efs_size()));
    for (const auto& [file, contents] : files) {
        const std::uint8_t nothing = 0; // a pointer is asked for, also for no bytes
        const std::uint32_t status =
            EFS_write(file, 0, low32(contents.size()), contents.empty() ? &nothing : contents.data());
        if (status != efs_status::ok)
            refuse(image, image_kind::efs, fmt::format("efs#{} answers status {}", file, status));
    }
    return fresh;
}

} // namespace

std::optional<salvage> salvage_image(const working_copy& image, image_kind kind)
{
    return kind == image_kind::afs ? salvage_afs(image) : salvage_efs(image);
}

file_row row_in(const session& set, image_kind kind, std::uint32_t file)
{
    return set.table.resolve(fmt::format("{}#{}", to_string(kind), file));
}

void list_losses(const session& set, const working_copy& image, image_kind kind, const salvage& saved)
{
    if (!saved.doubt.empty()) note(fmt::format("{}: no file is certain: {}", image.name(), saved.doubt));
    for (const std::uint32_t file : saved.damaged)
        note(fmt::format("{}: lost: {}#{} {}", image.name(), to_string(kind), file,
                         printable(row_in(set, kind, file).path)));
}

bytes rebuild_image(const working_copy& image, image_kind kind, const std::map<std::uint32_t, bytes>& files)
{
    return kind == image_kind::afs ? rebuild_afs(image, files) : rebuild_efs(image, files);
}

} // namespace yfs::tool
