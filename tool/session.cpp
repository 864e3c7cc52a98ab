#include "tool/session.h"

#include "tool/error.h"

#include <fmt/format.h>

#include <algorithm>
#include <system_error>
#include <utility>

namespace yfs::tool {

namespace fs = std::filesystem;

namespace {

// The set file of `from`, with what was named beside it in place of its own. Without a set file: only that.
set_file find_set(const source& from)
{
    std::error_code ignored;
    const bool may_be_alone = from.tables_only || !from.images.empty();
    const bool alone = may_be_alone && from.set.empty() && !fs::exists(set_file_name, ignored);
    set_file set = alone ? set_file{} : read_set_file(from.set);
    if (!from.ftbl.empty()) set.ftbl = fs::absolute(from.ftbl).string();
    if (from.sku) set.sku = *from.sku;
    return set;
}

image_ref in_set(const set_file& set, const std::string& name)
{
    image_ref ref = parse_image(name, set.path.parent_path());
    if (!ref.is_stream()) ref.text = set.locate(name).string();
    return ref;
}

std::optional<working_copy> read_copy_of(const set_file& set, const std::optional<std::string>& name)
{
    if (!name) return {};
    return read_copy(in_set(set, *name));
}

bool read_of_set(const source& from)
{
    return from.images.empty() && !from.tables_only && !from.inputs_only;
}

std::optional<working_copy> read_zonc(const set_file& set)
{
    std::error_code ignored;
    if (set.zonc && !fs::exists(in_set(set, *set.zonc).path, ignored)) return {};
    return read_copy_of(set, set.zonc);
}

// Always in this order, so that two programs can't wait for each other.
std::vector<file_lock> lock_all(const source& from, const set_file& set)
{
    std::vector<fs::path> paths;
    if (!set.path.empty()) paths.push_back(set.path);
    for (const auto* name : {&set.yfs, &set.efs, &set.zonc}) {
        if (*name) paths.push_back(in_set(set, **name).path);
    }
    for (const std::string& image : from.images) paths.push_back(parse_image(image).path);
    return lock_files(paths);
}

} // namespace

void working_copy::replace(bytes contents)
{
    if (ref.size && contents.size() > *ref.size) {
        throw failure(fault::too_large,
                      fmt::format("{}: {} don't fit into this range", name(), bytes_text(contents.size())));
    }
    if (ref.size)
        contents.insert(contents.end(), before.begin() + static_cast<std::ptrdiff_t>(contents.size()), before.end());
    now = std::move(contents);
}

std::uint64_t differing_bytes(const bytes& a, const bytes& b)
{
    const std::size_t common = std::min(a.size(), b.size());
    std::uint64_t count = std::max(a.size(), b.size()) - common;
    for (std::size_t i = 0; i < common; ++i) count += a[i] != b[i] ? 1 : 0;
    return count;
}

working_copy read_copy(image_ref ref)
{
    working_copy copy;
    copy.ref = std::move(ref);
    copy.before = read_image(copy.ref);
    copy.now = copy.before;
    return copy;
}

session::session(const source& from, access mode)
    : locks_(mode == access::change ? lock_all(from, find_set(from)) : std::vector<file_lock>()),
      set(find_set(from)),
      ftbl(set.ftbl.empty() ? working_copy() : read_copy(in_set(set, set.ftbl))),
      velor(set.velor.empty() ? working_copy() : read_copy(in_set(set, set.velor))),
      zonc(from.inputs_only ? std::nullopt : read_zonc(set)),
      yfs(read_of_set(from) ? read_copy_of(set, set.yfs) : std::nullopt),
      efs(read_of_set(from) ? read_copy_of(set, set.efs) : std::nullopt),
      table(set.ftbl.empty() ? file_table() : file_table(set, ftbl.before))
{
    if (from.tables_only) return;
    for (const std::string& name : from.images) {
        working_copy copy = read_copy(parse_image(name));
        auto& place = image(kind_of(copy.ref, copy.before));
        if (place) {
            throw failure(fault::usage,
                          fmt::format("{} and {} are both images of one kind", place->name(), copy.name()),
                          "a command works on one AFS image and one EFS image");
        }
        place = std::move(copy);
    }
}

std::string session::name() const
{
    if (!bare()) return set.path.string();
    return yfs ? yfs->name() : efs ? efs->name() : std::string("-");
}

void session::refuse_bare(const std::string& what) const
{
    throw failure(fault::set_missing, fmt::format("{} needs the tables of a set, and only images were named", what),
                  "name a set file or its folder with --set; 'yfs set init DIR' writes one");
}

} // namespace yfs::tool
