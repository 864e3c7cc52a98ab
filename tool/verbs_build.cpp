// build: a set file with its inputs becomes images and tables, the same bytes for the same input. size: the smallest
// partitions that hold what a set holds.
#include "ftl/eu_layout.h"
#include "tool/build_plan.h"
#include "tool/edit_values.h"
#include "tool/error.h"
#include "tool/interrupt.h"
#include "tool/output.h"
#include "tool/verbs.h"
#include "tool/volume.h"
#include "yfs/dfs.h"
#include "yfs/efs.h"
#include "yfs/make_efs.h"
#include "yfs/make_volume.h"
#include "yfs/status.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <utility>

namespace yfs::tool {

namespace fs = std::filesystem;

namespace {

constexpr std::uint32_t smallest_volume = 0x8000, largest_volume = 0x1FE000;
constexpr std::uint32_t ends_behind = 1;

// ---- build ----

bytes empty_afs(const session& set, const build_plan& plan)
{
    if (plan.afs_size == 0) {
        throw failure(fault::set_invalid,
                      fmt::format("{} names an AFS image, and not how large to make it", set.name()),
                      R"(add "afs": {"size": 131072, "files": 128}; 'yfs size' tells the smallest size)");
    }
    bytes image(std::min<std::uint64_t>(plan.afs_size, largest_volume + 1));
    if (yfs_make_volume(image.data(), low32(image.size()), plan.afs_files) == 0) return image;
    throw failure(fault::set_invalid,
                  fmt::format("{}: no volume of {} for {} file numbers can be", set.name(), bytes_text(plan.afs_size),
                              plan.afs_files),
                  "32768 to 2088960 bytes, in steps of 8192, and at least 65 numbers");
}

bytes empty_efs(const session& set)
{
    bytes image(g_efs_autogen_data_loaded == 0 ? 0 : EFS_get_efs_size());
    if (!image.empty() && yfs_make_efs(image.data(), low32(image.size())) == 0) return image;
    throw failure(fault::set_invalid, fmt::format("{} names an EFS image, and {} lays none out for SKU {}", set.name(),
                                                  set.set.ftbl, set.set.sku));
}

void start_image(session& set, image_kind kind, const std::optional<std::string>& name, bytes image)
{
    auto& copy = set.image(kind).emplace();
    copy.ref = image_ref{*name, set.set.locate(*name), 0, {}};
    copy.now = std::move(image);
}

void put_files(session& set, const build_plan& plan)
{
    volume images(set);
    images.mount_afs();
    images.mount_efs();
    std::size_t done = 0;
    for (const auto& [path, contents] : plan.files) {
        stop_if_interrupted();
        show_progress(fmt::format("{} of {} files", ++done, plan.files.size()));
        const file_row row = set.table.resolve(path);
        if (row.limit != no_limit && contents.size() > std::uint64_t{row.limit} + row.tail()) {
            throw failure(fault::too_large,
                          fmt::format("can't put {}: {}, and the file table allows {}", printable(path),
                                      bytes_text(contents.size()), std::uint64_t{row.limit} + row.tail()));
        }
        images.write(row, contents);
    }
    end_progress();
}

void make_images(session& set, const build_plan& plan)
{
    if (set.set.yfs) start_image(set, image_kind::afs, set.set.yfs, empty_afs(set, plan));
    if (set.set.efs) start_image(set, image_kind::efs, set.set.efs, empty_efs(set));
    put_files(set, plan);
    changes unsaved(set, {});
    if (set.set.zonc || !plan.values.empty()) build_values(set, plan.values, unsaved);
}

// The set as others are to use it: without the keys for building.
std::string plain_set_file(const set_file& set)
{
    json::object members;
    for (const auto& [key, value] : *set.document.as_object()) {
        if (key != "afs" && key != "files" && key != "values") members.emplace_back(key, value);
    }
    return json(std::move(members)).dump();
}

// Only what differs from what is there.
class build_output {
public:
    explicit build_output(const options& given, const set_file& set) : folder_(given.change.output), set_(set) {}
    void add(const std::string& name, const bytes& contents)
    {
        const fs::path target = folder_.empty() ? set_.locate(name) : folder_ / fs::path(name).filename();
        targets_.push_back(target);
        std::error_code ignored;
        if (fs::exists(target, ignored) && read_file(target) == contents) return;
        list_.add(target, contents);
    }
    void commit()
    {
        std::error_code ignored;
        if (!folder_.empty()) fs::create_directories(folder_, ignored);
        list_.commit();
    }
    std::string told() const { return list_.empty() ? "nothing changed" : "made " + list_.names(); }
    const std::vector<fs::path>& targets() const { return targets_; }
    const fs::path& folder() const { return folder_; }

private:
    fs::path folder_;
    const set_file& set_;
    save_list list_;
    std::vector<fs::path> targets_;
};

// As make and ninja read it: "TARGETS: INPUTS", blanks escaped.
bytes depfile_text(const build_output& out, const build_plan& plan)
{
    const auto escaped = [](const fs::path& path) {
        std::string text;
        for (const char c : path.string()) {
            if (c == ' ' || c == '#' || c == '\\') text += '\\';
            if (c == '$') text += '$';
            text += c;
        }
        return text;
    };
    std::string text;
    for (const fs::path& target : out.targets()) text += escaped(target) + " ";
    text.back() = ':';
    for (const fs::path& input : plan.inputs) text.append(" \\\n  ").append(escaped(input));
    text += "\n";
    return {text.begin(), text.end()};
}

source inputs_of(const options& given)
{
    source from = given;
    from.inputs_only = true;
    return from;
}

} // namespace

exit_status build(const options& given)
{
    session set(inputs_of(given));
    const build_plan plan = read_build_plan(set.set);
    make_images(set, plan);

    build_output out(given, set.set);
    if (!out.folder().empty()) {
        const std::string text = plain_set_file(set.set);
        out.add(set.set.ftbl, set.ftbl.before);
        out.add(set.set.velor, set.velor.before);
        out.add(set_file_name, {text.begin(), text.end()});
    }
    if (set.yfs) out.add(*set.set.yfs, set.yfs->now);
    if (set.efs) out.add(*set.set.efs, set.efs->now);
    if (set.zonc) out.add(set.set.zonc.value_or("zonc.bin"), set.zonc->now);
    out.commit();
    if (!given.depfile.empty()) {
        save_list list;
        list.add(given.depfile, depfile_text(out, plan));
        list.commit();
    }
    note(fmt::format("{} with {} and {}: {}", set.name(), count_of(plan.files.size(), "file"),
                     count_of(plan.values.size(), "value"), out.told()));
    return exit_status::done;
}

// ---- size ----

namespace {

// A file more, under a number that isn't taken.
bool takes_one_more(std::size_t size)
{
    const bytes more(size);
    for (std::uint32_t file = 0; file < dfs_context->files; ++file) {
        std::uint32_t held = 0;
        if (dfs_getsize(file, &held) != afs_status::ok)
            return dfs_write(file, 0, low32(size), more.data(), ends_behind) == afs_status::ok;
    }
    return false;
}

// What a volume has to take: the whole of a build, or the files that another volume holds.
class needed_room {
public:
    explicit needed_room(const options& given) : given_(given)
    {
        session inputs(inputs_of(given));
        plan_ = read_build_plan(inputs.set);
        if (plan_.files.empty()) {
            read_stored(given);
            return;
        }
        for (const auto& [path, contents] : plan_.files) {
            if (inputs.table.resolve(path).where == file_system::afs) count(contents);
        }
        heads = plan_.afs_files;
    }

    // Whether a fresh volume of this size takes all of it, and then, if asked, the largest file once more.
    bool fits(std::uint32_t size, bool roomy)
    {
        if (plan_.files.empty()) return fits_stored(size, roomy);
        session set(inputs_of(given_));
        plan_.afs_size = size;
        try {
            make_images(set, plan_);
        } catch (const failure& error) {
            if (error.which() == fault::volume_full || error.which() == fault::set_invalid) return false;
            throw;
        }
        return !roomy || (dfs_init(set.yfs->now.data(), size) == afs_status::ok && takes_one_more(largest_));
    }

    std::size_t files = 0;
    std::uint32_t heads = 65; // the least that a volume has
    std::uint64_t total = 0;

private:
    void count(const bytes& file)
    {
        ++files;
        total += file.size();
        largest_ = std::max(largest_, file.size());
    }
    void read_stored(const options& given)
    {
        session set(given);
        volume images(set);
        images.mount_afs();
        if (!set.yfs) return;
        heads = dfs_context->files;
        for (const stored_file& file : images.files()) {
            stored_[file.row.index] = images.read(file.row);
            count(stored_[file.row.index]);
        }
    }
    bool fits_stored(std::uint32_t size, bool roomy) const
    {
        bytes image(size);
        if (yfs_make_volume(image.data(), size, heads) != 0 || dfs_init(image.data(), size) != 0) return false;
        for (const auto& [file, data] : stored_) {
            if (dfs_write(file, 0, low32(data.size()), data.data(), ends_behind) != afs_status::ok) return false;
        }
        return !roomy || takes_one_more(largest_);
    }

    const options& given_;
    build_plan plan_;
    std::map<std::uint32_t, bytes> stored_;
    std::size_t largest_ = 0;
};

std::optional<std::uint32_t> smallest(needed_room& room, bool roomy)
{
    const auto least =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(room.total / ftl::eu_size * ftl::eu_size, largest_volume));
    for (std::uint32_t size = std::max(smallest_volume, least); size <= largest_volume; size += ftl::eu_size) {
        stop_if_interrupted();
        if (room.fits(size, roomy)) return size;
    }
    return {};
}

json number_or_null(const std::optional<std::uint32_t>& number)
{
    return number ? json(*number) : json();
}

std::string size_text(const std::optional<std::uint32_t>& size)
{
    return size ? fmt::format("{} ({})", bytes_text(*size), count_of(*size / ftl::eu_size, "erase unit"))
                : std::string("none: more than any volume takes");
}

} // namespace

exit_status smallest_size(const options& given)
{
    needed_room room(given);
    const auto least = smallest(room, false), roomy = smallest(room, true);
    const std::uint32_t efs = g_efs_autogen_data_loaded == 0 ? 0 : EFS_get_efs_size();
    if (given.json) {
        print(json(json::object{{"schema", "yfs.size/1"},
                                {"files", std::uint64_t{room.files}},
                                {"file_heads", room.heads},
                                {"afs_smallest", number_or_null(least)},
                                {"afs_to_replace_any", number_or_null(roomy)},
                                {"efs", efs}})
                  .dump());
    } else {
        text_table out({text_table::align::left, text_table::align::left});
        out.row({"files", fmt::format("{}, numbers 0 to {}", count_of(room.files, "file"), room.heads - 1)});
        out.row({"afs, at least", size_text(least)});
        out.row({"afs, to replace any file", size_text(roomy)});
        if (efs != 0) out.row({"efs, by its layout", bytes_text(efs)});
        print(out.text());
    }
    return least ? exit_status::done : exit_status::no;
}

} // namespace yfs::tool
