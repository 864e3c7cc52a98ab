#include "tool/build_plan.h"

#include "tool/error.h"
#include "tool/image.h"

#include <fmt/format.h>

namespace yfs::tool {

namespace {

[[noreturn]] void refuse(const set_file& set, const std::string& why)
{
    throw failure(fault::set_invalid, fmt::format("{}: {}", set.path.string(), why),
                  R"(for 'build': "afs": {"size": 131072, "files": 128}, "files": {...}, "values": {...})");
}

void read_afs(const set_file& set, const json& value, build_plan& plan)
{
    const json::object* members = value.as_object();
    if (members == nullptr) refuse(set, "\"afs\" isn't an object");
    for (const auto& [key, item] : *members) {
        const std::uint64_t* number = item.as_unsigned();
        if (number == nullptr || *number > UINT32_MAX || (key != "size" && key != "files"))
            refuse(set, fmt::format("\"afs\" has the numbers \"size\" and \"files\", not \"{}\"", printable(key)));
        if (key == "size") plan.afs_size = *number;
        if (key == "files") plan.afs_files = static_cast<std::uint32_t>(*number);
    }
}

void list_inputs(const set_file& set, const json& members, build_plan& plan)
{
    for (const auto& [path, value] : *members.as_object()) {
        const std::string& text = *value.as_string();
        if (!text.starts_with("utf8:") && !text.starts_with("hex:")) plan.inputs.push_back(set.locate(text));
    }
}

} // namespace

build_plan read_build_plan(const set_file& set)
{
    build_plan plan;
    plan.inputs = {set.path, set.locate(set.ftbl), set.locate(set.velor)};
    for (const auto& [key, value] : *set.document.as_object()) {
        if (key == "afs") read_afs(set, value, plan);
        if (key != "files" && key != "values") continue;
        (key == "files" ? plan.files : plan.values) = parse_values(value, set.path.parent_path(), set.path.string());
        list_inputs(set, value, plan);
    }
    return plan;
}

} // namespace yfs::tool
