// info: what belongs to a set, and what state it is in. It tells all it can: what is damaged becomes an error of that
// part and decides the exit status.
#include "tool/output.h"
#include "tool/tables.h"
#include "tool/verbs.h"
#include "tool/volume.h"
#include "yfs/efs.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace yfs::tool {

namespace {

// One part of the set, as a member of the document and as lines of text.
class part {
public:
    // A part that the set doesn't have: null in the document, "-" in the text.
    explicit part(std::string key) : key_(std::move(key)) {}
    part(std::string key, const working_copy& file) : key_(std::move(key)), present_(true)
    {
        add("path", file.name());
        add("bytes", std::uint64_t{file.before.size()});
        line(fmt::format("{}, {}", file.name(), bytes_text(file.before.size())));
    }
    part(std::string key, const std::optional<working_copy>& file)
        : part(file ? part(std::move(key), *file) : part(std::move(key)))
    {
    }

    void add(const char* key, json value) { members_.emplace_back(key, std::move(value)); }
    void line(std::string text) { text_.push_back(std::move(text)); }

    // Runs `look`, which may fail on damaged data; true if it didn't.
    template <typename Look>
    bool attempt(const Look& look)
    {
        if (!present_) return false;
        try {
            look();
            return true;
        } catch (const failure& fault) {
            print_error(describe(fault));
            add("error", id_of(fault.which()));
            line(fmt::format("error[{}]", id_of(fault.which())));
            status_ = status_of(fault.which());
            return false;
        }
    }

    const std::string& key() const { return key_; }
    exit_status status() const { return status_; }
    json document() const { return present_ ? json(members_) : json(); }
    void print_to(text_table& out) const
    {
        if (!present_) out.row({key_, "-"});
        for (std::size_t i = 0; i < text_.size(); ++i) out.row({i == 0 ? key_ : "", text_[i]});
    }

private:
    std::string key_;
    json::object members_;
    std::vector<std::string> text_;
    bool present_ = false;
    exit_status status_ = exit_status::done;
};

void add_file_table(part& out, const session& set)
{
    json::array skus;
    for (const std::uint32_t sku : set.table.skus()) skus.push_back(sku);
    const std::size_t files = set.table.rows().size();
    out.add("skus", std::move(skus));
    out.add("files", std::uint64_t{files});
    out.line(fmt::format("{} for SKU {}; it has the SKUs {}", count_of(files, "file"), set.set.sku,
                         fmt::join(set.table.skus(), ", ")));
}

void add_records(part& out, const file_table& table, const std::vector<cfg_record>& records)
{
    const auto count_if = [&](const auto& test) {
        return static_cast<std::uint64_t>(std::count_if(records.begin(), records.end(), test));
    };
    const std::uint64_t available = count_if([](const cfg_record& record) { return record.available; });
    const std::uint64_t unknown =
        count_if([&](const cfg_record& record) { return table.by_fileno(record.fileno) == nullptr; });
    out.add("records", std::uint64_t{records.size()});
    out.add("available", available);
    out.add("unknown", unknown);
    out.line(fmt::format("{}: {} available, {} unknown to the file table", count_of(records.size(), "record"),
                         available, unknown));
}

std::uint64_t files_on(const std::vector<stored_file>& files, file_system where)
{
    return static_cast<std::uint64_t>(
        std::count_if(files.begin(), files.end(), [&](const stored_file& file) { return file.row.where == where; }));
}

void add_volume(part& out, const session& set, const volume& images, std::uint64_t files)
{
    const volume_space space = images.space();
    // Which file tells is up to the file table.
    const bool told = !set.set.ftbl.empty(), deployed = told && images.deployed();
    out.add("deployed", told ? json(deployed) : json());
    out.add("files", files);
    out.add("file_heads", space.file_heads);
    out.add("chunks", space.chunks);
    out.add("chunks_used", space.used);
    out.add("chunks_free", space.free());
    out.add("chunks_free_at_once", space.at_once);
    out.add("data_units", space.data_units);
    out.add("log_units", space.log_units);
    out.add("lowest_erase_count", space.lowest_erase_count);
    out.add("highest_erase_count", space.highest_erase_count);
    if (told)
        out.line(deployed ? std::string("deployed: the files hold the live values")
                          : fmt::format("not deployed: {} is empty or absent", deploy_path));
    out.line(fmt::format("{}, numbers 0 to {}", count_of(files, "file"), space.file_heads - 1));
    out.line(fmt::format("{} of 64 bytes: {} used, {} free ({} at once, {} after a reclaim)",
                         count_of(space.chunks, "chunk"), space.used, space.free(), space.at_once,
                         space.free() - space.at_once));
    out.line(fmt::format("{} of 8192 bytes: {} data, {} log, 1 spare; erased {} times",
                         count_of(space.data_units + space.log_units + 1, "erase unit"), space.data_units,
                         space.log_units,
                         space.lowest_erase_count == space.highest_erase_count
                             ? fmt::format("{}", space.lowest_erase_count)
                             : fmt::format("{} to {}", space.lowest_erase_count, space.highest_erase_count)));
}

void add_efs(part& out, std::uint64_t files)
{
    out.add("files", files);
    out.add("file_entries", g_efs_files_num);
    out.add("logical_blocks", g_efs_valid_block_num);
    out.add("spare_blocks", g_efs_non_valid_block_num);
    out.line(fmt::format("{}, {} in the layout", count_of(files, "file"), count_of(g_efs_files_num, "entry slot")));
    out.line(fmt::format("{} of 4096 bytes: {} data, {} spare, {} block maps",
                         count_of(g_efs_bm_num + g_efs_valid_block_num + g_efs_non_valid_block_num, "block"),
                         g_efs_valid_block_num, g_efs_non_valid_block_num, g_efs_bm_num));
}

} // namespace

exit_status info(const options& given)
{
    session set(given);
    volume images(set);

    // Images alone have no tables, or just the file table that was named.
    const auto table_part = [](const char* key, const working_copy& file) {
        return file.name().empty() ? part(key) : part(key, file);
    };
    part ftbl = table_part("ftbl", set.ftbl);
    ftbl.attempt([&] { add_file_table(ftbl, set); });
    part velor = table_part("velor", set.velor);
    velor.attempt([&] { add_records(velor, set.table, read_cfg_records(set.velor.now, set.velor.name())); });
    part zonc("zonc", set.zonc);
    zonc.attempt([&] {
        if (set.zonc->now.empty()) return zonc.line("empty: no value goes before the defaults");
        const auto table = table_in_partition(set.zonc->now, set.zonc->name());
        add_records(zonc, set.table, read_cfg_records(table, set.zonc->name()));
    });
    part yfs("yfs", set.yfs);
    part efs("efs", set.efs);
    const bool with_afs = yfs.attempt([&] { images.mount_afs(); });
    const bool with_efs = efs.attempt([&] { images.mount_efs(); });
    const std::vector<stored_file> files = images.files();
    if (with_afs) yfs.attempt([&] { add_volume(yfs, set, images, files_on(files, file_system::afs)); });
    if (with_efs) add_efs(efs, files_on(files, file_system::efs));

    exit_status status = exit_status::done;
    json::object document = {{"schema", "yfs.info/1"}};
    document.emplace_back("set", set.bare() ? json() : json(set.set.path.string()));
    document.emplace_back("sku", set.set.ftbl.empty() ? json() : json(set.set.sku));
    text_table lines({text_table::align::left, text_table::align::left});
    lines.row({"set", set.bare() ? "-" : fmt::format("{}, SKU {}", set.set.path.string(), set.set.sku)});
    for (const part* each : {&ftbl, &velor, &zonc, &yfs, &efs}) {
        document.emplace_back(each->key(), each->document());
        each->print_to(lines);
        if (each->status() != exit_status::done) status = each->status();
    }
    print(given.json ? json(std::move(document)).dump() : lines.text());
    return status;
}

} // namespace yfs::tool
