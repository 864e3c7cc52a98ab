// Verified reads: a block by the CRCs of its header and footer, a chunk by its own. What they read stays in page_buf
// for the caller. None trusts the medium's numbers: what would run past the data area is refused, never read.
#include "efs/efs_internal.h"
#include "yfs/efs.h"

#include <algorithm>

namespace yfs::efs {
namespace {

// A read that brings nothing must not pass for what page_buf held before: one changed byte fails every checksum.
void spoil(std::uint8_t& byte)
{
    byte = low8(~byte);
}

bool block_sound(const std::uint8_t* block)
{
    const std::uint32_t footer = load<le32>(block + offsetof(data_block_t, footer));
    return header_sound(block) && EFS_crc32(0, block + offsetof(data_block_t, data_area), data_area_bytes) == footer;
}

// One chunk on its way into page_buf.
struct chunk_read {
    std::uint8_t logical_block;
    std::uint32_t at; // byte address of the chunk header
    bool first;
    std::uint32_t room;    // payload bytes up to the end of the data area
    std::uint32_t payload; // continuation: given by the caller; first chunk: what the header last read tells
};

std::uint32_t read_chunk(chunk_read& chunk)
{
    std::uint8_t* const to = efs_ctx.page_buf;
    constexpr std::uint32_t header_bytes = sizeof(efs_chunk_header_t);
    spoil(to[offsetof(efs_chunk_header_t, crc)]);
    if (const auto status = EFS_physical_read(chunk.at, header_bytes, to); status != efs_status::ok) return status;

    const std::uint32_t length = load<efs_chunk_header_t>(to).length;
    if (chunk.first) chunk.payload = length == no_file ? 0 : std::min(length, chunk.room);
    if (chunk.payload == 0) return efs_status::ok;
    return EFS_physical_read(chunk.at + header_bytes, chunk.payload, to + header_bytes);
}

bool chunk_sound(const chunk_read& chunk)
{
    const std::uint8_t* const bytes = efs_ctx.page_buf;
    const std::uint16_t of_length = EFS_crc16(chunk.logical_block, bytes, offsetof(efs_chunk_header_t, crc));
    const std::uint16_t crc = EFS_crc16(of_length, bytes + sizeof(efs_chunk_header_t), chunk.payload);
    return crc == load<efs_chunk_header_t>(bytes).crc;
}

} // namespace
} // namespace yfs::efs

uint32_t EFS_read_and_verify_data_block_header_and_footer(uint32_t physical_block)
{
    using namespace yfs::efs;
    if (!mounted()) return efs_status::not_ready;
    const geometry geo = current_geometry();
    if (physical_block >= geo.data_blocks()) return efs_status::invalid;
    return read_until(
        [&] {
            spoil(efs_ctx.page_buf[0]);
            return EFS_physical_read(geo.data_block_at(physical_block), block_bytes, efs_ctx.page_buf);
        },
        [] { return block_sound(efs_ctx.page_buf); });
}

uint32_t EFS_read_and_verify_file(uint8_t logical_block, uint16_t offset, uint8_t is_first, uint16_t length)
{
    using namespace yfs::efs;
    if (!mounted()) return efs_status::not_ready;
    if (logical_block >= g_efs_valid_block_num) return efs_status::invalid;
    if (offset > chunk_room) return efs_status::integrity;
    const std::uint32_t room = chunk_room - offset;
    if (is_first == 0 && length > room) return efs_status::invalid;

    const std::uint32_t physical_block = efs_ctx.current_bme.valid_table[logical_block];
    const std::uint32_t block_at = current_geometry().data_block_at(physical_block);
    const auto data_area_at = static_cast<std::uint32_t>(block_at + offsetof(data_block_t, data_area));
    chunk_read chunk = {logical_block, data_area_at + offset, is_first != 0, room, length};
    bool unsound = false;
    const auto status = read_until([&] { return read_chunk(chunk); }, [&] { return chunk_sound(chunk); }, &unsound);
    if (!unsound) return status;

    // A length of 0xFFFF says that there is no file here, though its CRC does not vouch for it. In a block that is
    // sound as a whole it is believed.
    if (yfs::load<efs_chunk_header_t>(efs_ctx.page_buf).length != no_file) return efs_status::integrity;
    const auto of_block = EFS_read_and_verify_data_block_header_and_footer(physical_block);
    return of_block == efs_status::ok ? efs_status::not_found : of_block;
}
