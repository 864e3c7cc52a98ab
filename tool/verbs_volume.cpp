// The verbs about the files of the images: ls, cat, put, rm.
#include "tool/changes.h"
#include "tool/output.h"
#include "tool/tables.h"
#include "tool/verbs.h"
#include "tool/volume.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace yfs::tool {

namespace {

json to_json(const stored_file& file)
{
    const file_row& row = file.row;
    json::object members = {{"path", printable(row.path)}, {"place", row.place()}};
    members.emplace_back("size", file.size ? json(*file.size) : json());
    if (row.limit != no_limit) {
        members.emplace_back("limit", row.limit);
        members.emplace_back("attributes", std::uint32_t{row.attributes});
        members.emplace_back("fileno", row.fileno);
    }
    return members;
}

std::string to_lines(const std::vector<stored_file>& files)
{
    using enum text_table::align;
    text_table table({right, right, right, left, left});
    table.row({"size", "limit", "attr", "place", "path"});
    for (const auto& [row, size, fault] : files) {
        const bool named = row.limit != no_limit;
        table.row({size ? fmt::format("{}", *size) : "?", named ? fmt::format("{}", row.limit) : "-",
                   named ? fmt::format("{:04x}", row.attributes) : "-", row.place(), printable(row.path)});
    }
    return table.text();
}

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
void warn_if_a_value_needs(const session& set, const volume& images, const file_row& row)
{
    if (set.bare() || !images.deployed() || (row.attributes & attribute_unread) != 0) return;
    for (const cfg_record& record : read_cfg_records(set.velor.now, set.velor.name())) {
        if (!record.available || record.fileno != row.fileno) continue;
        note(fmt::format(
            "warning: {} lists {} as available: no values can be read without that file while the volume is "
            "deployed",
            set.velor.name(), printable(row.path)));
        return;
    }
}

} // namespace

exit_status list_files(const options& given)
{
    session set(given);
    volume images(set);
    images.mount_afs();
    images.mount_efs();
    const std::vector<stored_file> files = images.files();
    if (given.json) {
        json::array list;
        for (const stored_file& file : files) list.push_back(to_json(file));
        print(json(json::object{{"schema", "yfs.ls/1"}, {"files", std::move(list)}}).dump());
    } else if (given.long_list) {
        print(to_lines(files));
    } else {
        std::string lines;
        for (const stored_file& file : files) lines += printable(file.row.path) + "\n";
        print(lines);
    }
    exit_status status = exit_status::done;
    for (const stored_file& file : files) {
        if (!file.fault) continue;
        print_error(describe(*file.fault));
        status = status_of(file.fault->which());
    }
    return status;
}

exit_status cat(const options& given)
{
    session set(given);
    const file_row row = set.table.resolve(given.path);
    volume images(set);
    images.mount(row.where);
    print_contents(images.read(row), given.force);
    return exit_status::done;
}

exit_status put(const options& given)
{
    session set(given, access::change);
    const file_row row = set.table.resolve(given.path);
    const bytes contents = read_file(given.source_file);
    check_limit(row, contents.size());

    volume images(set);
    images.mount(row.where);
    const auto old_size = images.size_of(row);
    if (old_size && images.read(row) == contents) {
        note(fmt::format("{} holds these {} already; nothing changed", printable(row.path),
                         bytes_text(contents.size())));
        return exit_status::done;
    }
    images.write(row, contents);
    if (contents.size() < row.tail()) {
        note(fmt::format("warning: {} ends with a tail of {} bytes behind its value; {} can't hold it",
                         printable(row.path), row.tail(), bytes_text(contents.size())));
    }
    changes done(set, given.change);
    done.touch(row);
    done.save(fmt::format("{}: {} -> {}", printable(row.path), old_size ? fmt::format("{}", *old_size) : "new",
                          bytes_text(contents.size())));
    return exit_status::done;
}

exit_status remove(const options& given)
{
    session set(given, access::change);
    const file_row row = set.table.resolve(given.path);
    volume images(set);
    images.mount(row.where);
    const auto size = images.size_of(row);
    if (!size) images.refuse_absent(row);
    images.remove(row);
    warn_if_a_value_needs(set, images, row);
    changes done(set, given.change);
    done.touch(row);
    done.save(fmt::format("{}: removed, {}", printable(row.path), bytes_text(*size)));
    return exit_status::done;
}

} // namespace yfs::tool
