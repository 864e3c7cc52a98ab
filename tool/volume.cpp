#include "tool/volume.h"

#include "tool/error.h"
#include "yfs/dfs.h"
#include "yfs/efs.h"
#include "yfs/le.h"
#include "yfs/status.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <set>
#include <utility>

namespace yfs::tool {

namespace {

constexpr std::uint32_t chunk_bytes = 64;
constexpr std::uint32_t ends_behind = 1; // flag of dfs_write: the file ends behind the new bytes
constexpr std::uint32_t largest_stored = 0x40000;

static_assert(afs_status::not_found == efs_status::not_found && afs_status::invalid == efs_status::invalid);

fault damage_of(file_system where)
{
    return where == file_system::efs ? fault::efs_damaged : fault::volume_damaged;
}

std::uint32_t chunks_for(std::size_t size)
{
    return static_cast<std::uint32_t>((size + chunk_bytes - 1) / chunk_bytes);
}

[[noreturn]] void refuse_size(const file_row& row, std::size_t size, std::uint32_t most)
{
    throw failure(fault::too_large, fmt::format("can't put {}: {}, and {} takes {} at most", printable(row.path),
                                                bytes_text(size), row.where == file_system::efs ? "EFS" : "AFS", most));
}

} // namespace

std::optional<std::uint32_t> largest_on_efs(const file_row& row)
{
    if (EFS_files == nullptr || row.index >= g_efs_files_num || (EFS_files[row.index].flags & 1U) == 0) return {};
    // A write asks for (size + 4075 + offset) / 4072 spare blocks, all at once.
    constexpr std::int64_t room = 4072;
    const efs_file_t& entry = EFS_files[row.index];
    const std::int64_t spares = room * g_efs_non_valid_block_num - 4 - entry.offset;
    constexpr std::uint16_t longest = 0xFFFE; // the next length means that there is no file
    return static_cast<std::uint32_t>(std::clamp<std::int64_t>(spares, 0, std::min(entry.max_size, longest)));
}

void volume::mount_afs()
{
    if (!set_.yfs) return;
    bytes& image = set_.yfs->now;
    const std::uint32_t status = dfs_init(image.data(), static_cast<std::uint32_t>(image.size()));
    afs_ = status == afs_status::ok;
    if (afs_) return;

    const std::string what =
        fmt::format("{} ({}) holds no volume that mounts", set_.yfs->name(), bytes_text(image.size()));
    if (status == afs_status::invalid) {
        throw failure(fault::volume_damaged, fmt::format("{}: such an image has 32768 to 2097152 bytes", what),
                      "name the volume's partition alone, FILE@OFFSET+SIZE inside a dump; 'yfs scan FILE' finds it");
    }
    throw failure(fault::volume_damaged,
                  fmt::format("{}: its erase units, volume header or file chains contradict each other (status {})",
                              what, status),
                  "'yfs check' lists what is wrong, 'yfs extract' saves what can be read, 'yfs repair' mends");
}

void volume::mount_efs()
{
    if (!set_.efs) return;
    bytes& image = set_.efs->now;
    const std::string what = fmt::format("{} ({})", set_.efs->name(), bytes_text(image.size()));
    if (g_efs_autogen_data_loaded == 0) {
        throw failure(fault::efs_damaged,
                      set_.set.ftbl.empty()
                          ? fmt::format("{}: where the files of an EFS begin is told by a file table", what)
                          : fmt::format("{} can't be mounted: {} has no EFS layout for SKU {}", what, set_.set.ftbl,
                                        set_.set.sku),
                      "name the file table that belongs to the image: --ftbl FILE --sku N, or a set file");
    }
    if (image.size() < EFS_get_efs_size()) {
        throw failure(fault::efs_damaged, fmt::format("{} is too short: the layout in {} takes {} bytes", what,
                                                      set_.set.ftbl, EFS_get_efs_size()));
    }
    const std::uint32_t status = EFS_init_tools(image.data());
    efs_ = status == efs_status::ok;
    if (efs_) return;
    throw failure(fault::efs_damaged,
                  fmt::format("{} can't be mounted: no sound block map for the layout in {} (status {})", what,
                              set_.set.ftbl, status),
                  "either file table and image come from different builds, or 'yfs check' lists what is wrong and 'yfs "
                  "repair' mends; -i IMAGE works on the other image alone");
}

void volume::mount(file_system where)
{
    if (where == file_system::afs) mount_afs();
    if (where == file_system::efs) mount_efs();
}

const working_copy& volume::image_of(const file_row& row) const
{
    return row.where == file_system::efs ? *set_.efs : *set_.yfs;
}

void volume::need(const file_row& row) const
{
    if ((row.where == file_system::afs && afs_) || (row.where == file_system::efs && efs_)) return;
    if (row.where == file_system::none) {
        throw failure(fault::no_volume,
                      fmt::format("{} has a selector that no file system answers to", printable(row.path)));
    }
    const bool on_efs = row.where == file_system::efs;
    throw failure(fault::no_volume,
                  fmt::format("{} is stored on {}, and {} names no such image", printable(row.path),
                              on_efs ? "EFS" : "AFS", set_.bare() ? "-i" : set_.set.path.string()),
                  set_.bare() ? std::string("name it with -i IMAGE")
                              : fmt::format("add \"{}\": \"IMAGE\" to the set file", on_efs ? "efs" : "yfs"));
}

std::vector<stored_file> volume::files() const
{
    std::vector<stored_file> files;
    std::set<std::string> named;
    const auto add = [&](const file_row& row) {
        try {
            if (const auto size = size_of(row)) files.push_back({row, size, {}});
        } catch (const failure& fault) {
            files.push_back({row, {}, fault});
        }
    };
    for (const file_row& row : set_.table.rows()) {
        const bool mounted = row.where == file_system::afs ? afs_ : row.where == file_system::efs && efs_;
        if (!mounted) continue;
        add(row);
        named.insert(row.place());
    }
    const auto add_unnamed = [&](file_system where, std::uint32_t count) {
        for (std::uint32_t index = 0; index < count; ++index) {
            const file_row row = row_of_place(where, low16(index));
            if (!named.contains(row.path)) add(row);
        }
    };
    if (afs_) add_unnamed(file_system::afs, dfs_context->files);
    if (efs_) add_unnamed(file_system::efs, g_efs_files_num);
    return files;
}

// Files on EFS are asked for directly: dispatch knows of no file at all while no AFS volume is mounted.
std::optional<std::uint32_t> volume::size_of(const file_row& row) const
{
    need(row);
    const bool on_efs = row.where == file_system::efs;
    std::uint32_t size = 0;
    const std::uint32_t status = on_efs ? EFS_get_file_size(row.index, &size) : dfs_getsize(row.number, &size);
    switch (status) {
    case afs_status::ok:
        return size;
    case afs_status::not_found:
    case afs_status::invalid:
        return {}; // an index that the volume has no room for, or an EFS entry not in use
    default:
        throw failure(damage_of(row.where), fmt::format("{}: the size of {} can't be read (status {})",
                                                        image_of(row).name(), printable(row.path), status));
    }
}

bytes volume::read(const file_row& row) const
{
    const auto size = size_of(row);
    if (!size) refuse_absent(row);
    bytes contents(*size);
    if (contents.empty()) return contents;
    std::uint32_t length = *size;
    const std::uint32_t status = row.where == file_system::efs ? EFS_read(row.index, 0, &length, contents.data())
                                                               : dfs_read(row.number, 0, &length, contents.data());
    if (status == afs_status::ok && length == *size) return contents;
    throw failure(damage_of(row.where),
                  fmt::format("{}: {} can't be read whole: {} of {} bytes (status {})", image_of(row).name(),
                              printable(row.path), status == afs_status::ok ? length : 0, *size, status));
}

void volume::refuse_absent(const file_row& row) const
{
    throw failure(fault::no_file, fmt::format("{} isn't stored in {}", printable(row.path), image_of(row).name()),
                  "'yfs ls' lists the files that are");
}

void volume::write(const file_row& row, const bytes& contents)
{
    need(row);
    if (row.where == file_system::efs)
        write_efs(row, contents);
    else
        write_afs(row, contents);
    if (read(row) == contents) return;
    throw failure(damage_of(row.where), fmt::format("can't put {}: {} gives back other bytes; nothing was saved",
                                                    printable(row.path), image_of(row).name()));
}

void volume::refuse_index(const file_row& row, const std::string& why) const
{
    throw failure(fault::no_volume, fmt::format("can't put {}: its number is {}, and {} {}", printable(row.path),
                                                row.index, image_of(row).name(), why));
}

void volume::write_afs(const file_row& row, const bytes& contents)
{
    if (row.index >= dfs_context->files)
        refuse_index(row, fmt::format("has room for the numbers 0 to {}", dfs_context->files - 1));
    if (contents.size() > largest_stored) refuse_size(row, contents.size(), largest_stored);
    const auto size = static_cast<std::uint32_t>(contents.size());
    const volume_space before = space();
    const std::uint32_t status = dfs_write(row.number, 0, size, contents.data(), ends_behind);
    if (status == afs_status::no_space) refuse_full(row, size, before);
    if (status == afs_status::ok) return;
    throw failure(fault::volume_damaged,
                  fmt::format("can't put {}: writing into {} failed (status {}); nothing was saved",
                              printable(row.path), image_of(row).name(), status));
}

void volume::write_efs(const file_row& row, const bytes& contents)
{
    const auto most = largest_on_efs(row);
    if (!most) refuse_index(row, "has no entry for it in its layout");
    if (contents.size() > *most) refuse_size(row, contents.size(), *most);
    const std::uint8_t nothing = 0; // a pointer is asked for, also for no bytes
    const auto size = static_cast<std::uint32_t>(contents.size());
    const std::uint32_t status = EFS_write(row.index, 0, size, size == 0 ? &nothing : contents.data());
    if (status == efs_status::ok) return;
    throw failure(fault::efs_damaged, fmt::format("can't put {}: writing into {} failed (status {}); nothing was saved",
                                                  printable(row.path), image_of(row).name(), status));
}

void volume::refuse_full(const file_row& row, std::size_t size, const volume_space& room) const
{
    const std::uint32_t needed = chunks_for(size);
    const std::uint32_t old = chunks_for(size_of(row).value_or(0));
    std::string text = fmt::format(
        "can't put {}: {} don't fit into {}\n  needs {} of {} bytes; {} are free ({} at once, {} after a reclaim)",
        printable(row.path), bytes_text(size), image_of(row).name(), count_of(needed, "chunk"), chunk_bytes,
        room.free(), room.at_once, room.free() - room.at_once);
    std::string hint = "remove files that are no longer needed with 'yfs rm'";
    if (needed > room.free()) hint = fmt::format("short by {}; ", count_of(needed - room.free(), "chunk")) + hint;
    if (old > 0)
        hint += fmt::format("; the old contents, {}, stay until the new ones are in force", count_of(old, "chunk"));
    throw failure(fault::volume_full, std::move(text), std::move(hint));
}

void volume::remove(const file_row& row)
{
    need(row);
    constexpr std::uint32_t no_part_of_the_number = 0xF0000000;
    const std::uint32_t status =
        row.where == file_system::efs ? EFS_delete(row.index) : dfs_delete_file(row.number & ~no_part_of_the_number);
    if (status == afs_status::ok) return;
    throw failure(damage_of(row.where),
                  fmt::format("can't remove {}: deleting it in {} failed (status {}); nothing was saved",
                              printable(row.path), image_of(row).name(), status));
}

bool volume::deployed() const
{
    const file_row* row = set_.table.find(deploy_path);
    if (!afs_ || row == nullptr || row->where == file_system::none || (row->where == file_system::efs && !efs_))
        return false;
    return size_of(*row).value_or(0) > 0;
}

volume_space volume::space() const
{
    const afs_context& ctx = *dfs_context;
    const ftl_context& ftl = *ctx.ftl;
    volume_space space;
    space.file_heads = ctx.files;
    space.log_units = ftl.log_eu_count;
    space.data_units = ftl.eu_count - 1U - ftl.log_eu_count;
    space.lowest_erase_count = UINT32_MAX;
    for (std::uint32_t i = 0; i < ftl.eu_count; ++i) {
        const ftl_eu_entry& unit = ftl.eu_table[i];
        space.lowest_erase_count = std::min(space.lowest_erase_count, unit.erase_count);
        space.highest_erase_count = std::max(space.highest_erase_count, unit.erase_count);
        if (unit.base_page != 0 && i != ftl.spare_eu) space.at_once += unit.free;
    }
    constexpr std::uint32_t chunks_in_a_unit = 122;
    space.chunks = std::min<std::uint32_t>(ctx.chunks, space.data_units * chunks_in_a_unit);
    for (std::uint32_t word = 0; word <= ctx.chunks / 32U; ++word)
        space.used += static_cast<std::uint32_t>(std::popcount(ctx.alloc_map[word]));
    space.at_once = std::min(space.at_once, space.free());
    return space;
}

} // namespace yfs::tool
