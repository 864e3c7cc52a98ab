// wipe: what no file holds any more can't be read afterwards, neither in slots and blocks that nothing names, nor
// behind the end of a file in its last chunk. No file changes.
#include "inspect/efs_picture.h"
#include "inspect/picture.h"
#include "tool/edits.h"
#include "tool/image_work.h"
#include "tool/verbs.h"
#include "tool/volume.h"
#include "yfs/dfs.h"
#include "yfs/efs.h"

#include <algorithm>
#include <cstddef>

namespace yfs::tool {

namespace {

constexpr std::uint32_t ends_behind = 1; // flag of dfs_write: the file ends behind the new bytes

bool is_blank(std::span<const std::uint8_t> part)
{
    return std::all_of(part.begin(), part.end(), [](std::uint8_t b) { return b == 0 || b == 0xFF; });
}

// Whether contents that no file names can be read in slots of data units, or in the spare.
bool has_dead_slots(const bytes& image)
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

// Bytes behind the end of a file in its last chunk.
std::span<const std::uint8_t> behind_end(const inspect::picture& picture, std::uint32_t file)
{
    const std::uint32_t used = picture.file[file].size % afs::chunk_bytes;
    const auto chunks = picture.chunks_of(file);
    if (used == 0 || chunks.empty() || picture.frame_address(chunks.back()) == inspect::none) return {};
    return picture.image.subspan(picture.frame_address(chunks.back()) + used, afs::chunk_bytes - used);
}

// The last chunk grows to its whole length with zeros and is cut to its size again.
void wipe_ends_of_files(const working_copy& image)
{
    const bytes found = image.now;
    const inspect::picture picture = inspect::inspect_image(found);
    for (std::uint32_t file = 0; file < picture.file.size(); ++file) {
        const auto end = behind_end(picture, file);
        if (is_blank(end)) continue;
        const std::uint32_t size = picture.file[file].size, used = size % afs::chunk_bytes;
        const bytes contents = inspect::read_file(picture, file).value_or(bytes());
        const bytes zeros(end.size());
        expect(dfs_write(file, size, low32(zeros.size()), zeros.data(), 0), image, "overwriting the end of a file");
        expect(dfs_write(file, size - used, used, contents.data() + size - used, ends_behind), image,
               "cutting it again");
    }
}

// A file of EFS that was removed or became shorter leaves its bytes in a block in use, at the place that the layout
// keeps for it.
bool left_behind(const inspect::efs_picture& picture, std::uint32_t file)
{
    const efs_file_t& entry = picture.plan.files[file];
    const inspect::efs_file_view& view = picture.files[file];
    if (view.state != inspect::efs_file_state::absent && view.state != inspect::efs_file_state::present) return false;
    std::uint32_t done = 0, from = entry.offset + std::uint32_t{sizeof(efs::efs_chunk_header_t)};
    for (std::uint32_t block = entry.first_block; done < entry.max_size && block < picture.valid_table.size();
         ++block) {
        const std::uint32_t length =
            std::min(entry.max_size - done, efs::data_area_bytes - std::min(from, efs::data_area_bytes));
        const std::uint32_t used = std::min(length, view.size - std::min(view.size, done));
        if (!is_blank(picture.image.subspan(picture.data_area_at(block) + from + used, length - used))) return true;
        done += length;
        from = sizeof(efs::efs_chunk_header_t);
    }
    return false;
}

// Zeros take the whole place, and then the file as it was; or none, if there was none.
void wipe_places_of_files(const working_copy& image)
{
    const bytes found = image.now;
    const inspect::efs_picture picture = inspect::inspect_efs(found, plan_for(image.ref, found));
    for (std::uint32_t file = 0; file < picture.files.size(); ++file) {
        const std::uint32_t most = largest_on_efs(row_of_place(file_system::efs, low16(file))).value_or(0);
        const auto contents = inspect::read_file(picture, file);
        if (most == 0 || !left_behind(picture, file)) continue;
        const bytes zeros(most);
        expect(EFS_write(file, 0, most, zeros.data()), image, "overwriting the place of a file");
        expect(contents
                   ? EFS_write(file, 0, low32(contents->size()), contents->empty() ? zeros.data() : contents->data())
                   : EFS_delete(file),
               image, "putting it back");
    }
}

} // namespace

// After a pass over all units no old contents lie beside live ones; what the pass itself left behind is overwritten.
std::string wipe(session& set, const options&, changes&)
{
    volume images(set);
    images.mount_afs();
    if (set.yfs) {
        wipe_ends_of_files(*set.yfs);
        if (has_dead_slots(set.yfs->now)) {
            reclaim_all_units(*set.yfs);
            expect(dfs_force_dirty_erase(), *set.yfs, "overwriting dead contents");
        }
    }
    if (set.efs) {
        images.mount_efs();
        wipe_places_of_files(*set.efs);
        settle_efs(*set.efs);
    }
    return "dead contents wiped";
}

} // namespace yfs::tool
