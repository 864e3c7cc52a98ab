// The table of files and the geometry, out of the record "EFST" that stands behind the file table. The record is
// checked whole before the first global changes.
#include "efs/efs_internal.h"
#include "frame/memory.h"
#include "yfs/efs.h"
#include "yfs/medium.h"

#include <algorithm>
#include <span>

efs_file_t* EFS_files = nullptr;

uint32_t g_efs_bm_num = 2;
uint32_t g_efs_valid_block_num = 7;
uint32_t g_efs_non_valid_block_num = 3;
uint32_t g_efs_files_num = 16;
uint32_t g_efs_wear_leveling_threshold = 100;
uint8_t g_efs_sku_id = 0;
uint8_t g_efs_layout_id = 0;
uint8_t g_efs_autogen_data_loaded = 0;

namespace yfs::efs {
namespace {

// A file record names its entry in 16 bits; a larger table could only hold entries that nothing fills.
constexpr std::uint32_t max_files = 0x10000;

// The table that the library made. EFS_files can point to a program's own, whose length g_efs_files_num alone tells.
struct made_table {
    efs_file_t* files;
    std::uint32_t count;
} made = {};

using bytes = std::span<const std::uint8_t>;

// Whether `count` records of `size` bytes lie in `table` from `at` on.
bool holds(bytes table, std::uint64_t at, std::uint64_t count, std::uint64_t size)
{
    return at <= table.size() && count <= (table.size() - at) / size;
}

template <flash_record R>
R record_at(bytes table, std::uint64_t at, std::uint64_t index = 0)
{
    return load<R>(table.data() + at + index * sizeof(R));
}

struct sku_search {
    std::uint32_t status;
    bool found;
    efst_sku_record_t record;
};

// The record of `sku`. ok with nothing found: the table carries no EFS data for it.
sku_search find_sku(bytes table, std::uint32_t sku)
{
    constexpr sku_search bad_table = {efs_status::not_ready, false, {}};
    constexpr sku_search nothing = {efs_status::ok, false, {}};

    if (!holds(table, 0, 1, sizeof(ftbl_lead_t))) return bad_table;
    const auto lead = record_at<ftbl_lead_t>(table, 0);
    if (lead.magic != ftbl_magic) return bad_table;

    const std::uint64_t efst_at = (std::uint64_t{lead.sku_count} + 1) * sizeof(ftbl_lead_t);
    if (efst_at > table.size()) return bad_table;
    if (!holds(table, efst_at, 1, sizeof(le32)) || record_at<le32>(table, efst_at) != efst_magic) return nothing;
    if (!holds(table, efst_at, 1, sizeof(efst_header_t))) return bad_table;

    const auto header = record_at<efst_header_t>(table, efst_at);
    const std::uint64_t records_at = efst_at + sizeof header;
    if (!holds(table, records_at, header.record_count, sizeof(efst_sku_record_t))) return bad_table;
    for (std::uint32_t i = 0; i < header.record_count; ++i) {
        const auto record = record_at<efst_sku_record_t>(table, records_at, i);
        if (record.sku_id == sku) return {efs_status::ok, true, record};
    }
    return nothing;
}

// ok | not_ready, no_memory: the record is refused before anything changes. A list that begins behind the buffer is no
// matter of this test: it is refused once the geometry is set.
std::uint32_t check_record(bytes table, const efst_sku_record_t& sku)
{
    const std::uint64_t list_bytes = std::uint64_t{sku.files_count} * sizeof(efst_file_record_t);
    if (list_bytes < sku.files_size) return efs_status::not_ready;
    if (sku.files_offset > table.size()) return efs_status::ok;
    if (!holds(table, sku.files_offset, sku.files_count, sizeof(efst_file_record_t))) return efs_status::not_ready;
    for (std::uint32_t i = 0; i < sku.files_count; ++i) {
        const auto file = record_at<efst_file_record_t>(table, sku.files_offset, i);
        if (file.file_index >= sku.files_num) return efs_status::not_ready;
    }
    return sku.files_num > max_files ? efs_status::no_memory : efs_status::ok;
}

void set_geometry(const efst_sku_record_t& sku)
{
    g_efs_bm_num = sku.bm_num;
    g_efs_valid_block_num = sku.valid_block_num;
    g_efs_non_valid_block_num = sku.non_valid_block_num;
    g_efs_files_num = sku.files_num;
    g_efs_wear_leveling_threshold = sku.wear_leveling_threshold;
    g_efs_layout_id = low8(sku.layout_id);
}

// The last record of an index wins.
void fill(efs_file_t* files, bytes table, const efst_sku_record_t& sku)
{
    for (std::uint32_t i = 0; i < sku.files_count; ++i) {
        const auto file = record_at<efst_file_record_t>(table, sku.files_offset, i);
        files[file.file_index] = {low8(file.first_block), file.offset, file.max_size, file_in_use, 0};
    }
}

} // namespace

std::uint32_t files_bound()
{
    if (EFS_files == nullptr) return 0;
    return EFS_files == made.files ? std::min(made.count, g_efs_files_num) : g_efs_files_num;
}

const efs_file_t* find_file(std::uint32_t file)
{
    if (file >= files_bound()) return nullptr;
    const efs_file_t* entry = EFS_files + file;
    return (entry->flags & file_in_use) != 0 ? entry : nullptr;
}

} // namespace yfs::efs

uint32_t load_autogen_data(const uint8_t* ftbl, uint32_t sku, uint32_t ftbl_size)
{
    using namespace yfs::efs;
    if (ftbl == nullptr) return efs_status::not_ready;
    const bytes table(ftbl, ftbl_size);

    const auto [status, found, record] = find_sku(table, sku);
    if (status != efs_status::ok || !found) return status;
    if (const auto refused = check_record(table, record); refused != efs_status::ok) return refused;

    set_geometry(record);
    if (record.files_offset > ftbl_size) return efs_status::not_ready;

    const std::uint32_t count = record.files_num;
    auto files = yfs::lt_allocate_zero<efs_file_t>(count != 0 ? count : 1);
    if (!files) return efs_status::no_memory;
    fill(files.get(), table, record);

    LtFreeMemory(made.files);
    made = {files.release(), count};
    EFS_files = made.files;
    g_efs_sku_id = yfs::low8(sku);
    g_efs_autogen_data_loaded = 1;
    return efs_status::ok;
}
