// Edits of images as such: reclaim and wipe. No file changes.
#include "inspect/efs_picture.h"
#include "inspect/picture.h"
#include "tool/edits.h"
#include "tool/error.h"
#include "tool/interrupt.h"
#include "tool/verbs.h"
#include "tool/volume.h"
#include "yfs/dfs.h"
#include "yfs/efs.h"
#include "yfs/status.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>

namespace yfs::tool {

namespace {

// More than any image has units: a loop that goes on longer gains nothing any more.
constexpr int most_steps = 1000;

void expect(std::uint32_t status, const working_copy& image, std::string_view step)
{
    if (status == afs_status::ok) return;
    throw failure(fault::volume_damaged,
                  fmt::format("{}: {} failed (status {}); nothing was saved", image.name(), step, status),
                  fmt::format("'yfs check {}' tells what is wrong with it", image.name()));
}

// Every unit once, whether it is worth while or not.
void reclaim_all_units(const working_copy& image)
{
    std::uint32_t status = afs_status::call_again;
    for (int step = 0; step < most_steps && status == afs_status::call_again; ++step) status = dfs_force_full_reclaim();
    expect(status, image, "a reclaim");
}

// Only what gains room.
void reclaim_worthwhile(const working_copy& image)
{
    constexpr std::uint32_t gained_nothing = 38807;
    for (int step = 0; step < most_steps && dfs_idle_reclaim_needed() != 0; ++step) {
        const std::uint32_t status = dfs_idle_reclaim();
        if (status == gained_nothing) return;
        expect(status, image, "a reclaim");
    }
}

// The background work of EFS, until it finds nothing more to do.
void settle_efs(const working_copy& image)
{
    for (int step = 0; step < most_steps; ++step) {
        const bytes before = image.now;
        expect(EFS_idle_reclaim(), image, "a step of idle work");
        if (image.now == before) return;
    }
}

bool is_blank(std::span<const std::uint8_t> part)
{
    return std::all_of(part.begin(), part.end(), [](std::uint8_t b) { return b == 0 || b == 0xFF; });
}

// A removed file of EFS leaves its bytes in a block in use, at the place that the layout keeps for it.
bool left_behind(const inspect::efs_picture& picture, std::uint32_t file)
{
    const efs_file_t& entry = picture.plan.files[file];
    if (picture.files[file].state != inspect::efs_file_state::absent) return false;
    std::uint32_t left = entry.max_size, from = entry.offset + std::uint32_t{sizeof(efs::efs_chunk_header_t)};
    for (std::uint32_t block = entry.first_block; left != 0 && block < picture.valid_table.size(); ++block) {
        const std::uint32_t room = efs::data_area_bytes - std::min(from, efs::data_area_bytes);
        const auto part = picture.image.subspan(picture.data_area_at(block) + from, std::min(left, room));
        if (!is_blank(part)) return true;
        left -= low32(part.size());
        from = sizeof(efs::efs_chunk_header_t);
    }
    return false;
}

// Zeros take the place of removed files, which are removed again then.
void wipe_removed_files(const working_copy& image)
{
    const bytes found = image.now;
    const inspect::efs_picture picture = inspect::inspect_efs(found, plan_for(image.ref, found));
    for (std::uint32_t file = 0; file < picture.files.size(); ++file) {
        if (!left_behind(picture, file)) continue;
        const bytes zeros(largest_on_efs(row_of_place(file_system::efs, low16(file))).value_or(0));
        if (zeros.empty()) continue;
        expect(EFS_write(file, 0, low32(zeros.size()), zeros.data()), image, "overwriting a removed file");
        expect(EFS_delete(file), image, "removing it again");
    }
}

// Whether contents that no file names can be read somewhere: in slots of data units, or in the spare.
bool has_dead_contents(const bytes& image)
{
    const inspect::picture picture = inspect::inspect_image(image);
    for (std::size_t eu = 0; eu < picture.eus.size(); ++eu) {
        const auto unit = std::span(image).subspan(eu * ftl::eu_size, ftl::eu_size);
        const inspect::erase_unit& view = picture.eus[eu];
        if (view.role == inspect::eu_role::spare && !is_blank(unit.subspan(sizeof(ftl::eu_header_t)))) return true;
        if (view.role != inspect::eu_role::data) continue;
        for (std::size_t slot = 0; slot < view.slots.size(); ++slot) {
            const std::size_t at = offsetof(ftl::data_eu_t, frame) + slot * ftl::frame_size;
            if (view.slots[slot].state != inspect::slot_state::live && !is_blank(unit.subspan(at, ftl::frame_size)))
                return true;
        }
    }
    return false;
}

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

// After a pass over all units no old contents lie beside live ones; what the pass itself left behind is overwritten.
std::string wipe(session& set, const options&, changes&)
{
    volume images(set);
    images.mount_afs();
    if (set.yfs && has_dead_contents(set.yfs->now)) {
        reclaim_all_units(*set.yfs);
        expect(dfs_force_dirty_erase(), *set.yfs, "overwriting dead contents");
    }
    if (set.efs) {
        images.mount_efs();
        wipe_removed_files(*set.efs);
        settle_efs(*set.efs);
    }
    return "dead contents wiped";
}

} // namespace yfs::tool
