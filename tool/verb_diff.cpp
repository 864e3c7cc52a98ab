// diff: two images, or two sets, by the contents of their files, by the flash under them, and by values.
#include "tool/contents_view.h"
#include "tool/error.h"
#include "tool/map_svg.h"
#include "tool/output.h"
#include "tool/values_document.h"
#include "tool/verbs.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace yfs::tool {

namespace fs = std::filesystem;

namespace {

// A file that differs; without a size on a side it isn't there.
struct file_difference {
    std::string name;
    std::optional<std::size_t> left, right;
    bool left_damaged = false, right_damaged = false; // read as far as it can be
};

// An erase unit or a block that differs.
struct part_difference {
    std::string name;
    std::size_t bytes = 0;
    std::string detail;
};

// A table of one set and the other's.
struct table_difference {
    std::string_view key;
    std::string left, right; // empty: the set has none
    std::size_t bytes = 0;
};

struct image_difference {
    image_kind kind = image_kind::afs;
    std::string left, right;
    std::vector<file_difference> files;
    std::size_t same_files = 0;
    std::vector<part_difference> parts;
    std::size_t all_parts = 0;
    image_map map; // of the right side, with what differs from the left lit
};

std::vector<file_difference> compare_files(const image_map& names, const contents_view& left,
                                           const contents_view& right, std::size_t& same)
{
    std::vector<file_difference> list;
    const auto add = [&](std::uint32_t file, std::optional<std::size_t> one, std::optional<std::size_t> other) {
        list.push_back({names.file_name(file), one, other, left.damaged.contains(file), right.damaged.contains(file)});
    };
    for (const auto& [file, contents] : left.files) {
        const auto other = right.files.find(file);
        if (other == right.files.end())
            add(file, contents.size(), {});
        else if (other->second != contents || left.damaged.contains(file) != right.damaged.contains(file))
            add(file, contents.size(), other->second.size());
        else
            ++same;
    }
    for (const auto& [file, contents] : right.files) {
        if (!left.files.contains(file)) add(file, {}, contents.size());
    }
    return list;
}

std::string part_detail(std::string_view state_before, std::string_view state_after, std::uint32_t wear_before,
                        std::uint32_t wear_after)
{
    std::string out;
    if (state_before != state_after) out = fmt::format("{} -> {}", state_before, state_after);
    if (wear_before == wear_after) return out;
    return fmt::format("{}{}erased {} -> {} times", out, out.empty() ? "" : ", ", wear_before, wear_after);
}

// What of a unit's or a block's role and wear changed.
std::string part_detail(const image_map& left, const image_map& right, std::size_t part)
{
    if (right.kind == image_kind::efs) {
        if (part >= left.blocks.size()) return {};
        const map_block &a = left.blocks[part], &b = right.blocks[part];
        return part_detail(a.state, b.state, a.erase_count.value_or(0), b.erase_count.value_or(0));
    }
    if (part >= left.units.size()) return {};
    const map_unit &a = left.units[part], &b = right.units[part];
    return part_detail(to_string(a.role), to_string(b.role), a.erase_count, b.erase_count);
}

std::vector<part_difference> compare_parts(const image_map& left, const image_map& right, const bytes& a,
                                           const bytes& b)
{
    const bool afs = right.kind == image_kind::afs;
    const std::size_t size = afs ? ftl::eu_size : efs::block_bytes;
    std::vector<part_difference> list;
    for (std::size_t part = 0; part * size < std::max(a.size(), b.size()); ++part) {
        std::size_t count = 0;
        for (std::size_t at = part * size; at < std::min((part + 1) * size, std::max(a.size(), b.size())); ++at)
            count += at >= a.size() || at >= b.size() || a[at] != b[at] ? 1 : 0;
        if (count == 0) continue;
        const bool known = part < (afs ? right.units.size() : right.blocks.size());
        const std::string name = afs     ? fmt::format("EU {}", part)
                                 : known ? right.blocks[part].name
                                         : fmt::format("block at 0x{:x}", part * size);
        list.push_back({name, count, known ? part_detail(left, right, part) : std::string()});
    }
    return list;
}

image_difference compare(const session& names, const working_copy& left, const working_copy& right, image_kind kind)
{
    image_difference out;
    out.kind = kind;
    out.left = left.name();
    out.right = right.name();
    out.map = map_of(names, right, kind, &left.before);
    const image_map before = map_of(names, left, kind);
    out.files = compare_files(out.map, view_contents(left.ref, left.before, kind),
                              view_contents(right.ref, right.before, kind), out.same_files);
    out.parts = compare_parts(before, out.map, left.before, right.before);
    out.all_parts = kind == image_kind::afs ? out.map.units.size() : out.map.blocks.size();
    return out;
}

std::string text_of(const image_difference& diff, bool contents_only)
{
    std::string text = fmt::format(
        "{} {} {}: {}, {} the same\n", diff.left, diff.files.empty() ? "=" : "->", diff.right,
        count_of(diff.files.size(), "file") + " differ" + (diff.files.size() == 1 ? "s" : ""), diff.same_files);
    for (const auto& [name, left, right, left_damaged, right_damaged] : diff.files) {
        text += !left    ? fmt::format("  added    {}, {}\n", name, bytes_text(*right))
                : !right ? fmt::format("  removed  {}, {}\n", name, bytes_text(*left))
                         : fmt::format("  changed  {}, {} -> {}{}\n", name, *left, bytes_text(*right),
                                       left_damaged && right_damaged ? ", damaged on both sides"
                                       : left_damaged                ? ", damaged on the left"
                                       : right_damaged               ? ", damaged on the right"
                                                                     : "");
    }
    if (contents_only) return text;
    text += fmt::format("  flash: {} of {} differ\n", diff.parts.size(),
                        count_of(diff.all_parts, diff.kind == image_kind::afs ? "erase unit" : "block"));
    for (const auto& [name, count, detail] : diff.parts)
        text += fmt::format("    {}: {}{}{}\n", name, bytes_text(count), detail.empty() ? "" : ", ", detail);
    return text;
}

json document_of(const image_difference& diff, bool contents_only)
{
    json::array files, parts;
    const auto size = [](const std::optional<std::size_t>& value) {
        return value ? json(std::uint64_t{*value}) : json();
    };
    for (const file_difference& file : diff.files)
        files.emplace_back(json::object{{"path", file.name},
                                        {"left_size", size(file.left)},
                                        {"right_size", size(file.right)},
                                        {"left_damaged", file.left_damaged},
                                        {"right_damaged", file.right_damaged}});
    for (const auto& [name, count, detail] : diff.parts)
        parts.emplace_back(json::object{{"part", name}, {"bytes", std::uint64_t{count}}, {"detail", detail}});
    return json::object{{"kind", to_string(diff.kind)},
                        {"left", diff.left},
                        {"right", diff.right},
                        {"files", std::move(files)},
                        {"same", std::uint64_t{diff.same_files}},
                        {"parts", contents_only ? json() : json(std::move(parts))}};
}

bool is_set(const std::string& name)
{
    std::error_code ignored;
    return fs::is_directory(name, ignored) || name.ends_with(".json");
}

struct difference {
    std::vector<image_difference> images;
    std::vector<table_difference> tables; // of two sets; only those that differ
};

difference compare_sets(const std::string& a, const std::string& b)
{
    source right_source, left_source;
    right_source.set = b;
    left_source.set = a;
    const session right(right_source), left(left_source); // the left one's tables stay active
    difference out;
    for (const image_kind kind : {image_kind::afs, image_kind::efs}) {
        const auto &one = left.image(kind), &other = right.image(kind);
        if (one && other) out.images.push_back(compare(left, *one, *other, kind));
        if (one.has_value() != other.has_value())
            throw failure(fault::usage, fmt::format("only one of {} and {} has an image of {}", a, b, to_string(kind)));
    }
    const auto add_table = [&](std::string_view key, const working_copy* one, const working_copy* other) {
        static const working_copy none;
        if (one == nullptr) one = &none;
        if (other == nullptr) other = &none;
        const std::size_t count = differing_bytes(one->before, other->before);
        if (count != 0) out.tables.push_back({key, one->name(), other->name(), count});
    };
    add_table("ftbl", &left.ftbl, &right.ftbl);
    add_table("velor", &left.velor, &right.velor);
    add_table("zonc", left.zonc ? &*left.zonc : nullptr, right.zonc ? &*right.zonc : nullptr);
    return out;
}

// Both sides' images of each kind, with the tables of the left set, of --ftbl, or of the set that is there.
difference compare_sides(const options& given)
{
    const std::string &a = given.inputs[0], &b = given.inputs[1];
    for (const std::string& side : {a, b}) {
        std::error_code ignored;
        if (side != "-" && !fs::exists(parse_image(side).path, ignored))
            throw failure(fault::file_unreadable, fmt::format("there is no {}", side));
    }
    if (is_set(a) != is_set(b))
        throw failure(fault::usage, fmt::format("{} and {} aren't both sets, nor both images", a, b));
    if (is_set(a)) return compare_sets(a, b);

    source tables = given;
    tables.tables_only = true;
    const session names(tables);
    const working_copy left = read_copy(parse_image(a)), right = read_copy(parse_image(b));
    const image_kind kind = kind_of(left.ref, left.before);
    if (kind_of(right.ref, right.before) != kind)
        throw failure(fault::usage, fmt::format("{} and {} are images of different kinds", a, b));
    return {{compare(names, left, right, kind)}, {}};
}

json document_of(const table_difference& table)
{
    const auto name = [](const std::string& path) { return path.empty() ? json() : json(path); };
    return json::object{{"table", table.key},
                        {"left", name(table.left)},
                        {"right", name(table.right)},
                        {"bytes", std::uint64_t{table.bytes}}};
}

std::string text_of(const difference& found, bool contents_only)
{
    std::string text;
    for (const image_difference& image : found.images) text += text_of(image, contents_only);
    for (const table_difference& table : found.tables)
        text += table.left.empty()    ? fmt::format("{}: added\n", table.right)
                : table.right.empty() ? fmt::format("{}: removed\n", table.left)
                                      : fmt::format("{} -> {}: {} differ{}\n", table.left, table.right,
                                                    bytes_text(table.bytes), table.bytes == 1 ? "s" : "");
    return text;
}

void save_picture(const std::string& target, const difference& found)
{
    const bool page = target.ends_with(".html");
    if (!page && !target.ends_with(".svg"))
        throw failure(fault::usage, fmt::format("'{}' is neither .svg nor .html", target), "name one of these");
    std::vector<image_map> maps;
    for (const image_difference& image : found.images) maps.push_back(image.map);
    const std::string text = text_of(found, false);
    const std::string drawn =
        page ? map_html(maps, "Difference of two flash images", fmt::format("<pre>{}</pre>\n", escaped_xml(text)))
             : map_svg(maps);
    save_list list;
    list.add(target, {drawn.begin(), drawn.end()});
    list.commit();
    note(fmt::format("drew {}", target));
}

} // namespace

exit_status diff_images(const options& given)
{
    if (given.values) return diff_values(given);
    const difference found = compare_sides(given);
    const bool same =
        found.tables.empty() && std::all_of(found.images.begin(), found.images.end(), [&](const auto& image) {
            return image.files.empty() && (given.contents || image.parts.empty());
        });
    if (!given.change.output.empty()) {
        save_picture(given.change.output, found);
    } else if (given.json) {
        json::array images, tables;
        for (const image_difference& image : found.images) images.push_back(document_of(image, given.contents));
        for (const table_difference& table : found.tables) tables.push_back(document_of(table));
        print(json(json::object{{"schema", "yfs.diff/1"},
                                {"same", same},
                                {"images", std::move(images)},
                                {"tables", std::move(tables)}})
                  .dump());
    } else if (!same) {
        print(text_of(found, given.contents));
    }
    return same ? exit_status::done : exit_status::no;
}

} // namespace yfs::tool
