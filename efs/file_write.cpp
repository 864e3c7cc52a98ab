// Changing a file: each logical block that it touches is copied with the change onto a spare, and one commit puts all
// of them in force. A file reads as before or as after, and what else lies in its blocks is carried along.
#include "efs/write_internal.h"
#include "yfs/efs.h"

#include <cstring>

namespace yfs::efs {
namespace {

// Adding this before the division by a chunk's room rounds up, and asks for one block more where the file ends at, or
// up to 3 bytes before, the end of one.
constexpr std::uint32_t needed_rounding = chunk_room + 3;

struct file_write {
    geometry geo;
    working_bme bme;
    const efs_file_t* entry = nullptr;
};

std::uint8_t* data_area()
{
    return efs_ctx.page_buf + offsetof(data_block_t, data_area);
}

// The scan, wear levelling's chance: what comes before any change.
std::uint32_t prepare_blocks(const geometry& geo)
{
    retire_older_maps(geo);
    if (const auto status = need_scan(); status != efs_status::ok) return status;
    return EFS_wear_leveling(0, 0); // a commit of its own, if it acts
}

std::uint32_t supply_free_blocks(std::uint64_t needed)
{
    while (efs_ctx.free_block_count < needed) {
        if (const auto status = EFS_erase_dirty_block(); status != efs_status::ok) return status;
    }
    return efs_status::ok;
}

// The logical block's present contents into page_buf, verified.
std::uint32_t fetch_block(file_write& job, std::uint32_t logical_block)
{
    if (logical_block >= job.geo.valid_block_num) return efs_status::invalid;
    return EFS_read_and_verify_data_block_header_and_footer(job.bme->valid_table[logical_block]);
}

void put_chunk(std::uint32_t logical_block, std::uint8_t* at, std::uint16_t length, const std::uint8_t* payload,
               std::uint32_t bytes)
{
    efs_chunk_header_t header{};
    header.length = length;
    const std::uint16_t of_length = EFS_crc16(low16(logical_block), header.length.byte, sizeof header.length);
    header.crc = EFS_crc16(of_length, payload, bytes);
    store(at, header);
    std::memcpy(at + sizeof header, payload, bytes);
}

std::uint32_t write_chunks(file_write& job, const std::uint8_t* data, std::uint32_t size)
{
    std::uint32_t done = 0;
    bool first = true;
    for (std::uint32_t block = job.entry->first_block; first || done < size; ++block, first = false) {
        if (const auto status = fetch_block(job, block); status != efs_status::ok) return status;
        const std::uint32_t at = first ? job.entry->offset : 0U;
        const std::uint32_t bytes = std::min(size - done, chunk_room - at);
        put_chunk(block, data_area() + at, first ? low16(size) : no_file, data + done, bytes);
        const auto status = EFS_bme_swap_and_write_new_block(job.bme.get(), block, data_area());
        if (status != efs_status::ok) return status;
        done += bytes;
    }
    return efs_status::ok;
}

} // namespace
} // namespace yfs::efs

uint32_t EFS_write(uint32_t file, uint32_t offset, uint32_t size, const uint8_t* data)
{
    using namespace yfs::efs;
    if (!mounted()) return efs_status::not_ready;
    file_write job{.geo = current_geometry(), .bme = {}};
    if (!job.bme.allocate(job.geo)) return efs_status::no_memory;
    job.entry = find_file(file);
    if (job.entry == nullptr || offset != 0 || data == nullptr) return efs_status::invalid;
    if (job.entry->offset > chunk_room) return efs_status::integrity;

    if (const auto status = prepare_blocks(job.geo); status != efs_status::ok) return status;
    if (size > job.entry->max_size || size == no_file) return efs_status::too_large;
    const std::uint64_t needed = (std::uint64_t{size} + needed_rounding + job.entry->offset) / chunk_room;
    if (needed > job.geo.non_valid_block_num) return efs_status::too_large;
    if (const auto status = supply_free_blocks(needed); status != efs_status::ok) return status;

    job.bme.copy_current(job.geo);
    if (const auto status = write_chunks(job, data, size); status != efs_status::ok) return status;
    return EFS_commit_BME(job.bme.get(), 0, 0); // COMMIT: all chunks at once
}

uint32_t EFS_delete(uint32_t file)
{
    using namespace yfs::efs;
    if (!mounted()) return efs_status::not_ready;
    file_write job{.geo = current_geometry(), .bme = {}};
    if (!job.bme.allocate(job.geo)) return efs_status::no_memory;
    job.entry = find_file(file);
    if (job.entry == nullptr) return efs_status::invalid;
    if (job.entry->offset > chunk_room) return efs_status::integrity;

    if (const auto status = prepare_blocks(job.geo); status != efs_status::ok) return status;
    if (const auto status = supply_free_blocks(1); status != efs_status::ok) return status;
    job.bme.copy_current(job.geo);
    const std::uint32_t block = job.entry->first_block;
    if (const auto status = fetch_block(job, block); status != efs_status::ok) return status;

    std::uint8_t* const chunk = data_area() + job.entry->offset;
    if (yfs::load<efs_chunk_header_t>(chunk).length == no_file) return efs_status::not_found;
    yfs::store(chunk, efs_chunk_header_t{no_file, no_file_crc(block)});
    const auto status = EFS_bme_swap_and_write_new_block(job.bme.get(), block, data_area());
    return status != efs_status::ok ? status : EFS_commit_BME(job.bme.get(), 0, 0); // COMMIT
}
