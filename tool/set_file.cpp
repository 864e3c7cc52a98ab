#include "tool/set_file.h"

#include "tool/error.h"
#include "tool/files.h"

#include <fmt/format.h>

#include <limits>

namespace yfs::tool {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view example =
    R"({"sku": 17, "ftbl": "ftbl.bin", "velor": "velor.cfg", "zonc": "zonc.bin", "yfs": "yfs.img"})";

fs::path find_set_file(const std::string& named)
{
    std::error_code ignored;
    const fs::path given = named.empty() ? fs::path(set_file_name) : fs::path(named);
    fs::path path = fs::is_directory(given, ignored) ? given / set_file_name : given;
    if (fs::exists(path, ignored)) return path;
    if (named.empty()) {
        throw failure(
            fault::set_missing, fmt::format("no {} in {}", set_file_name, fs::current_path().string()),
            "'yfs set init' writes one for the files that are here, --set names one elsewhere, 'yfs sample DIR' makes "
            "a set to try");
    }
    throw failure(fault::set_missing, fmt::format("no set file at {}", path.string()),
                  fmt::format("a set file says what belongs together: {}", example));
}

// Reads the members of one set file; every complaint names the file.
class reader {
public:
    explicit reader(set_file& set) : set_(set) {}

    void read(const json::object& members)
    {
        bool has_sku = false;
        for (const auto& [key, value] : members) {
            if (key == "sku") {
                set_.sku = sku(value);
                has_sku = true;
            } else if (key != "afs" && key != "files" && key != "values") { // which only 'build' and 'size' read
                place_of(key) = name(key, value);
            }
        }
        if (!has_sku) refuse(R"(the key "sku" is missing)");
        set_.ftbl = required("ftbl", ftbl_);
        set_.velor = required("velor", velor_);
    }

    [[noreturn]] void refuse(const std::string& why) const
    {
        throw failure(fault::set_invalid, fmt::format("{}: {}", set_.path.string(), why),
                      fmt::format("it should look like {}", example));
    }

private:
    std::optional<std::string>& place_of(const std::string& key)
    {
        if (key == "ftbl") return ftbl_;
        if (key == "velor") return velor_;
        if (key == "zonc") return set_.zonc;
        if (key == "yfs") return set_.yfs;
        if (key == "efs") return set_.efs;
        refuse(fmt::format("unknown key \"{}\"", printable(key)));
    }
    std::string name(const std::string& key, const json& value) const
    {
        const std::string* text = value.as_string();
        if (text == nullptr || text->empty()) refuse(fmt::format("\"{}\" has to be the path of a file", key));
        return *text;
    }
    std::uint32_t sku(const json& value) const
    {
        const std::uint64_t* number = value.as_unsigned();
        constexpr std::uint32_t most = std::numeric_limits<std::uint32_t>::max();
        if (number == nullptr || *number > most) refuse(fmt::format("\"sku\" has to be a number from 0 to {}", most));
        return static_cast<std::uint32_t>(*number);
    }
    std::string required(std::string_view key, const std::optional<std::string>& value) const
    {
        if (!value) refuse(fmt::format("the key \"{}\" is missing", key));
        return *value;
    }

    set_file& set_;
    std::optional<std::string> ftbl_;
    std::optional<std::string> velor_;
};

} // namespace

set_file read_set_file(const std::string& named)
{
    set_file set;
    set.path = find_set_file(named);
    const bytes text = read_file(set.path);
    reader in(set);
    try {
        set.document = json::parse({reinterpret_cast<const char*>(text.data()), text.size()});
    } catch (const json_error& error) {
        in.refuse(printable(error.what()));
    }
    const json::object* members = set.document.as_object();
    if (members == nullptr) in.refuse("it isn't a JSON object");
    in.read(*members);
    return set;
}

std::string set_file_with_zonc(const set_file& set, const std::string& name)
{
    json document = set.document;
    document.as_object()->emplace_back("zonc", name);
    return document.dump();
}

} // namespace yfs::tool
