#include "tool/changes.h"

#include "tool/contents_view.h"
#include "tool/error.h"
#include "tool/output.h"
#include "tool/verbs.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

namespace yfs::tool {

namespace fs = std::filesystem;

namespace {

using inspect::finding;

// A fault that the image didn't have before; null if there is none. What was damaged already may stay so.
const finding* new_fault(const contents_view& before, const contents_view& after)
{
    for (const finding& fault : after.faults) {
        const auto same = [&](const finding& old) { return old.id == fault.id && old.file == fault.file; };
        if (std::none_of(before.faults.begin(), before.faults.end(), same)) return &fault;
    }
    return nullptr;
}

} // namespace

void changes::add_file(fs::path target, bytes contents)
{
    others_.emplace_back(std::move(target), std::move(contents));
}

std::vector<const working_copy*> changes::changed_copies() const
{
    std::vector<const working_copy*> list;
    for (const auto* copy : {&set_.yfs, &set_.efs, &set_.zonc}) { // images before the table, as in a host's own run
        if (*copy && (*copy)->changed()) list.push_back(&**copy);
    }
    return list;
}

bool changes::empty() const
{
    return changed_copies().empty() && others_.empty();
}

void changes::check(const working_copy& image, image_kind kind) const
{
    const contents_view before = view_contents(image.ref, image.before, kind);
    const contents_view after = view_contents(image.ref, image.now, kind);
    if (const finding* fault = any_fault_ ? nullptr : new_fault(before, after)) {
        throw failure(fault::check_failed,
                      fmt::format("{}: the change would leave a fault, so nothing was saved: {}", image.name(),
                                  inspect::describe(*fault)),
                      fmt::format("'yfs check {}' tells what the image has already", image.name()));
    }
    if (any_file_) return;
    const file_system where = kind == image_kind::afs ? file_system::afs : file_system::efs;
    std::map<std::uint32_t, bytes> left = before.files, right = after.files;
    for (const auto& [system, index] : touched_) {
        if (system != where) continue;
        left.erase(index);
        right.erase(index);
    }
    if (left == right) return;
    const auto [a, b] = std::mismatch(left.begin(), left.end(), right.begin(), right.end());
    const std::uint32_t other = a == left.end() ? b->first : b == right.end() ? a->first : std::min(a->first, b->first);
    throw failure(fault::check_failed, fmt::format("{}: the change would alter {}#{} too, so nothing was saved",
                                                   image.name(), to_string(kind), other));
}

save_list changes::files_to_save() const
{
    save_list list;
    for (const working_copy* copy : changed_copies()) {
        if (copy->ref.size)
            list.add_range(copy->ref.path, copy->ref.offset, copy->now);
        else
            list.add(copy->ref.path, copy->now);
    }
    for (const auto& [path, contents] : others_) list.add(path, contents);
    if (flags_.backup) list.keep_old_files(*flags_.backup);
    return list;
}

std::string changes::summary() const
{
    std::vector<std::string> parts;
    for (const working_copy* copy : changed_copies())
        parts.push_back(
            fmt::format("{} ({} differ)", copy->name(), bytes_text(differing_bytes(copy->before, copy->now))));
    for (const auto& [path, contents] : others_) parts.push_back(path.string());
    return fmt::format("{}", fmt::join(parts, ", "));
}

// What changed; where nothing did, the images that the verb was about, so that a caller finds a result in any case.
std::vector<const working_copy*> changes::copies_for_elsewhere() const
{
    std::vector<const working_copy*> list = changed_copies();
    if (!list.empty() || !others_.empty()) return list;
    for (const image_kind kind : {image_kind::afs, image_kind::efs}) {
        const auto& image = set_.image(kind);
        if (image && (meant_.empty() || meant_.contains(kind))) list.push_back(&*image);
    }
    return list;
}

// One image goes whole, out of its dump, into the file; several files go into a folder, each by its own name.
void changes::save_elsewhere() const
{
    const std::vector<const working_copy*> copies = copies_for_elsewhere();
    std::error_code ignored;
    const bool folder = flags_.output.ends_with('/') || fs::is_directory(flags_.output, ignored);
    if (!folder && copies.size() + others_.size() != 1) {
        throw failure(
            fault::usage,
            fmt::format("{} to be written, and -o names one", count_of(copies.size() + others_.size(), "file")),
            "-o FOLDER/ takes all of them; -i IMAGE works on one image alone");
    }
    if (flags_.output == "-") {
        print_contents(copies.empty() ? others_.front().second : copies.front()->now, false);
        return;
    }
    if (folder) fs::create_directories(flags_.output, ignored);
    save_list list;
    const auto target = [&](const fs::path& path) {
        return folder ? flags_.output / path.filename() : fs::path(flags_.output);
    };
    for (const working_copy* copy : copies) list.add(target(copy->ref.path), copy->now);
    for (const auto& [path, contents] : others_) list.add(target(path), contents);
    list.commit();
}

void changes::save(const std::string& what)
{
    if (empty() && (flags_.output.empty() || flags_.dry_run)) {
        note(fmt::format("{}; nothing changed", what));
        return;
    }
    for (const image_kind kind : {image_kind::afs, image_kind::efs}) {
        if (const auto& image = set_.image(kind); image && image->changed()) check(*image, kind);
    }
    if (flags_.dry_run) {
        note(fmt::format("{}; would save {}", what, summary()));
        return;
    }
    const std::vector<const working_copy*> copies = changed_copies();
    const bool from_stream =
        std::any_of(copies.begin(), copies.end(), [](const auto* c) { return c->ref.is_stream(); });
    if (from_stream && flags_.output.empty()) {
        throw failure(fault::usage, "an image from standard input needs a place for the result",
                      "-o FILE, or -o - for standard output");
    }
    if (!flags_.output.empty()) {
        save_elsewhere();
        note(fmt::format("{}; {}{}", what, empty() ? "nothing changed; " : "",
                         flags_.output == "-" ? "written to standard output" : "saved into " + flags_.output));
        return;
    }
    save_list list = files_to_save();
    list.commit();
    note(fmt::format("{}; saved {}", what, list.names()));
}

exit_status make_change(const options& given)
{
    session set(given, access::change);
    changes done(set, given.change);
    const std::string what = given.how(set, given, done);
    done.save(what);
    return done.status;
}

} // namespace yfs::tool
