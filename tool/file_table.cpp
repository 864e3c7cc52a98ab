#include "tool/file_table.h"

#include "tool/error.h"
#include "yfs/vfs.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <utility>

namespace yfs::tool {

namespace {

constexpr std::string_view home = "/home/";
// Of a DFS file number.
constexpr std::uint32_t index_mask = 0x7FF;
constexpr std::uint32_t selector_shift = 11;

file_system file_system_of(std::uint32_t number)
{
    switch ((number >> selector_shift) & 3U) {
    case 0:
        return file_system::afs;
    case 2:
        return file_system::efs;
    default:
        return file_system::none;
    }
}

std::string name_of(const ftbl_file_entry_t& entry)
{
    return {entry.name, ::strnlen(entry.name, sizeof entry.name)};
}

void activate(const bytes& ftbl, std::uint32_t sku, const std::string& name)
{
    if (load_file_table(ftbl.data(), sku, static_cast<std::uint32_t>(ftbl.size())) == 0) return;
    throw failure(fault::table_damaged, fmt::format("{} isn't a file table: {} bytes", name, ftbl.size()),
                  "it begins with FTBL, holds at least 1024 bytes and at most 10 SKUs, and the lists of all SKUs "
                  "lie inside it");
}

std::vector<ftbl_sku_entry_t> read_skus(const bytes& ftbl)
{
    std::vector<ftbl_sku_entry_t> skus(load<ftbl_header_t>(ftbl.data()).sku_count);
    std::memcpy(skus.data(), ftbl.data() + sizeof(ftbl_header_t), skus.size() * sizeof(ftbl_sku_entry_t));
    return skus;
}

// Entries of one SKU. A list may end behind the buffer; those that lie wholly inside count.
std::size_t entries_inside(const ftbl_sku_entry_t& sku, std::size_t size)
{
    const std::uint32_t told = sku.num_files;
    if (told > INT32_MAX) return 0;
    return std::min<std::size_t>(told, (size - sku.table_offset) / sizeof(ftbl_file_entry_t));
}

std::string list_of(const std::vector<std::uint32_t>& numbers)
{
    return fmt::format("{}", fmt::join(numbers, ", "));
}

// "afs#17", as place() writes it.
std::optional<file_row> parse_place(std::string_view path)
{
    const bool on_efs = path.starts_with("efs#");
    if (!on_efs && !path.starts_with("afs#")) return {};
    std::uint16_t index = 0;
    const char* const end = path.data() + path.size();
    const auto [last, error] = std::from_chars(path.data() + 4, end, index);
    if (error != std::errc() || last != end || index > index_mask) return {};
    return row_of_place(on_efs ? file_system::efs : file_system::afs, index);
}

} // namespace

std::uint32_t file_row::tail() const
{
    if ((attributes & attribute_tail) == 0) return 0;
    return (attributes & attribute_long_tail) != 0 ? 56 : 40;
}

std::string file_row::place() const
{
    if (where == file_system::none) return "-";
    return fmt::format("{}#{}", where == file_system::afs ? "afs" : "efs", index);
}

file_row row_of_place(file_system where, std::uint16_t index)
{
    file_row row;
    row.where = where;
    row.index = index;
    row.number = index | (where == file_system::efs ? 2U << selector_shift : 0U);
    row.limit = no_limit;
    row.path = row.place();
    return row;
}

std::vector<std::uint32_t> skus_in(const bytes& ftbl, const std::string& name)
{
    activate(ftbl, 0, name);
    std::vector<std::uint32_t> skus;
    for (const ftbl_sku_entry_t& sku : read_skus(ftbl)) skus.push_back(sku.sku);
    return skus;
}

file_table::file_table(const set_file& set, const bytes& ftbl) : origin_(set.locate(set.ftbl).string())
{
    activate(ftbl, set.sku, origin_);
    const std::vector<ftbl_sku_entry_t> skus = read_skus(ftbl);
    for (const ftbl_sku_entry_t& sku : skus) skus_.push_back(sku.sku);
    const auto own = std::find(skus_.begin(), skus_.end(), set.sku);
    if (own == skus_.end()) {
        throw failure(fault::set_invalid, fmt::format("{}: SKU {} isn't in {}", set.path.string(), set.sku, set.ftbl),
                      skus_.empty() ? "that table has no SKU at all" : fmt::format("it has {}", list_of(skus_)));
    }

    const std::size_t count = entries_inside(skus[static_cast<std::size_t>(own - skus_.begin())], ftbl.size());
    for (std::size_t i = 0; i < count; ++i) {
        const ftbl_file_entry_t& entry = g_table_buf[i];
        file_row row;
        row.path = name_of(entry);
        by_fileno_.emplace(entry.fileno, row.path);
        if (get_file_entry_by_file_name(row.path.c_str()) != &entry) continue; // an earlier one has this name
        pathToFileNumber(row.path.c_str(), &row.number);
        row.fileno = entry.fileno;
        row.limit = entry.maxSize;
        row.attributes = entry.attributes;
        row.where = file_system_of(row.number);
        row.index = static_cast<std::uint16_t>(row.number & index_mask);
        rows_.push_back(std::move(row));
    }
    std::sort(rows_.begin(), rows_.end(), [](const file_row& a, const file_row& b) { return a.path < b.path; });
    for (std::size_t i = 0; i < rows_.size(); ++i) by_path_.emplace(rows_[i].path, i);
}

const file_row* file_table::by_fileno(std::uint32_t fileno) const
{
    const auto found = by_fileno_.find(fileno);
    return found == by_fileno_.end() ? nullptr : &rows_[by_path_.at(found->second)];
}

const file_row* file_table::find(std::string_view path) const
{
    auto found = by_path_.find(std::string(path));
    if (found == by_path_.end() && !path.starts_with(home))
        found = by_path_.find(std::string(home) + std::string(path));
    return found == by_path_.end() ? nullptr : &rows_[found->second];
}

file_row file_table::resolve(const std::string& path) const
{
    if (const file_row* row = find(path)) return *row;
    if (const auto nameless = parse_place(path)) {
        const auto same = [&](const file_row& row) {
            return row.where == nameless->where && row.index == nameless->index;
        };
        const auto named = std::find_if(rows_.begin(), rows_.end(), same);
        return named == rows_.end() ? *nameless : *named; // a name brings its limit and its tail along
    }
    if (origin_.empty()) {
        throw failure(fault::unknown_path, fmt::format("{}: no file table, so no names", printable(path)),
                      "afs#17 names a file by its number; a set file (--set) or --ftbl FILE --sku N brings the names");
    }
    throw failure(fault::unknown_path, fmt::format("{} has no {} for this SKU", origin_, printable(path)),
                  "'yfs ls' and 'yfs nvar ls' list the paths there are; /home/ in front may be left out");
}

} // namespace yfs::tool
