#include "tool/host_run.h"

#include "tool/error.h"
#include "tool/tables.h"
#include "tool/volume.h"
#include "yfs/facade.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace yfs::tool {

namespace {

struct report {
    std::int32_t code = 0;
    std::string text;
    std::string message;
};

// The library hands its callback no word of who asked, and there is one run in a process: so there is one list.
std::vector<report> reports;

void take_report(ErrorLevel, ImageToolsErrorName code, const char* text, const char* message)
{
    const auto trimmed = [](std::string_view line) {
        while (line.ends_with(' ')) line.remove_suffix(1);
        while (line.starts_with(' ')) line.remove_prefix(1);
        return std::string(line);
    };
    reports.push_back({code, trimmed(text), trimmed(message)});
}

bool reported(std::int32_t code, std::string_view message = {})
{
    return std::any_of(reports.begin(), reports.end(), [&](const report& each) {
        return each.code == code && (message.empty() || each.message == message);
    });
}

std::string all_reports()
{
    if (reports.empty()) return "the library gives no reason";
    std::string text = "the library reports:";
    for (const report& each : reports) {
        text += fmt::format("\n  {:3} {}", each.code, each.text);
        if (!each.message.empty()) text += fmt::format(" {}{}", each.text.empty() ? "" : "- ", each.message);
    }
    return text;
}

// Standard output carries data alone, and the library prints a line of its own when a volume doesn't mount.
class quiet_output {
public:
    quiet_output() : kept_(::dup(STDOUT_FILENO))
    {
        const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (nowhere < 0) return;
        ::dup2(nowhere, STDOUT_FILENO);
        ::close(nowhere);
    }
    quiet_output(const quiet_output&) = delete;
    quiet_output& operator=(const quiet_output&) = delete;
    ~quiet_output()
    {
        std::fflush(stdout); // what the library left in the stream goes to nowhere too
        if (kept_ < 0) return;
        ::dup2(kept_, STDOUT_FILENO);
        ::close(kept_);
    }

private:
    int kept_;
};

_commonYZonTable buffer_of(bytes& contents)
{
    return {contents.data(), static_cast<std::uint32_t>(contents.size())};
}

_commonYZonTable buffer_of(std::optional<working_copy>& file)
{
    return file ? buffer_of(file->now) : _commonYZonTable{};
}

// The first value that the deployed volume should hold and doesn't, in a way that ends the take-over.
void explain_take_over(session& set)
{
    volume images(set);
    images.mount_afs();
    images.mount_efs();
    if (!images.deployed()) return;
    for (const cfg_record& record : read_cfg_records(set.velor.now, set.velor.name())) {
        const file_row* row = set.table.by_fileno(record.fileno);
        if (!record.available || row == nullptr || row->number == 0 || (row->attributes & attribute_unread) != 0)
            continue;
        const auto size = images.size_of(*row);
        if (!size) {
            throw failure(fault::volume_incomplete,
                          fmt::format("{} lists {} as available, but {} is deployed and doesn't hold it",
                                      set.velor.name(), printable(row->path),
                                      (row->where == file_system::efs ? set.efs : set.yfs)->name()),
                          fmt::format("store it with 'yfs put {} FILE'", printable(row->path)));
        }
        if (*size < row->tail()) {
            throw failure(fault::volume_incomplete,
                          fmt::format("{} is stored in {} bytes, and {} of them should be the tail behind its value",
                                      printable(row->path), *size, row->tail()),
                          fmt::format("store it whole with 'yfs put {} FILE'", printable(row->path)));
        }
        images.read(*row);
    }
}

// A start that is given nothing ends the run before it, if there is one, and begins none.
void release_run()
{
    const YZonInitParams nothing{};
    yeYfsYzonInit(&nothing, nullptr);
}

[[noreturn]] void explain_start(session& set)
{
    const std::string text = all_reports();
    // What a look at the files themselves can tell comes first: it knows names and numbers.
    read_cfg_records(set.velor.now, set.velor.name());
    if (set.zonc) read_cfg_records(table_in_partition(set.zonc->now, set.zonc->name()), set.zonc->name());
    if (!reported(yfs_error_create_fcs_handle)) explain_take_over(set);

    const bool table = reported(yfs_error_create_fcs_handle) || reported(yfs_error_process_fcs_entries);
    throw failure(table ? fault::table_damaged : fault::library,
                  fmt::format("the values of {} can't be loaded; {}", set.set.path.string(), text),
                  table ? "a table that names a file twice, or holds a value above 65523 bytes, is refused whole" : "");
}

[[noreturn]] void explain_end(const session& set)
{
    const std::string nothing_saved = "nothing was saved";
    if (set.yfs && reported(yfs_error_write_file, "Library status code: 28")) {
        throw failure(fault::volume_full,
                      fmt::format("the values don't fit into {}; {}", set.yfs->name(), nothing_saved),
                      "'yfs info' tells how full it is; remove files that are no longer needed with 'yfs rm'");
    }
    throw failure(fault::library,
                  fmt::format("the values can't be written back, {}; {}", nothing_saved, all_reports()));
}

} // namespace

host_run::host_run(session& set) : set_(set)
{
    if (set.bare()) set.refuse_bare("a value");
    YZonInitParams params{};
    params.velorCfg = buffer_of(set.velor.now);
    params.zonCfg = buffer_of(set.zonc);
    params.yfs = buffer_of(set.yfs);
    params.ftbl = buffer_of(set.ftbl.now);
    params.afsSkuId = set.set.sku;
    params.efs = buffer_of(set.efs);

    reports.clear();
    const bool started = [&] {
        const quiet_output quiet;
        return yeYfsYzonInit(&params, take_report) != 0;
    }();
    if (started) return;
    release_run();
    explain_start(set);
}

host_run::~host_run()
{
    release_run();
}

std::optional<value_in_force> host_run::get(const file_row& row) const
{
    // Asked first, since a path that isn't there would be reported.
    if (yeyfsCheckNvarExists(row.path.c_str(), FCS_CURRENT_VALUES) == 0) return {};
    void* data = nullptr;
    std::uint32_t size = 0;
    std::uint8_t modifiable = 0;
    value_in_force value;
    if (yeYfsNvarGet(row.path.c_str(), &data, &size, FCS_CURRENT_VALUES, &modifiable, &value.limit) == 0) return {};
    value.contents = {static_cast<const std::uint8_t*>(data), size};
    value.modifiable = modifiable != 0;
    return value;
}

void host_run::set(const file_row& row, const bytes& contents)
{
    void* data = nullptr;
    if (yeYfsNvarResize(row.path.c_str(), &data, static_cast<std::uint32_t>(contents.size())) == 0)
        throw failure(fault::library, fmt::format("{} can't be resized; {}", printable(row.path), all_reports()));
    std::copy(contents.begin(), contents.end(), static_cast<std::uint8_t*>(data));
}

bytes host_run::finish()
{
    reports.clear();
    if (yeYfsNvarTerm(1) == 0) explain_end(set_);
    void* table = nullptr;
    std::uint32_t size = 0;
    if (yeYfsGetBuildZonCfgFcsBuffer(&table, &size) == 0) explain_end(set_);
    const auto* const first = static_cast<const std::uint8_t*>(table);
    bytes built(first, first + size);

    const auto yfs = set_.yfs;
    const auto efs = set_.efs;
    if (yeYfsNvarTerm(0) == 0) explain_end(set_);
    if (yfs) set_.yfs->now = yfs->now;
    if (efs) set_.efs->now = efs->now;
    return built;
}

} // namespace yfs::tool
