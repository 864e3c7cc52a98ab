#include "tool/values_document.h"

#include "tool/error.h"
#include "tool/host_run.h"
#include "tool/value_text.h"

#include <fmt/format.h>

namespace yfs::tool {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view schema = "yfs.values/1";

[[noreturn]] void refuse(const std::string& where, const std::string& why)
{
    throw failure(fault::usage, fmt::format("{}: {}", where, why),
                  R"(values are {"schema": "yfs.values/1", "values": {"/home/net/uplink": "utf8:wan0"}})");
}

const json* member_of(const json& document, std::string_view key)
{
    const json::object* members = document.as_object();
    if (members == nullptr) return nullptr;
    for (const auto& [name, value] : *members) {
        if (name == key) return &value;
    }
    return nullptr;
}

} // namespace

named_values values_in_force(session& set)
{
    const host_run run(set);
    named_values values;
    for (const file_row& row : set.table.rows()) {
        if (const auto value = run.get(row)) values[row.path] = {value->contents.begin(), value->contents.end()};
    }
    return values;
}

json to_document(const named_values& values, std::uint32_t sku)
{
    json::object members;
    for (const auto& [path, value] : values) members.emplace_back(printable(path), value_text(value));
    return json::object{{"schema", schema}, {"sku", sku}, {"values", std::move(members)}};
}

named_values parse_values(const json& members, const fs::path& folder, const std::string& where)
{
    const json::object* list = members.as_object();
    if (list == nullptr) refuse(where, "the values aren't an object of paths");
    named_values values;
    for (const auto& [path, value] : *list) {
        const std::string* text = value.as_string();
        if (text == nullptr) refuse(where, fmt::format("the value of {} isn't a text", printable(path)));
        if (!values.emplace(path, parse_value(*text, folder)).second)
            refuse(where, fmt::format("{} is there twice", printable(path)));
    }
    return values;
}

named_values read_values(const std::string& name)
{
    std::error_code ignored;
    const auto read_set = [&] {
        source from;
        from.set = name;
        session set(from);
        return values_in_force(set);
    };
    if (fs::is_directory(name, ignored)) return read_set();
    const bytes text = read_file(name);
    json document;
    try {
        document = json::parse({reinterpret_cast<const char*>(text.data()), text.size()});
    } catch (const json_error& error) {
        refuse(name, printable(error.what()));
    }
    const json* told = member_of(document, "schema");
    if (told == nullptr && member_of(document, "ftbl") != nullptr) return read_set();
    if (told == nullptr || told->as_string() == nullptr || *told->as_string() != schema)
        refuse(name, "neither a set file nor exported values");
    const json* values = member_of(document, "values");
    if (values == nullptr) refuse(name, "no \"values\"");
    return parse_values(*values, fs::path(name).parent_path(), name);
}

} // namespace yfs::tool
