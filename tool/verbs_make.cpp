// The verbs that make something new: mkfs afs, mkfs efs, set init.
#include "tool/image.h"
#include "tool/output.h"
#include "tool/tables.h"
#include "tool/verbs.h"
#include "yfs/efs.h"
#include "yfs/make_efs.h"
#include "yfs/make_volume.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

namespace yfs::tool {

namespace fs = std::filesystem;

namespace {

void save_new(const options& given, const std::string& target, const bytes& contents)
{
    std::error_code ignored;
    if (!given.force && fs::exists(fs::symlink_status(target, ignored))) {
        throw failure(fault::would_overwrite, fmt::format("{} exists already", target), "--force replaces it");
    }
    save_list list;
    list.add(target, contents);
    list.commit();
}

// ---- set init ----

// What a file of a folder is to a set.
enum class role { ftbl, velor, zonc, yfs, efs };
constexpr const char* role_keys[] = {"ftbl", "velor", "zonc", "yfs", "efs"};

std::optional<role> role_of(const bytes& contents)
{
    constexpr std::string_view table_magic = "FTBL";
    if (contents.size() >= 4 && std::equal(table_magic.begin(), table_magic.end(), contents.begin())) return role::ftbl;
    if (const auto kind = inspect::recognize(contents)) return *kind == image_kind::afs ? role::yfs : role::efs;
    if (!is_cfg_file(contents)) return {};
    return read_cfg_file(contents, {}).in_partition ? role::zonc : role::velor;
}

std::map<role, std::string> roles_in(const std::string& folder)
{
    std::vector<fs::path> paths;
    try {
        for (const auto& entry : fs::directory_iterator(folder)) {
            if (entry.is_regular_file() && entry.path().filename() != set_file_name) paths.push_back(entry.path());
        }
    } catch (const fs::filesystem_error& error) {
        throw failure(fault::file_unreadable, fmt::format("can't read {}: {}", folder, error.code().message()));
    }
    std::sort(paths.begin(), paths.end());
    std::map<role, std::string> found;
    for (const fs::path& path : paths) {
        std::error_code ignored;
        if (fs::file_size(path, ignored) > largest_file) continue;
        const auto what = role_of(read_file(path));
        if (!what) continue;
        const auto [other, is_new] = found.emplace(*what, path.filename().string());
        if (is_new) continue;
        throw failure(fault::usage,
                      fmt::format("{}: {} and {} could both be \"{}\"", folder, other->second, path.filename().string(),
                                  role_keys[static_cast<int>(*what)]),
                      "move away what doesn't belong to the set");
    }
    return found;
}

std::uint32_t choose_sku(const options& given, const std::string& ftbl)
{
    const std::vector<std::uint32_t> skus = skus_in(read_file(ftbl), ftbl);
    const std::string all = fmt::format("{} has the SKUs {}", ftbl, fmt::join(skus, ", "));
    if (given.sku) {
        if (std::find(skus.begin(), skus.end(), *given.sku) != skus.end()) return *given.sku;
        throw failure(fault::usage, fmt::format("no SKU {}: {}", *given.sku, all));
    }
    if (skus.size() == 1) return skus.front();
    throw failure(fault::usage, all, "choose one with --sku N");
}

} // namespace

exit_status init_set(const options& given)
{
    const std::string name = given.folder.empty() ? "." : given.folder;
    const fs::path folder = name;
    const std::map<role, std::string> found = roles_in(name);
    for (const role needed : {role::ftbl, role::velor}) {
        if (found.contains(needed)) continue;
        throw failure(fault::set_missing,
                      fmt::format("{} holds no file that could be \"{}\"", name, role_keys[static_cast<int>(needed)]),
                      "a set is a file table, velor.cfg, and as there are any zonc.cfg, an AFS and an EFS image");
    }
    json::object members = {{"sku", choose_sku(given, (folder / found.at(role::ftbl)).string())}};
    std::vector<std::string> told;
    for (const auto& [what, file] : found) {
        members.emplace_back(role_keys[static_cast<int>(what)], file);
        told.push_back(fmt::format("{} ({})", file, role_keys[static_cast<int>(what)]));
    }
    const std::string text = json(std::move(members)).dump();
    const std::string target = (folder / set_file_name).string();
    save_new(given, target, {text.begin(), text.end()});
    note(fmt::format("wrote {}: {}", target, fmt::join(told, ", ")));
    return exit_status::done;
}

exit_status make_afs(const options& given)
{
    constexpr std::uint64_t most = 0x1FE000;
    bytes image(std::min(given.size, most + 1));
    if (given.size % ftl::eu_size != 0 || yfs_make_volume(image.data(), low32(image.size()), given.files) != 0) {
        throw failure(fault::usage,
                      fmt::format("no volume of {} for {} file numbers can be", bytes_text(given.size), given.files),
                      "a size is a multiple of 8192 from 32768 to 2088960, and has room for 2 bytes a number "
                      "(65 at least) beside the data");
    }
    save_new(given, given.path, image);
    note(fmt::format("{}: an empty AFS volume of {}, file numbers 0 to {}", given.path, bytes_text(image.size()),
                     given.files - 1));
    return exit_status::done;
}

exit_status make_efs(const options& given)
{
    source from = given;
    from.tables_only = true;
    const session set(from);
    if (g_efs_autogen_data_loaded == 0) {
        throw failure(fault::set_missing, "an EFS image is laid out by a file table, and none with a layout is here",
                      "--ftbl FILE --sku N, or a set file");
    }
    bytes image(EFS_get_efs_size());
    if (const std::uint32_t status = yfs_make_efs(image.data(), low32(image.size())); status != 0) {
        throw failure(fault::efs_damaged, fmt::format("the layout for SKU {} of {} makes no image (status {})",
                                                      set.set.sku, set.set.ftbl, status));
    }
    save_new(given, given.path, image);
    note(fmt::format("{}: an empty EFS image of {} for SKU {}", given.path, bytes_text(image.size()), set.set.sku));
    return exit_status::done;
}

} // namespace yfs::tool
