// A new image: every file of the table not existing, every data block erased once. The BM header goes last, so that an
// image is none until all else stands.
#include "efs/write_internal.h"
#include "yfs/efs.h"
#include "yfs/make_efs.h"
#include "yfs/medium.h"

#include <cstring>
#include <numeric>

namespace yfs::efs {

std::uint16_t no_file_crc(std::uint32_t logical_block)
{
    return low16(gCrc16_table[(logical_block ^ 0xE1U) & 0xFFU] ^ 0xF000U);
}

std::uint32_t fill_fresh_data_area(std::uint32_t logical_block, std::uint8_t* data_area)
{
    std::memset(data_area, erased_byte, data_area_bytes);
    const std::uint32_t files = files_bound();
    for (std::uint32_t file = 0; file < files; ++file) {
        const efs_file_t* const entry = find_file(file);
        if (entry == nullptr || entry->first_block != logical_block) continue;
        if (entry->offset > chunk_room) return efs_status::bad_offset;
        store(data_area + entry->offset, efs_chunk_header_t{no_file, no_file_crc(logical_block)});
    }
    return efs_status::ok;
}

namespace {

// Logical blocks on the first data blocks, in order, the spares behind them.
void fill_fresh_tables(efs_bme_t& bme, const geometry& geo)
{
    std::iota(bme.valid_table, bme.valid_table + geo.valid_block_num, std::uint8_t{0});
    std::iota(bme.non_valid_table, bme.non_valid_table + geo.non_valid_block_num, low8(geo.valid_block_num));
}

std::uint32_t erase_everything(const geometry& geo)
{
    for (std::uint32_t bm = 0; bm < geo.bm_num; ++bm) {
        const auto status = EFS_physical_erase(geometry::bm_at(bm), block_bytes);
        if (status != efs_status::ok) return status;
    }
    for (std::uint32_t block = 0; block < geo.data_blocks(); ++block) {
        if (const auto status = EFS_erase_data_block(block, 0); status != efs_status::ok) return status;
    }
    return efs_status::ok;
}

std::uint32_t write_logical_blocks(const geometry& geo)
{
    for (std::uint32_t block = 0; block < geo.valid_block_num; ++block) {
        auto status = fill_fresh_data_area(block, efs_ctx.page_buf);
        if (status == efs_status::ok) status = EFS_write_data_block(block, efs_ctx.page_buf);
        if (status != efs_status::ok) return status;
    }
    return efs_status::ok;
}

std::uint32_t write_first_map(const geometry& geo, efs_bme_t& bme, std::uint8_t* slot)
{
    fill_fresh_tables(bme, geo);
    seal_bme(bme, geo, slot);
    const auto status = EFS_write_with_read_check(first_slot_at, geo.bme_bytes(), slot, 1);
    if (status != efs_status::ok) return status;
    const efs_bm_header_t header = make_bm_header(geo, first_bm_sequence);
    return EFS_write_with_read_check(0, sizeof header, &header, 1); // COMMIT
}

// ok | bad_offset
std::uint32_t lay_image(const geometry& geo, efs_bme_t& bme, std::uint8_t* image)
{
    for (std::uint32_t block = 0; block < geo.data_blocks(); ++block) {
        std::uint8_t* const at = image + geo.data_block_at(block);
        store(at, make_block_header(1));
        if (block >= geo.valid_block_num) continue;
        std::uint8_t* const data_area = at + offsetof(data_block_t, data_area);
        if (const auto status = fill_fresh_data_area(block, data_area); status != efs_status::ok) return status;
        store(at + offsetof(data_block_t, footer), le32(EFS_crc32(0, data_area, data_area_bytes)));
    }
    fill_fresh_tables(bme, geo);
    seal_bme(bme, geo, image + first_slot_at);
    store(image, make_bm_header(geo, first_bm_sequence));
    return efs_status::ok;
}

} // namespace
} // namespace yfs::efs

uint32_t EFS_do_format(void)
{
    using namespace yfs::efs;
    if (mounted_otherwise()) return efs_status::not_ready;
    const geometry geo = current_geometry();
    if (!geo.representable() || geo.bm_num == 0) return efs_status::integrity;
    working_bme bme;
    const auto slot = yfs::lt_allocate_zero<std::uint8_t>(geo.bme_bytes());
    if (!bme.allocate(geo) || !slot) return efs_status::no_memory;
    efs_ctx.initialized = 0;      // what was mounted is gone with the first erase,
    efs_ctx.undecided_length = 0; // and what was to be made void with it

    auto status = erase_everything(geo);
    if (status == efs_status::ok) status = write_logical_blocks(geo);
    if (status == efs_status::ok) status = write_first_map(geo, *bme.get(), slot.get());
    return status;
}

uint32_t yfs_make_efs(void* image, uint32_t size)
{
    using namespace yfs::efs;
    if (g_efs_autogen_data_loaded == 0) return efs_status::not_ready;
    const geometry geo = current_geometry();
    if (image == nullptr || size != EFS_get_efs_size()) return efs_status::invalid;
    if (!geo.representable() || geo.bm_num == 0) return efs_status::integrity;
    const std::uint32_t files = files_bound();
    for (std::uint32_t file = 0; file < files; ++file) {
        const efs_file_t* const entry = find_file(file);
        const bool stored = entry != nullptr && entry->first_block < geo.valid_block_num;
        if (stored && entry->offset > chunk_room) return efs_status::bad_offset;
    }
    working_bme bme;
    if (!bme.allocate(geo)) return efs_status::no_memory;
    std::memset(image, erased_byte, size);
    return lay_image(geo, *bme.get(), static_cast<std::uint8_t*>(image));
}
