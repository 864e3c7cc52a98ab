// Edits of files in the images: put, rm, import.
#include "tool/edits.h"
#include "tool/folder.h"
#include "tool/output.h"
#include "tool/tables.h"
#include "tool/verbs.h"
#include "tool/volume.h"

#include <fmt/format.h>

#include <algorithm>

namespace yfs::tool {

namespace {

// The bytes that a stored file may take: its value, and the tail of those that carry one.
void check_limit(const file_row& row, std::size_t size)
{
    const std::uint64_t most = std::uint64_t{row.limit} + row.tail();
    if (row.limit == no_limit || size <= most) return;
    const std::string tail = row.tail() == 0 ? "" : fmt::format(" ({} and a tail of {})", row.limit, row.tail());
    throw failure(fault::too_large, fmt::format("can't put {}: {}, and the file table allows {}{}", printable(row.path),
                                                bytes_text(size), most, tail));
}

// A deployed volume has to hold every value that velor.cfg lists as available, or no host can take the values over.
void warn_if_a_value_needs(const session& set, volume& images, const file_row& row)
{
    if (set.bare()) return;
    if (row.where == file_system::efs) images.mount_afs(); // which tells whether it is deployed
    if (!images.deployed() || (row.attributes & attribute_unread) != 0) return;
    for (const cfg_record& record : read_cfg_records(set.velor.now, set.velor.name())) {
        if (!record.available || record.fileno != row.fileno) continue;
        note(fmt::format(
            "warning: {} lists {} as available: no values can be read without that file while the volume is "
            "deployed",
            set.velor.name(), printable(row.path)));
        return;
    }
}

// Fails before anything is written if the file table forbids it.
void write_whole(volume& images, const file_row& row, const bytes& contents)
{
    images.write(row, contents);
    if (contents.size() >= row.tail()) return;
    note(fmt::format("warning: {} ends with a tail of {} bytes behind its value; {} can't hold it", printable(row.path),
                     row.tail(), bytes_text(contents.size())));
}

bool holds(const volume& images, const file_row& row, const bytes& contents)
{
    return images.size_of(row) == contents.size() && images.read(row) == contents;
}

} // namespace

std::string put_file(session& set, const options& given, changes& done)
{
    const file_row row = set.table.resolve(given.path);
    const bytes contents = read_file(given.source_file);
    check_limit(row, contents.size());

    volume images(set);
    images.mount(row.where);
    const auto old_size = images.size_of(row);
    done.mean(row.where == file_system::efs ? image_kind::efs : image_kind::afs);
    if (holds(images, row, contents)) {
        return fmt::format("{} holds the same {} already", printable(row.path), bytes_text(contents.size()));
    }
    done.touch(row);
    write_whole(images, row, contents);
    return fmt::format("{}: {} -> {}", printable(row.path), old_size ? fmt::format("{}", *old_size) : "new",
                       bytes_text(contents.size()));
}

std::string remove_file(session& set, const options& given, changes& done)
{
    const file_row row = set.table.resolve(given.path);
    volume images(set);
    images.mount(row.where);
    const auto size = images.size_of(row);
    if (!size) images.refuse_absent(row);
    done.touch(row);
    images.remove(row);
    warn_if_a_value_needs(set, images, row);
    return fmt::format("{}: removed, {}", printable(row.path), bytes_text(*size));
}

// All names and limits are looked at before the first file is written.
std::string import_folder(session& set, const options& given, changes& done)
{
    struct incoming {
        file_row row;
        bytes contents;
    };
    std::vector<incoming> files;
    for (const folder_file& file : read_folder(given.folder)) {
        const file_row* const named = set.table.find(file.path);
        const bool by_place = file.path.starts_with("/afs#") || file.path.starts_with("/efs#");
        const file_row row = named != nullptr ? *named : set.table.resolve(file.path.substr(by_place ? 1 : 0));
        check_limit(row, file.contents.size());
        files.push_back({row, file.contents});
    }

    volume images(set);
    images.mount_afs();
    images.mount_efs();
    std::size_t added = 0, replaced = 0;
    for (const auto& [row, contents] : files) {
        const auto old_size = images.size_of(row);
        if (old_size && holds(images, row, contents)) continue;
        done.touch(row);
        write_whole(images, row, contents);
        ++(old_size ? replaced : added);
    }
    return fmt::format("{} from {}: {} new, {} replaced, {} the same", count_of(files.size(), "file"), given.folder,
                       added, replaced, files.size() - added - replaced);
}

} // namespace yfs::tool
