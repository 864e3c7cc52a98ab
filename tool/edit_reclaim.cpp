// reclaim: the room of dead contents comes back. No file changes.
#include "inspect/picture.h"
#include "tool/edits.h"
#include "tool/image_work.h"
#include "tool/verbs.h"
#include "tool/volume.h"

#include <fmt/format.h>

namespace yfs::tool {

namespace {

std::string gain_text(const working_copy& image)
{
    const auto before = inspect::inspect_image(image.before).space, after = inspect::inspect_image(image.now).space;
    return fmt::format("{}: {} -> {} free at once", image.name(), before.chunks_now,
                       count_of(after.chunks_now, "chunk"));
}

} // namespace

std::string reclaim(session& set, const options& given, changes&)
{
    volume images(set);
    images.mount_afs();
    std::vector<std::string> told;
    if (set.yfs) {
        given.all ? reclaim_all_units(*set.yfs) : reclaim_worthwhile(*set.yfs);
        told.push_back(gain_text(*set.yfs));
    }
    if (set.efs) {
        images.mount_efs();
        settle_efs(*set.efs);
        told.push_back(
            fmt::format("{}: {}", set.efs->name(), set.efs->changed() ? "spare blocks erased" : "no dirty block"));
    }
    return fmt::format("{}", fmt::join(told, "; "));
}

} // namespace yfs::tool
