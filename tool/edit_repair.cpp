// repair: what a writable mount and idle work mend, they mend. Where that isn't enough, the image is built anew from
// the files that can be read. That loses nothing if all can; else it needs the user's word, and what goes is listed.
#include "inspect/efs_picture.h"
#include "inspect/picture.h"
#include "tool/edits.h"
#include "tool/error.h"
#include "tool/image_work.h"
#include "tool/output.h"
#include "tool/rebuild.h"
#include "tool/verbs.h"
#include "tool/volume.h"
#include "yfs/dfs.h"
#include "yfs/efs.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace yfs::tool {

namespace {

using inspect::finding;
using inspect::severity;

// Faults and warnings.
std::size_t troubles(const working_copy& image, const bytes& contents, image_kind kind)
{
    const std::vector<finding> findings = kind == image_kind::afs
                                              ? inspect::inspect_image(contents).findings
                                              : inspect::inspect_efs(contents, plan_for(image.ref, contents)).findings;
    return static_cast<std::size_t>(std::count_if(findings.begin(), findings.end(),
                                                  [](const finding& f) { return severity_of(f) != severity::info; }));
}

// Mounts a copy and lets idle work run: a mount finishes what a power cut interrupted, and a reclaim leaves torn slots
// behind. Nothing if it doesn't mount.
std::optional<bytes> mended_in_place(const working_copy& image, image_kind kind)
{
    working_copy copy = image;
    try {
        if (kind == image_kind::afs) {
            if (dfs_init(copy.now.data(), low32(copy.now.size())) != 0) return {};
            reclaim_all_units(copy);
            reclaim_worthwhile(copy);
        } else {
            if (g_efs_autogen_data_loaded == 0 || copy.now.size() < EFS_get_efs_size() ||
                EFS_init_tools(copy.now.data()) != 0)
                return {};
            settle_efs(copy);
        }
    } catch (const failure&) {
        return {};
    }
    return std::move(copy.now);
}

// Answers what was done to the image; empty if it needed nothing.
std::string repair_image(session& set, working_copy& image, image_kind kind, bool lossy, changes& done)
{
    const std::size_t before = troubles(image, image.now, kind);
    if (before == 0) return {};
    const auto saved = salvage_image(image, kind);
    const bool certain = saved && saved->doubt.empty();
    // Where older pages are in force, a reclaim would make them last.
    if (auto mended = certain ? mended_in_place(image, kind) : std::nullopt;
        mended && troubles(image, *mended, kind) == 0) {
        image.now = *std::move(mended);
        return fmt::format("{}: {} mended", image.name(), count_of(before, "finding"));
    }
    const fault damage = kind == image_kind::afs ? fault::volume_damaged : fault::efs_damaged;
    if (!saved) {
        throw failure(damage,
                      fmt::format("{}: nothing tells which files there are, so nothing can be saved", image.name()),
                      fmt::format("'yfs mkfs {}' makes a new one", to_string(kind)));
    }
    list_losses(set, image, kind, *saved);
    if (!lossy && !(certain && saved->damaged.empty())) {
        const std::string what =
            certain ? fmt::format("{}: a repair would lose the {} listed above and keep {}", image.name(),
                                  count_of(saved->damaged.size(), "file"), saved->sound.size())
                    : fmt::format("{}: a repair would keep {} that can be read, any of which may be an older state or "
                                  "pieces of several",
                                  image.name(), count_of(saved->sound.size(), "file"));
        throw failure(damage, what, "--lossy does that; 'yfs extract' saves what can be read beforehand");
    }
    for (const std::uint32_t file : saved->damaged)
        done.touch(row_of_place(kind == image_kind::afs ? file_system::afs : file_system::efs, low16(file)));
    image.now = rebuild_image(image, kind, saved->sound);
    return fmt::format("{}: built anew with {}", image.name(), count_of(saved->sound.size(), "file"));
}

} // namespace

std::string repair(session& set, const options& given, changes& done)
{
    std::vector<std::string> told;
    for (const image_kind kind : {image_kind::afs, image_kind::efs}) {
        if (auto& image = set.image(kind)) {
            std::string what = repair_image(set, *image, kind, given.lossy, done);
            if (!what.empty()) told.push_back(std::move(what));
        }
    }
    if (told.empty()) return "clean";
    done.status = exit_status::no;
    return fmt::format("{}", fmt::join(told, "; "));
}

} // namespace yfs::tool
