// The verbs that read values: what a host sees by name, after defaults, zonc.cfg and a deployed volume are merged.
#include "tool/edit_values.h"
#include "tool/host_run.h"
#include "tool/output.h"
#include "tool/values_document.h"
#include "tool/verbs.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace yfs::tool {

namespace {

std::string flags_of(const file_row& row, const value_in_force& value)
{
    std::string flags = value.modifiable ? "w" : "-";
    flags += (row.attributes & attribute_tail) != 0 ? "t" : "-";
    flags += (row.attributes & attribute_unread) != 0 ? "u" : "-";
    return flags;
}

json::object to_json(const file_row& row, const value_in_force& value)
{
    return {{"path", printable(row.path)},
            {"size", std::uint64_t{value.contents.size()}},
            {"limit", value.limit},
            {"modifiable", value.modifiable},
            {"attributes", std::uint32_t{row.attributes}},
            {"fileno", row.fileno},
            {"place", row.place()},
            {"value", to_hex(value.contents)}};
}

} // namespace

exit_status list_values(const options& given)
{
    session set(given);
    const host_run run(set);
    using enum text_table::align;
    text_table lines({right, right, left, left, left});
    lines.row({"size", "limit", "flags", "path", "value"});
    json::array list;
    for (const file_row& row : set.table.rows()) {
        const auto value = run.get(row);
        if (!value) continue;
        constexpr std::size_t preview_width = 40;
        if (given.json) {
            list.emplace_back(to_json(row, *value));
        } else {
            lines.row({fmt::format("{}", value->contents.size()), fmt::format("{}", value->limit),
                       flags_of(row, *value), printable(row.path), preview(value->contents, preview_width)});
        }
    }
    print(given.json ? json(json::object{{"schema", "yfs.nvar-ls/1"}, {"values", std::move(list)}}).dump()
                     : lines.text());
    return exit_status::done;
}

exit_status get_value(const options& given)
{
    session set(given);
    const file_row row = set.table.resolve(given.path);
    const host_run run(set);
    const auto value = run.get(row);
    if (!value) refuse_absent_value(set, row);
    if (given.json) {
        json::object document = {{"schema", "yfs.nvar-get/1"}};
        for (json::member& member : to_json(row, *value)) document.push_back(std::move(member));
        print(json(std::move(document)).dump());
    } else {
        print_contents({value->contents.begin(), value->contents.end()}, given.force);
    }
    return exit_status::done;
}

exit_status export_values(const options& given)
{
    session set(given);
    print(to_document(values_in_force(set), set.set.sku).dump());
    return exit_status::done;
}

namespace {

// A value that two sides hold differently; a side without it has none.
struct value_difference {
    std::string path;
    const bytes* left;
    const bytes* right;
};

std::vector<value_difference> compare(const named_values& left, const named_values& right)
{
    std::vector<value_difference> list;
    for (const auto& [path, value] : left) {
        const auto other = right.find(path);
        if (other == right.end())
            list.push_back({path, &value, nullptr});
        else if (other->second != value)
            list.push_back({path, &value, &other->second});
    }
    for (const auto& [path, value] : right) {
        if (!left.contains(path)) list.push_back({path, nullptr, &value});
    }
    std::sort(list.begin(), list.end(), [](const auto& a, const auto& b) { return a.path < b.path; });
    return list;
}

std::string side_text(char sign, const std::string& path, const bytes* value)
{
    constexpr std::size_t width = 60;
    if (value == nullptr) return {};
    return fmt::format("{} {}  {}  {}\n", sign, printable(path), bytes_text(value->size()), preview(*value, width));
}

} // namespace

exit_status diff_values(const options& given)
{
    const named_values left = read_values(given.inputs[0]);
    const named_values right = read_values(given.inputs[1]);
    std::string text;
    json::array list;
    for (const auto& [path, a, b] : compare(left, right)) {
        text += side_text('-', path, a) + side_text('+', path, b);
        list.emplace_back(json::object{{"path", printable(path)},
                                       {"left", a == nullptr ? json() : json(to_hex(*a))},
                                       {"right", b == nullptr ? json() : json(to_hex(*b))}});
    }
    const bool same = list.empty();
    if (given.json)
        print(json(json::object{{"schema", "yfs.nvar-diff/1"}, {"differences", std::move(list)}}).dump());
    else
        print(text);
    return same ? exit_status::done : exit_status::no;
}

} // namespace yfs::tool
