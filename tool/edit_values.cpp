#include "tool/edit_values.h"

#include "tool/edits.h"
#include "tool/host_run.h"
#include "tool/output.h"
#include "tool/tables.h"
#include "tool/value_text.h"
#include "tool/verbs.h"
#include "tool/volume.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace yfs::tool {

namespace {

constexpr const char* new_zonc_name = "zonc.bin";

void check_size(const file_row& row, std::size_t size)
{
    const auto on_efs = row.where == file_system::efs ? largest_on_efs(row) : std::nullopt;
    if (on_efs && size > *on_efs) {
        throw failure(fault::too_large, fmt::format("can't set {}: {}, and EFS, where it is stored, takes {} at most",
                                                    printable(row.path), bytes_text(size), *on_efs));
    }
    if (size > row.limit || size > largest_value) {
        throw failure(fault::too_large,
                      fmt::format("can't set {}: {}, and its limit is {}", printable(row.path), bytes_text(size),
                                  std::min(row.limit, largest_value)),
                      row.limit > largest_value ? "no record of zonc.cfg carries more"
                                                : "the file table sets that limit");
    }
    if (size == 0 && row.where == file_system::efs) {
        throw failure(fault::empty_on_efs,
                      fmt::format("can't set {} to nothing: it is stored on EFS, which takes no empty file from a host",
                                  printable(row.path)),
                      "give it at least one byte");
    }
}

std::string name_list(const std::vector<std::string>& names)
{
    constexpr std::size_t shown = 5;
    std::string text;
    for (std::size_t i = 0; i < std::min(names.size(), shown); ++i) text += (i == 0 ? "" : ", ") + names[i];
    if (names.size() > shown) text += fmt::format(" and {} more", names.size() - shown);
    return text;
}

// The new zonc.cfg holds the values in force and nothing else. What that would lose is told before it happens.
void check_losses(const session& set, const host_run& run, bool drop_unknown)
{
    if (!set.zonc) return;
    std::vector<std::string> unknown;
    std::vector<std::string> without_effect;
    const auto table = table_in_partition(set.zonc->now, set.zonc->name());
    for (const cfg_record& record : read_cfg_records(table, set.zonc->name())) {
        const file_row* row = set.table.by_fileno(record.fileno);
        if (row == nullptr)
            unknown.push_back(fmt::format("0x{:x}", record.fileno));
        else if (!run.get(*row))
            without_effect.push_back(printable(row->path));
    }
    if (!unknown.empty() && !drop_unknown) {
        throw failure(fault::unknown_records,
                      fmt::format("{} holds {} that {} doesn't know for SKU {}, and a rebuild would lose: fileno {}",
                                  set.zonc->name(), count_of(unknown.size(), "record"), set.set.ftbl, set.set.sku,
                                  name_list(unknown)),
                      "name the file table that belongs to the set, or let them go with --drop-unknown");
    }
    if (!unknown.empty()) note(fmt::format("dropped from zonc.cfg: fileno {}", name_list(unknown)));
    if (!without_effect.empty()) {
        note(fmt::format(
            "warning: not in the new zonc.cfg, since no value of them is in force (a default of {} can come "
            "back): {}",
            set.set.velor, name_list(without_effect)));
    }
}

// One value above its limit stops the whole rebuild.
void check_all_limits(const session& set, const host_run& run, const named_values& wanted)
{
    for (const file_row& row : set.table.rows()) {
        const auto value = run.get(row);
        if (!value || wanted.contains(row.path) || value->contents.size() <= std::min(value->limit, largest_value))
            continue;
        throw failure(fault::too_large,
                      fmt::format("no new zonc.cfg can be built: the value of {} holds {}, and its limit is {}",
                                  printable(row.path), bytes_text(value->contents.size()),
                                  std::min(value->limit, largest_value)),
                      fmt::format("set that value first: 'yfs nvar set {} ...'", printable(row.path)));
    }
}

// Ends the run: the values are in the images, and in a zonc.cfg that the set names from now on.
void put_values_back(session& set, host_run& run, changes& done)
{
    for (const file_row& row : set.table.rows()) {
        if (run.get(row)) done.touch(row);
    }
    const bytes table = run.finish();
    if (set.zonc) {
        set.zonc->replace(make_partition(set.zonc->before, table));
        return;
    }
    set.zonc.emplace();
    set.zonc->ref = parse_image(set.set.locate(set.set.zonc.value_or(new_zonc_name)).string());
    set.zonc->now = make_partition({}, table);
    if (set.set.zonc) return;
    const std::string text = set_file_with_zonc(set.set, new_zonc_name);
    done.add_file(set.set.path, bytes(text.begin(), text.end()));
}

// What the next host will see.
void check_result(session& set, const named_values& expected)
{
    const named_values seen = values_in_force(set);
    for (const auto& [path, value] : expected) {
        const auto found = seen.find(path);
        if (found != seen.end() && found->second == value) continue;
        throw failure(
            fault::check_failed,
            fmt::format("a run over the result doesn't see {} as it should be; nothing was saved", printable(path)));
    }
}

void check_new_zonc(const session& set)
{
    const auto path = set.set.locate(new_zonc_name);
    if (set.set.zonc || !std::filesystem::exists(std::filesystem::symlink_status(path))) return;
    throw failure(
        fault::would_overwrite,
        fmt::format("{} exists, but {} doesn't name it as its zonc.cfg", path.string(), set.set.path.string()),
        fmt::format("add \"zonc\": \"{}\" to the set file, or move that file away", new_zonc_name));
}

void check_modifiable(const file_row& row, const value_in_force& value)
{
    if (value.modifiable) return;
    throw failure(
        fault::not_modifiable,
        fmt::format("can't set {}: the volume is deployed, and there the stored file ends in a tail of {} bytes "
                    "made for this very value (attribute bit 0), so no rebuild writes it",
                    printable(row.path), row.tail()),
        fmt::format("'yfs put {} FILE' replaces the stored file as a whole, tail included", printable(row.path)));
}

// Which of `wanted` isn't in force yet, by the row of its file.
std::vector<std::pair<const file_row*, const bytes*>> still_to_set(const session& set, const host_run& run,
                                                                   const named_values& wanted)
{
    std::vector<std::pair<const file_row*, const bytes*>> list;
    for (const auto& [path, contents] : wanted) {
        const file_row* row = set.table.find(path);
        const auto old = run.get(*row);
        if (!old) refuse_absent_value(set, *row);
        if (std::equal(contents.begin(), contents.end(), old->contents.begin(), old->contents.end())) continue;
        check_modifiable(*row, *old);
        list.emplace_back(row, &contents);
    }
    return list;
}

// The same values, by the paths as the file table spells them, and of a size that can be.
named_values by_table_path(const session& set, const named_values& values)
{
    named_values out;
    for (const auto& [path, contents] : values) {
        const file_row row = set.table.resolve(path);
        check_size(row, contents.size());
        out[row.path] = contents;
    }
    return out;
}

} // namespace

void refuse_absent_value(const session& set, const file_row& row)
{
    throw failure(fault::no_value,
                  fmt::format("no value of {} is in force: {} has none, or zonc.cfg takes it away", printable(row.path),
                              set.velor.name()),
                  "'yfs nvar ls' lists the values that are; 'yfs cat' reads the stored file itself");
}

namespace {

std::vector<changed_value> run_with(session& set, const named_values& wanted, bool drop_unknown, bool always,
                                    changes& done)
{
    host_run run(set);
    std::vector<changed_value> changed;
    const auto to_set = still_to_set(set, run, wanted);
    if (to_set.empty() && !always) return changed;
    check_losses(set, run, drop_unknown);
    check_all_limits(set, run, wanted);
    for (const auto& [row, contents] : to_set) {
        changed.push_back({row->path, run.get(*row)->contents.size(), contents->size()});
        run.set(*row, *contents);
    }
    named_values expected;
    for (const file_row& row : set.table.rows()) {
        if (const auto value = run.get(row)) expected[row.path] = {value->contents.begin(), value->contents.end()};
    }
    put_values_back(set, run, done);
    check_result(set, expected);
    return changed;
}

} // namespace

std::vector<changed_value> apply_values(session& set, const named_values& values, bool drop_unknown, changes& done)
{
    if (set.bare()) set.refuse_bare("a value");
    const named_values wanted = by_table_path(set, values);
    check_new_zonc(set);
    return run_with(set, wanted, drop_unknown, false, done);
}

void build_values(session& set, const named_values& values, changes& done)
{
    run_with(set, by_table_path(set, values), false, true, done);
}

std::string set_value(session& set, const options& given, changes& done)
{
    const file_row row = set.table.resolve(given.path);
    const bytes contents = parse_value(given.value);
    const auto changed = apply_values(set, {{row.path, contents}}, given.drop_unknown, done);
    if (changed.empty())
        return fmt::format("{} holds these {} already", printable(row.path), bytes_text(contents.size()));
    return fmt::format("{}: {} -> {}", printable(row.path), changed.front().old_size, bytes_text(contents.size()));
}

std::string import_values(session& set, const options& given, changes& done)
{
    const named_values wanted = read_values(given.source_file);
    const auto changed = apply_values(set, wanted, given.drop_unknown, done);
    return fmt::format("{} from {}: {} changed, {} the same", count_of(wanted.size(), "value"), given.source_file,
                       changed.size(), wanted.size() - changed.size());
}

} // namespace yfs::tool
