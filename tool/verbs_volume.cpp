// The verbs that read files of the images: ls, cat, stat.
#include "tool/output.h"
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

} // namespace yfs::tool
