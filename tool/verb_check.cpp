// check and explain: what the second reader finds in an image, and what a finding means. It doesn't mount, so it works
// on images that no mount takes.
#include "inspect/efs_picture.h"
#include "inspect/picture.h"
#include "tool/output.h"
#include "tool/session.h"
#include "tool/tables.h"
#include "tool/verbs.h"

#include <fmt/format.h>

#include <algorithm>

namespace yfs::tool {

namespace {

using inspect::finding;
using inspect::severity;

struct checked_image {
    std::string name;
    std::string_view kind; // "afs", "efs"; of a table "velor", "zonc"
    std::vector<finding> findings;
    std::string detail = {}; // of a table: what is wrong with it

    bool is_table() const { return kind == "velor" || kind == "zonc"; }

    std::uint64_t count(severity level) const
    {
        return static_cast<std::uint64_t>(
            std::count_if(findings.begin(), findings.end(), [=](const finding& f) { return severity_of(f) == level; }));
    }
};

// Each number that a finding carries, by its name.
json::object numbers_of(const finding& f)
{
    const std::pair<const char*, std::uint32_t> all[] = {{"address", f.address}, {"eu", f.eu},     {"slot", f.slot},
                                                         {"page", f.page},       {"file", f.file}, {"chunk", f.chunk},
                                                         {"block", f.block},     {"map", f.bm},    {"value", f.value}};
    json::object out;
    for (const auto& [name, value] : all) {
        if (value != inspect::none) out.emplace_back(name, value);
    }
    return out;
}

json document_of(const checked_image& image)
{
    json::array findings;
    for (const finding& f : image.findings) {
        const auto& kind = inspect::kind_of(f.id);
        json::object one = {{"id", kind.name}, {"severity", to_string(kind.level)}, {"meaning", kind.meaning}};
        for (auto& member : numbers_of(f)) one.push_back(std::move(member));
        findings.emplace_back(std::move(one));
    }
    return json::object{{"path", image.name},
                        {"kind", image.kind},
                        {"faults", image.count(severity::fault)},
                        {"warnings", image.count(severity::warning)},
                        {"findings", std::move(findings)}};
}

// The same trouble in the next slot of the same unit and file: a run of them is one line.
bool goes_on(const finding& a, const finding& b)
{
    return a.id == b.id && a.eu == b.eu && a.file == b.file && a.slot != inspect::none && b.slot == a.slot + 1;
}

std::string text_of(const checked_image& image, bool all)
{
    std::string out;
    for (std::size_t i = 0; i < image.findings.size(); ++i) {
        const finding& f = image.findings[i];
        if (!all && severity_of(f) == severity::info) continue;
        std::size_t last = i;
        while (last + 1 < image.findings.size() && goes_on(image.findings[last], image.findings[last + 1])) ++last;
        out += fmt::format("  {}: {}\n", to_string(severity_of(f)), describe(f));
        if (last > i) out += fmt::format("    and the same up to slot {}\n", image.findings[last].slot);
        i = last;
    }
    if (!image.detail.empty()) out += fmt::format("    {}\n", image.detail);
    const std::uint64_t faults = image.count(severity::fault), warnings = image.count(severity::warning);
    return fmt::format("{}: {}: {}\n", image.name, image.kind,
                       faults + warnings == 0
                           ? "clean"
                           : fmt::format("{}, {}", count_of(faults, "fault"), count_of(warnings, "warning"))) +
           out;
}

checked_image check_image(const image_ref& ref, const bytes& contents, image_kind kind)
{
    if (kind == image_kind::afs) return {ref.text, "afs", inspect::inspect_image(contents).findings};
    return {ref.text, "efs", inspect::inspect_efs(contents, plan_for(ref, contents)).findings};
}

template <typename Table>
checked_image check_table(const working_copy& file, std::string_view kind, const Table& table)
{
    checked_image out{file.name(), kind, {}};
    try {
        read_cfg_records(table(), file.name());
    } catch (const failure& error) {
        out.findings.push_back({.id = inspect::finding_id::table_unreadable});
        out.detail = error.what();
    }
    return out;
}

// What only the file table can tell of the files in a volume.
void check_limits(const session& set, checked_image& image)
{
    const inspect::picture picture = inspect::inspect_image(set.yfs->before);
    for (const file_row& row : set.table.rows()) {
        if (row.where != file_system::afs || row.limit == no_limit || row.index >= picture.file.size()) continue;
        const std::uint32_t size = picture.file[row.index].size;
        if (size > std::uint64_t{row.limit} + row.tail())
            image.findings.push_back({.id = inspect::finding_id::file_over_limit, .file = row.index, .value = size});
    }
}

// An image whose name in the set tells its kind is that, however little of it is left.
std::vector<checked_image> check_set(const source& from)
{
    const session set(from);
    std::vector<checked_image> out;
    if (set.yfs) {
        out.push_back(check_image(set.yfs->ref, set.yfs->before, image_kind::afs));
        check_limits(set, out.back());
    }
    if (set.efs) out.push_back(check_image(set.efs->ref, set.efs->before, image_kind::efs));
    out.push_back(check_table(set.velor, "velor", [&] { return set.velor.before; }));
    if (set.zonc && !set.zonc->before.empty())
        out.push_back(
            check_table(*set.zonc, "zonc", [&] { return table_in_partition(set.zonc->before, set.zonc->name()); }));
    return out;
}

// Any number of images; a file table of --ftbl or of the set tells where the files of an EFS are.
std::vector<checked_image> check_images(const source& from)
{
    source tables = from;
    tables.tables_only = true;
    const session loaded(tables);
    std::vector<checked_image> out;
    for (const std::string& name : from.images) {
        const working_copy copy = read_copy(parse_image(name));
        out.push_back(check_image(copy.ref, copy.before, kind_of(copy.ref, copy.before)));
    }
    return out;
}

} // namespace

exit_status check(const options& given)
{
    const std::vector<checked_image> images = given.images.empty() ? check_set(given) : check_images(given);
    std::uint64_t faults = 0;
    json::array documents, tables;
    std::string text;
    for (const checked_image& image : images) {
        faults += image.count(severity::fault);
        (image.is_table() ? tables : documents).push_back(document_of(image));
        text += text_of(image, given.long_list);
    }
    print(given.json
              ? json(json::object{
                         {"schema", "yfs.check/1"}, {"images", std::move(documents)}, {"tables", std::move(tables)}})
                    .dump()
              : text);
    return faults == 0 ? exit_status::done : exit_status::damaged;
}

exit_status explain(const options& given)
{
    if (given.path.empty()) {
        text_table out({text_table::align::left, text_table::align::left, text_table::align::left});
        for (const inspect::finding_kind& kind : inspect::finding_kinds())
            out.row({std::string(kind.name), std::string(to_string(kind.level)), std::string(kind.meaning)});
        print(out.text());
        return exit_status::done;
    }
    const inspect::finding_kind* const kind = inspect::kind_named(given.path);
    if (kind == nullptr) {
        throw failure(fault::unknown_path, fmt::format("no finding has the id {}", given.path),
                      "'yfs explain' lists them all");
    }
    const auto value = kind->value_name.empty() ? std::string() : fmt::format("\nIts value is {}.\n", kind->value_name);
    print(fmt::format("{} ({})\n{}\n\n{}\n{}", kind->name, to_string(kind->level), kind->meaning, kind->explanation,
                      value));
    return exit_status::done;
}

} // namespace yfs::tool
