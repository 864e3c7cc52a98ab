#include "tests/support/sample_manifest.h"

#include "tests/support/samples.h"

#include <nlohmann/json.hpp>

namespace yfs::test {

using nlohmann::json;

static json parse(const std::filesystem::path& path)
{
    return json::parse(read_file(path));
}

static std::optional<sample_value> value_of(const json& value)
{
    if (value.is_null()) return std::nullopt;
    return sample_value{value.at("size"), value.at("sha256")};
}

sample_manifest read_manifest(const std::string& set)
{
    const json about = parse(sample_set(set) / "manifest.json"), edit = parse(sample_set(set) / "edit.json");
    sample_manifest out{about.at("sku"), about.at("deployed"), {}, {}, {}};
    for (const auto& [path, file] : about.at("values").items())
        out.files[path] = {file.at("fileno"), file.at("dfs_number"), file.at("max_size"), file.at("attributes"),
                           value_of(file.at("value"))};
    for (const auto& [path, value] : edit.at("after").items()) out.after[path] = value_of(value);
    for (const auto& change : edit.at("edits")) {
        const std::string hex = change.at("hex");
        auto& [path, bytes] = out.edits.emplace_back(change.at("path"), 0);
        for (std::size_t i = 0; i < hex.size(); i += 2)
            bytes.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    return out;
}

} // namespace yfs::test
