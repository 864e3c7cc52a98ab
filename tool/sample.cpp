// sample: a complete set of an invented device, the same bytes at every run.
#include "efs/layout.h"
#include "tool/error.h"
#include "tool/file_table.h"
#include "tool/files.h"
#include "tool/json.h"
#include "tool/output.h"
#include "tool/sample_content.h"
#include "tool/sample_images.h"
#include "tool/tables.h"
#include "tool/verbs.h"
#include "yfs/cfgtable.h"
#include "yfs/vfs.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

namespace yfs::tool {

namespace fs = std::filesystem;

namespace {

template <flash_record R>
void append_record(bytes& to, const R& record)
{
    to.resize(to.size() + sizeof record);
    store(to.data() + to.size() - sizeof record, record);
}

// The layout of the EFS: a record for each SKU, and the list of files that they share. Lies at `begin` of the file
// table.
bytes make_efs_layout(std::uint32_t begin)
{
    efs::efst_header_t header{};
    header.magic = efs::efst_magic;
    header.record_count = low32(sample_skus.size());
    bytes out;
    append_record(out, header);

    bytes list;
    std::uint32_t count = 0;
    for (const sample_file& file : sample_files()) {
        if (!file.on_efs) continue;
        efs::efst_file_record_t record{};
        record.file_index = file.index[own_sku];
        record.first_block = file.on_efs->first_block;
        record.offset = file.on_efs->offset;
        record.max_size = low16(file.limit);
        append_record(list, record);
        ++count;
    }
    for (const std::uint32_t sku : sample_skus) {
        efs::efst_sku_record_t record{};
        record.sku_id = sku;
        record.files_offset = low32(begin + sizeof header + sample_skus.size() * sizeof record);
        record.files_count = count;
        record.files_size = low32(list.size());
        record.bm_num = sample_efs_geometry.bm_num;
        record.valid_block_num = sample_efs_geometry.valid_block_num;
        record.non_valid_block_num = sample_efs_geometry.non_valid_block_num;
        record.files_num = sample_efs_entries;
        record.wear_leveling_threshold = sample_efs_threshold;
        append_record(out, record);
    }
    append(out, list);
    return out;
}

// The file table: header, a row for each SKU, the layout of the EFS, the files.
bytes make_file_table()
{
    constexpr std::uint32_t files_at = 1024;
    constexpr std::string_view magic = "FTBL";
    constexpr std::uint32_t layout_at = sizeof(ftbl_header_t) + sample_skus.size() * sizeof(ftbl_sku_entry_t);
    bytes out(layout_at);
    ftbl_header_t header{};
    std::memcpy(&header.magic, magic.data(), sizeof header.magic);
    header.sku_count = low32(sample_skus.size());
    store(out.data(), header);
    append(out, make_efs_layout(layout_at));
    if (out.size() > files_at) throw failure(fault::library, "the sample's layout of the EFS outgrows its room");
    out.resize(files_at);

    for (std::size_t sku = 0; sku < sample_skus.size(); ++sku) {
        ftbl_sku_entry_t row{};
        row.sku = sample_skus[sku];
        row.table_offset = low32(out.size());
        std::uint32_t count = 0;
        for (const sample_file& file : sample_files()) {
            if (file.index[sku] == not_in_sku) continue;
            ftbl_file_entry_t entry{};
            std::copy(file.path.begin(), file.path.end(), entry.name);
            entry.fileno = file.fileno;
            entry.attributes = file.attributes;
            entry.file_index = file.index[sku];
            entry.fs_selector = file.on_efs ? 2 : 1;
            entry.maxSize = file.limit;
            append_record(out, entry);
            ++count;
        }
        row.num_files = count;
        store(out.data() + sizeof header + sku * sizeof row, row);
    }
    return out;
}

// A cfg table of one column of the sample.
bytes make_table(sample_bytes sample_file::*column)
{
    std::vector<bytes> payloads; // reserved, since the records point into it
    std::vector<cfg_record> records;
    payloads.reserve(sample_files().size());
    for (const sample_file& file : sample_files()) {
        const sample_bytes& value = file.*column;
        if (value.what == sample_bytes::kind::none) continue;
        const bytes& payload = payloads.emplace_back(value.make(file.fileno));
        cfg_record record;
        record.fileno = file.fileno;
        record.flags = value.what == sample_bytes::kind::unavailable ? 0 : 1;
        record.payload = payload;
        records.push_back(record);
    }
    return make_cfg_table(records);
}

bytes make_zonc_partition()
{
    constexpr std::uint8_t header[16] = {'Z', 'O', 'N', 'C', 1, 0, 0, 0, 0, 0, 0, 0, 0x5A, 0xA5, 0x17, 0};
    return make_partition(header, make_table(&sample_file::zonc));
}

} // namespace

exit_status make_sample(const options& given)
{
    const json::object members = {{"sku", sample_skus[own_sku]}, {"ftbl", "ftbl.bin"}, {"velor", "velor.cfg"},
                                  {"zonc", "zonc.bin"},          {"yfs", "yfs.img"},   {"efs", "efs.img"}};
    const std::string set_text = json(members).dump();
    const bytes ftbl = make_file_table();
    const std::pair<const char*, bytes> files[] = {
        {"ftbl.bin", ftbl},
        {"velor.cfg", make_table(&sample_file::velor)},
        {"zonc.bin", make_zonc_partition()},
        {"yfs.img", make_sample_volume()},
        {"efs.img", make_sample_efs(ftbl)},
        {set_file_name, {set_text.begin(), set_text.end()}},
    };

    const fs::path folder = given.folder;
    std::error_code error;
    fs::create_directories(folder, error);
    if (!fs::is_directory(folder)) {
        throw failure(fault::save_failed, fmt::format("can't make the folder {}: {}", given.folder,
                                                      error ? error.message() : "a file of that name is there"));
    }
    save_list list;
    for (const auto& [name, contents] : files) {
        if (fs::exists(fs::symlink_status(folder / name))) {
            throw failure(fault::would_overwrite, fmt::format("{} exists already", (folder / name).string()),
                          "name a folder that holds no set yet");
        }
        list.add(folder / name, contents);
    }
    list.commit();
    note(fmt::format("made a set for SKU {} in {}: {}", sample_skus[own_sku], given.folder, list.names()));
    return exit_status::done;
}

} // namespace yfs::tool
