// sample: a complete set of an invented device, the same bytes at every run. Its volume has a past: files written,
// rewritten, cut, extended and removed until erase units were reclaimed many times over.
#include "tool/json.h"
#include "tool/output.h"
#include "tool/sample_content.h"
#include "tool/tables.h"
#include "tool/verbs.h"
#include "tool/volume.h"
#include "yfs/cfgtable.h"
#include "yfs/dfs.h"
#include "yfs/make_volume.h"
#include "yfs/vfs.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <map>

namespace yfs::tool {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t own_sku = 0; // of sample_skus: the one that the set file names
constexpr std::uint32_t volume_bytes = 0x20000;
constexpr std::uint32_t volume_files = 128;

[[noreturn]] void give_up(std::string_view what, std::uint32_t status)
{
    throw failure(fault::library, fmt::format("the sample can't be made: {} answers {}", what, status));
}

template <flash_record R>
void append_record(bytes& to, const R& record)
{
    to.resize(to.size() + sizeof record);
    store(to.data() + to.size() - sizeof record, record);
}

// The file table: header, a row for each SKU, room for the record that tells the layout of an EFS, the files.
bytes make_file_table()
{
    constexpr std::uint32_t files_at = 1024;
    constexpr std::string_view magic = "FTBL";
    bytes out(files_at);
    ftbl_header_t header{};
    std::memcpy(&header.magic, magic.data(), sizeof header.magic);
    header.sku_count = low32(sample_skus.size());
    store(out.data(), header);

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
            entry.fs_selector = 1;
            entry.maxSize = file.limit;
            append_record(out, entry);
            ++count;
        }
        row.num_files = count;
        store(out.data() + sizeof header + sku * sizeof row, row);
    }
    return out;
}

// A cfg table of one column of the sample, its payloads packed in the order of the records.
bytes make_table(sample_bytes sample_file::*column)
{
    bytes records;
    bytes payloads;
    std::uint32_t count = 0;
    for (const sample_file& file : sample_files()) count += (file.*column).what != sample_bytes::kind::none;
    const std::size_t payloads_at = sizeof(le32) + count * sizeof(_cfg_file_entry_t);
    for (const sample_file& file : sample_files()) {
        const sample_bytes& value = file.*column;
        if (value.what == sample_bytes::kind::none) continue;
        const bytes payload = value.make(file.fileno);
        _cfg_file_entry_t record{};
        record.fileno = file.fileno;
        record.offset = low32(payloads_at + payloads.size());
        record.size = low16(payload.size());
        record.flags = value.what == sample_bytes::kind::unavailable ? 0 : 1;
        append_record(records, record);
        append(payloads, payload);
    }
    bytes out;
    append_record(out, le32(count));
    append(out, records);
    append(out, payloads);
    return out;
}

bytes make_zonc_partition()
{
    constexpr std::uint8_t header[16] = {'Z', 'O', 'N', 'C', 1, 0, 0, 0, 0, 0, 0, 0, 0x5A, 0xA5, 0x17, 0};
    return make_partition(header, make_table(&sample_file::zonc));
}

// What the volume holds of a file: its value and, with attribute bit 0, the tail behind it.
bytes stored_contents(const sample_file& file)
{
    bytes contents = file.live.make(file.fileno);
    if ((file.attributes & attribute_tail) != 0) {
        const sample_bytes tail{
            sample_bytes::kind::noise, {}, (file.attributes & attribute_long_tail) != 0 ? 56U : 40U};
        const bytes made = tail.make(~file.fileno);
        append(contents, made);
    }
    return contents;
}

void replace(std::uint32_t number, const bytes& contents)
{
    constexpr std::uint32_t ends_behind = 1;
    const auto size = static_cast<std::uint32_t>(contents.size());
    if (const auto status = dfs_write(number, 0, size, contents.data(), ends_behind)) give_up("dfs_write", status);
}

// One step of the volume's past: a file rewritten, changed in the middle, grown at its end, or removed.
void age(std::uint32_t number, std::uint32_t longest, sample_random& random)
{
    const std::uint32_t size = 1 + random.below(longest);
    const bytes contents =
        sample_bytes{sample_bytes::kind::noise, {}, size}.make(static_cast<std::uint32_t>(random.next()));
    std::uint32_t held = 0;
    const bool exists = dfs_getsize(number, &held) == 0;
    const std::uint32_t step = exists ? random.below(8) : 0;
    if (step < 5) {
        replace(number, contents);
    } else if (step < 7) {
        const std::uint32_t offset = step == 5 ? random.below(held + 1) : held;
        const std::uint32_t length = std::min(size, longest - std::min(offset, longest - 1));
        if (const auto status = dfs_write(number, offset, length, contents.data(), 0)) give_up("dfs_write", status);
    } else if (const auto status = dfs_delete_file(number)) {
        give_up("dfs_delete_file", status);
    }
}

bytes make_aged_volume()
{
    constexpr int steps = 600;
    constexpr std::uint32_t longest = 3000;
    bytes image(volume_bytes);
    if (const auto status = yfs_make_volume(image.data(), volume_bytes, volume_files))
        give_up("yfs_make_volume", status);
    if (const auto status = dfs_init(image.data(), volume_bytes)) give_up("dfs_init", status);

    std::vector<const sample_file*> stored;
    for (const sample_file& file : sample_files()) {
        const bool in_volume = file.index[own_sku] != not_in_sku && file.live.what != sample_bytes::kind::none;
        if (in_volume) stored.push_back(&file);
    }
    sample_random random(sample_skus[own_sku]);
    for (int i = 0; i < steps; ++i) age(stored[random.below(low32(stored.size()))]->index[own_sku], longest, random);
    for (const sample_file* file : stored) replace(file->index[own_sku], stored_contents(*file));
    return image;
}

} // namespace

exit_status make_sample(const options& given)
{
    const json::object members = {{"sku", sample_skus[own_sku]},
                                  {"ftbl", "ftbl.bin"},
                                  {"velor", "velor.cfg"},
                                  {"zonc", "zonc.bin"},
                                  {"yfs", "yfs.img"}};
    const std::string set_text = json(members).dump();
    const std::pair<const char*, bytes> files[] = {
        {"ftbl.bin", make_file_table()},
        {"velor.cfg", make_table(&sample_file::velor)},
        {"zonc.bin", make_zonc_partition()},
        {"yfs.img", make_aged_volume()},
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
