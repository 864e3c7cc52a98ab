// Verified writes: a target that reads blank, the write, and a read-back that equals it. They work in verify_buf, so
// that page_buf keeps the block under change.
#include "efs/medium_access.h"
#include "efs/write_internal.h"
#include "frame/blank.h"
#include "yfs/efs.h"

#include <cstring>

uint32_t EFS_write_with_read_check(uint32_t address, uint32_t length, const void* data, uint8_t check_blank)
{
    using namespace yfs::efs;
    if (data == nullptr || length > block_bytes) return efs_status::invalid;
    const std::uint8_t* seen = nullptr;
    const auto read = [&] { return look(address, length, efs_ctx.verify_buf, seen); };

    if (check_blank != 0) {
        const auto status = read_until(read, [&] { return yfs::is_blank(seen, length); });
        if (status != efs_status::ok) return status;
    }
    if (const auto status = EFS_physical_write(address, length, data); status != efs_status::ok) return status;
    return read_until(read, [&] { return std::memcmp(seen, data, length) == 0; });
}

uint32_t EFS_write_data_footer(uint32_t physical_block, const void* data_area)
{
    using namespace yfs::efs;
    if (mounted_otherwise()) return efs_status::not_ready;
    const geometry geo = current_geometry();
    if (data_area == nullptr || !geo.representable() || physical_block >= geo.data_blocks()) return efs_status::invalid;
    const yfs::le32 footer = EFS_crc32(0, static_cast<const std::uint8_t*>(data_area), data_area_bytes);
    const auto at = geo.data_block_at(physical_block) + static_cast<std::uint32_t>(offsetof(data_block_t, footer));
    return EFS_write_with_read_check(at, sizeof footer, &footer, 1);
}

uint32_t EFS_write_data_block(uint32_t physical_block, const void* data_area)
{
    using namespace yfs::efs;
    if (mounted_otherwise()) return efs_status::not_ready;
    const geometry geo = current_geometry();
    if (data_area == nullptr || !geo.representable() || physical_block >= geo.data_blocks()) return efs_status::invalid;
    const auto at = geo.data_block_at(physical_block) + static_cast<std::uint32_t>(offsetof(data_block_t, data_area));
    const auto status = EFS_write_with_read_check(at, data_area_bytes, data_area, 1);
    return status != efs_status::ok ? status : EFS_write_data_footer(physical_block, data_area);
}
