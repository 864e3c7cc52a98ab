#include "tests/facade/host.h"

#include "yfs/dfs.h"
#include "yfs/make_volume.h"

#include <algorithm>
#include <cstring>

namespace yfs::test {

static reports s_reports;
void (*while_reporting)() = nullptr;

std::ostream& operator<<(std::ostream& out, const reported& report)
{
    return out << "{" << report.level << ", " << report.code << ", \"" << report.text << "\", \"" << report.message
               << "\"}";
}

void record(ErrorLevel level, ImageToolsErrorName code, const char* text, const char* message)
{
    s_reports.push_back({level, code, text, message});
    if (while_reporting != nullptr) while_reporting();
}

reports take_reports()
{
    return std::exchange(s_reports, {});
}

const std::vector<std::pair<int, std::string>>& raised_texts()
{
    static const std::vector<std::pair<int, std::string>> texts = {
        {0, ""},
        {1, "Initialize Error"},
        {38, "File not found."},
        {99, "Error writing to file."},
        {113, "Detected error in buffer parsing operation."},
        {320, "Invalid data pointer."},
        {321, "Out of memory."},
        {324, "FCS was not initialized."},
        {325, "Failed to process FCS entries."},
        {326, "Detected duplicate special file label."},
        {327, "FileEntry already being used by another FCS table."},
        {328, "Failed to create FCS handle."},
        {329, "Failed to get file from FCS."},
        {330, "Failed to get file file attributes from FCS."},
        {331, "Failed to add new file to FCS."},
        {333, "Failed to flush FCS buffer into memory."},
        {334, "Invalid FCS file"},
        {335, "Failed to terminate YFS library."},
        {336, "Failed to get file size from YFS."},
        {339, "Failed to initialize YFS."},
        {340, "Failed to initialize EFS."},
        {341, "Failed to load Velor.cfg table."},
        {343, "Failed to create the current values table."},
        {344, "Failed to generate the current values table."},
        {345, "Failed to create new Zon.cfg table."},
        {346, "NVAR Access error."},
        {398, "Corrupted Buffer Detected."},
        {401, "Failed to load ftbl file."},
    };
    return texts;
}

reported says(int code, const std::string& message)
{
    const auto& texts = raised_texts();
    const auto row = std::find_if(texts.begin(), texts.end(), [code](const auto& text) { return text.first == code; });
    return {4, code, row == texts.end() ? "?" : row->second, message};
}

reported says_status(int code, int status)
{
    return says(code, " Library status code: " + std::to_string(status));
}

void end_run()
{
    while_reporting = nullptr;
    if (yeFcsIsInitialized() != 0) yeYfsNvarTerm(0);
    take_reports();
}

static constexpr char deploy[] = "/home/qrd/deploy";

static void put_live_files(blob& image, const std::vector<table_file>& table, const std::vector<nvar>& files)
{
    ASSERT_EQ(yfs_make_volume(image.data(), volume_bytes, 1024), 0U);
    ASSERT_EQ(dfs_init(image.data(), volume_bytes), 0U);
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (!files[i].live) continue;
        const auto length = static_cast<std::uint32_t>(files[i].live->size());
        ASSERT_EQ(dfs_write(table[i].file_index, 0, length, files[i].live->data(), 1), 0U) << files[i].path;
    }
}

host::host(std::vector<nvar> files, volume_state volume)
{
    if (volume == volume_state::deployed) files.push_back({.path = deploy, .live = blob{1}});
    std::vector<table_file> table;
    std::vector<cfg_file> velor_files, zonc_files;
    for (const nvar& file : files) {
        const auto place = static_cast<std::uint16_t>(table.size());
        const std::uint32_t fileno = file.fileno.value_or(0x501U + place);
        const auto index = static_cast<std::uint16_t>(file.index != 0 ? file.index : 10 + place);
        table.push_back({file.path, fileno, file.attributes, index, file.selector, file.max_size});
        if (file.velor) velor_files.push_back({fileno, *file.velor, file.velor_flags});
        if (file.zonc) zonc_files.push_back({fileno, *file.zonc, file.zonc_flags});
    }
    velor = make_cfg_table(velor_files);
    zonc = make_partition(make_cfg_table(zonc_files));
    if (volume != volume_state::none) {
        yfs.resize(volume_bytes);
        put_live_files(yfs, table, files);
    }
    std::vector<table_file> known;
    for (std::size_t i = 0; i < files.size(); ++i)
        if (files[i].in_file_table) known.push_back(table[i]);
    ftbl = make_file_table({{1, {}}, {host_sku, known}});
}

YZonInitParams host::params()
{
    const auto table = [](blob& bytes) {
        return _commonYZonTable{bytes.empty() ? nullptr : bytes.data(), static_cast<std::uint32_t>(bytes.size())};
    };
    return {table(velor), table(zonc), table(yfs), table(ftbl), sku, table(efs)};
}

std::optional<blob> value_of(const std::string& path, FcsFileName table)
{
    void* data = nullptr;
    std::uint32_t size = 0;
    if (yeYfsNvarGet(path.c_str(), &data, &size, table, nullptr, nullptr) == 0) return std::nullopt;
    const auto* const bytes = static_cast<const std::uint8_t*>(data);
    return blob(bytes, bytes + size);
}

bool set_value(const std::string& path, const blob& value)
{
    void* data = nullptr;
    if (yeYfsNvarResize(path.c_str(), &data, static_cast<std::uint32_t>(value.size())) == 0) return false;
    if (!value.empty()) std::memcpy(data, value.data(), value.size());
    return true;
}

std::optional<blob> volume_file(std::uint32_t number)
{
    std::uint32_t size = 0;
    if (dfs_getsize(number, &size) != 0) return std::nullopt;
    blob contents(size);
    if (dfs_read(number, 0, &size, contents.data()) != 0 || size != contents.size()) return std::nullopt;
    return contents;
}

std::optional<blob> built_table()
{
    void* data = nullptr;
    std::uint32_t size = 0;
    if (yeYfsGetBuildZonCfgFcsBuffer(&data, &size) == 0) return std::nullopt;
    const auto* const bytes = static_cast<const std::uint8_t*>(data);
    return blob(bytes, bytes + size);
}

} // namespace yfs::test
