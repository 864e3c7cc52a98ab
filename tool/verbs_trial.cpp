// The verbs that try an edit without making it: trace shows its operations on the flash, cut stops it in the middle,
// torture stops it everywhere and looks at what is left.
#include "tool/error.h"
#include "tool/flash_places.h"
#include "tool/interrupt.h"
#include "tool/output.h"
#include "tool/trial.h"
#include "yfs/dfs.h"
#include "yfs/efs.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <utility>

namespace yfs::tool {

namespace {

image_ref ref_of(const session& set, image_kind kind)
{
    return set.image(kind) ? set.image(kind)->ref : image_ref{};
}

// The images as they are once the edit is made, to tell what an address is for.
struct pictures {
    pictures(const session& set, const image_pair& images) : afs(inspect::inspect_image(images.afs))
    {
        if (!images.efs.empty())
            efs = inspect::inspect_efs(images.efs, plan_for(ref_of(set, image_kind::efs), images.efs));
    }
    std::string place(const flash_operation& at) const
    {
        return at.medium == image_kind::afs ? place_text(afs, at.address) : place_text(efs, at.address);
    }
    inspect::picture afs;
    inspect::efs_picture efs;
};

struct totals {
    explicit totals(const std::vector<flash_operation>& operations)
    {
        for (const flash_operation& each : operations) {
            ++(each.erase ? erases : programs);
            (each.erase ? erased : programmed) += each.length;
        }
    }
    std::uint64_t programs = 0, programmed = 0, erases = 0, erased = 0;
};

std::string totals_text(const totals& sum)
{
    return fmt::format("{} with {}, {} of {}", count_of(sum.programs, "program"), bytes_text(sum.programmed),
                       count_of(sum.erases, "erase"), bytes_text(sum.erased));
}

json document_of(const trial& tried, const pictures& places)
{
    json::array list;
    for (const flash_operation& each : tried.operations) {
        json::object one = {{"image", to_string(each.medium)},
                            {"operation", each.erase ? "erase" : "program"},
                            {"address", each.address},
                            {"length", each.length},
                            {"place", places.place(each)}};
        if (!each.erase) one.emplace_back("data", to_hex(each.data));
        list.emplace_back(std::move(one));
    }
    const totals sum(tried.operations);
    return json::object{{"schema", "yfs.trace/1"},      {"edit", tried.what},
                        {"programs", sum.programs},     {"bytes_programmed", sum.programmed},
                        {"erases", sum.erases},         {"bytes_erased", sum.erased},
                        {"operations", std::move(list)}};
}

std::string text_of(const trial& tried, const pictures& places)
{
    using enum text_table::align;
    text_table out({right, left, left, right, right, left, left});
    for (std::size_t i = 0; i < tried.operations.size(); ++i) {
        constexpr std::size_t shown = 12;
        const flash_operation& each = tried.operations[i];
        const std::span data = std::span(each.data).first(std::min(shown, each.data.size()));
        out.row({fmt::format("{}", i + 1), std::string(to_string(each.medium)), each.erase ? "erase" : "program",
                 fmt::format("0x{:x}", each.address), fmt::format("{}", each.length), places.place(each),
                 to_hex(data) + (data.size() < each.data.size() ? "..." : "")});
    }
    return out.text();
}

} // namespace

exit_status trace(const options& given)
{
    session set(given);
    const trial tried = try_edit(set, given);
    const pictures places(set, tried.after);
    print(given.json ? document_of(tried, places).dump() : text_of(tried, places));
    note(fmt::format("{}; {}; nothing was saved", tried.what, totals_text(totals(tried.operations))));
    return exit_status::done;
}

exit_status cut(const options& given)
{
    if (given.change.output.empty())
        throw failure(fault::usage, "an image cut short doesn't take the whole one's place", "name a place with -o");
    session set(given);
    const trial tried = try_edit(set, given);
    if (given.after > tried.operations.size()) {
        throw failure(fault::usage, fmt::format("the edit has {}", count_of(tried.operations.size(), "operation")),
                      "'yfs trace' lists them");
    }
    image_pair images = tried.before;
    for (std::size_t i = 0; i < given.after; ++i) tried.operations[i].apply(images.of(tried.operations[i].medium));
    if (given.after < tried.operations.size() && given.torn_bytes != 0) {
        const flash_operation& torn = tried.operations[given.after];
        if (given.torn_bytes > torn.length)
            throw failure(fault::usage, fmt::format("the next operation has {}", bytes_text(torn.length)),
                          "'yfs trace' lists them");
        torn.apply(images.of(torn.medium), given.torn_bytes);
    }
    for (const image_kind kind : {image_kind::afs, image_kind::efs}) {
        if (auto& image = set.image(kind)) image->now = images.of(kind);
    }
    changes done(set, given.change);
    done.touch_all();
    done.accept_faults();
    for (const flash_operation& operation : tried.operations) done.mean(operation.medium);
    done.save(
        fmt::format("{}, cut after {} of {}", tried.what, given.after, count_of(tried.operations.size(), "operation")));
    return exit_status::done;
}

// ---- torture ----

namespace {

using file_map = std::map<std::uint32_t, bytes>;

// Mounts a copy and reads all files, through the library and past it. Nothing if either can't.
std::optional<file_map> recovered_afs(bytes image)
{
    if (dfs_init(image.data(), low32(image.size())) != 0) return {};
    const inspect::picture picture = inspect::inspect_image(image);
    if (picture.worst() == inspect::severity::fault) return {};
    file_map files;
    for (std::uint32_t file = 0; file < picture.file.size(); ++file) {
        auto contents = inspect::read_file(picture, file);
        if (!contents) continue;
        bytes read(contents->size());
        std::uint32_t length = low32(read.size());
        if (!read.empty() && (dfs_read(file, 0, &length, read.data()) != 0 || read != *contents)) return {};
        files.emplace(file, std::move(read));
    }
    return files;
}

std::optional<file_map> recovered_efs(bytes image)
{
    if (EFS_init_tools(image.data()) != 0) return {};
    const inspect::efs_picture picture = inspect::inspect_efs(image, inspect::loaded_efs_plan());
    if (picture.worst() == inspect::severity::fault) return {};
    file_map files;
    for (std::uint32_t file = 0; file < picture.files.size(); ++file) {
        auto contents = inspect::read_file(picture, file);
        if (!contents) continue;
        bytes read(contents->size());
        std::uint32_t length = low32(read.size());
        if (!read.empty() && (EFS_read(file, 0, &length, read.data()) != 0 || read != *contents)) return {};
        files.emplace(file, std::move(read));
    }
    return files;
}

std::optional<file_map> recovered(const bytes& image, image_kind kind)
{
    return kind == image_kind::afs ? recovered_afs(image) : recovered_efs(image);
}

// The files of one image before and after the edit: what a cut may leave of each.
class allowed_states {
public:
    void allow(const file_map& files)
    {
        for (const auto& [file, contents] : files) states_[file].push_back(contents);
        maps_.push_back(files);
    }
    // The first file that is none of these; nothing if all are.
    std::optional<std::uint32_t> stranger(const file_map& files) const
    {
        for (const auto& [file, contents] : files) {
            const auto known = states_.find(file);
            if (known == states_.end() ||
                std::find(known->second.begin(), known->second.end(), contents) == known->second.end())
                return file;
        }
        for (const auto& [file, states] : states_) {
            const bool may_be_absent =
                std::any_of(maps_.begin(), maps_.end(), [f = file](const file_map& m) { return !m.contains(f); });
            if (!files.contains(file) && !may_be_absent) return file;
        }
        return {};
    }

private:
    std::map<std::uint32_t, std::vector<bytes>> states_;
    std::vector<file_map> maps_;
};

class torture_run {
public:
    torture_run(const trial& tried, image_kind kind) : tried_(tried), kind_(kind)
    {
        for (const image_pair* images : {&tried.before, &tried.after}) {
            if (const auto files = recovered(images->of(kind), kind)) allowed_.allow(*files);
        }
    }

    void run()
    {
        bytes image = tried_.before.of(kind_);
        std::size_t number = 0;
        for (const flash_operation& operation : tried_.operations) {
            ++number;
            if (operation.medium != kind_) continue;
            for (std::uint32_t count = 0; count < operation.length; count += step_of(operation)) {
                stop_if_interrupted();
                bytes torn = image;
                operation.apply(torn, count);
                look(torn, number, count);
            }
            operation.apply(image);
            show_progress(fmt::format("{}: operation {} of {}", to_string(kind_), number, tried_.operations.size()));
        }
        look(image, number, 0);
    }

    std::uint64_t cuts = 0;
    std::vector<std::string> losses;

private:
    // An erase ends part way in few states that differ; a program may end behind any byte.
    static std::uint32_t step_of(const flash_operation& operation) { return operation.erase ? 1024 : 1; }
    void look(const bytes& image, std::size_t operation, std::uint32_t count)
    {
        ++cuts;
        const auto files = recovered(image, kind_);
        const std::string where =
            fmt::format("{}: operation {} cut after {}", to_string(kind_), operation, bytes_text(count));
        if (!files)
            losses.push_back(where + ": what is left doesn't mount, or fails 'check'");
        else if (const auto file = allowed_.stranger(*files))
            losses.push_back(fmt::format("{}: {}#{} is neither old nor new", where, to_string(kind_), *file));
    }

    const trial& tried_;
    image_kind kind_;
    allowed_states allowed_;
};

} // namespace

exit_status torture(const options& given)
{
    session set(given);
    const trial tried = try_edit(set, given);
    std::uint64_t cuts = 0;
    json::array lost;
    std::string text;
    for (const image_kind kind : {image_kind::afs, image_kind::efs}) {
        if (tried.before.of(kind) == tried.after.of(kind)) continue;
        torture_run run(tried, kind);
        run.run();
        cuts += run.cuts;
        for (const std::string& loss : run.losses) {
            text += loss + "\n";
            lost.emplace_back(loss);
        }
    }
    end_progress();
    const std::uint64_t count = lost.size();
    text += fmt::format("{}: {} operations, {} cuts, {} lost\n", tried.what, tried.operations.size(), cuts, count);
    print(given.json ? json(json::object{{"schema", "yfs.torture/1"},
                                         {"edit", tried.what},
                                         {"operations", std::uint64_t{tried.operations.size()}},
                                         {"cuts", cuts},
                                         {"lost", std::move(lost)}})
                           .dump()
                     : text);
    return count == 0 ? exit_status::done : exit_status::damaged;
}

} // namespace yfs::tool
