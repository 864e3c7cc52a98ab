// Sizes and contents of files. A read verifies the first chunk, which carries the size, and each chunk that it takes
// bytes from, whole.
#include "efs/efs_internal.h"
#include "yfs/efs.h"

#include <algorithm>
#include <cstring>

namespace yfs::efs {
namespace {

// The size that the verified first chunk in page_buf tells. ok | not_found | integrity: larger than the entry allows.
std::uint32_t stored_size(const efs_file_t& entry, std::uint32_t& size)
{
    const std::uint32_t length = load<efs_chunk_header_t>(efs_ctx.page_buf).length;
    if (length == no_file) return efs_status::not_found;
    if (length > entry.max_size) return efs_status::integrity;
    size = length;
    return efs_status::ok;
}

// Delivers bytes of chunk payloads, one chunk after the other.
struct delivery {
    std::uint8_t* buffer;
    std::uint32_t wanted;
    std::uint32_t copied;

    // Up to `most` payload bytes of the chunk in page_buf, from payload byte `from` on.
    void take(std::uint32_t from, std::uint32_t most)
    {
        const std::uint32_t n = std::min(most, wanted - copied);
        std::memcpy(buffer + copied, efs_ctx.page_buf + sizeof(efs_chunk_header_t) + from, n);
        copied += n;
    }
};

// The rest of a read whose first chunk is verified and in page_buf: bytes from `offset` on of a file of `size` bytes.
std::uint32_t deliver(const efs_file_t& entry, std::uint32_t size, std::uint32_t offset, delivery& out)
{
    // Where the byte lies, counted from the payload's begin as if the first chunk's block held a whole chunk.
    const std::uint32_t position = entry.offset + offset;
    const std::uint32_t first_room = chunk_room - entry.offset;
    if (offset < first_room) out.take(offset, first_room - offset);

    // A continuation chunk's payload begins at the same position in the file that its block has behind first_block.
    const std::uint32_t behind = std::max(position / chunk_room, 1U);
    std::uint32_t skipped = offset < first_room ? 0 : position % chunk_room;
    for (std::uint32_t j = behind; out.copied < out.wanted; ++j, skipped = 0) {
        const std::uint32_t logical_block = entry.first_block + j;
        if (logical_block >= g_efs_valid_block_num) return efs_status::integrity;
        const std::uint32_t payload = std::min(chunk_room, size - first_room - (j - 1) * chunk_room);
        const auto status = EFS_read_and_verify_file(low8(logical_block), 0, 0, low16(payload));
        if (status != efs_status::ok) return status;
        out.take(skipped, chunk_room - skipped);
    }
    return efs_status::ok;
}

// As EFS_read, with the preconditions met; leaves *length to its caller on failure.
std::uint32_t read_entry(const efs_file_t& entry, std::uint32_t offset, std::uint32_t* length, std::uint8_t* buffer)
{
    const auto status = EFS_read_and_verify_file(entry.first_block, entry.offset, 1, 0);
    if (status != efs_status::ok) return status;

    std::uint32_t size = 0;
    if (const auto stored = stored_size(entry, size); stored != efs_status::ok) return stored;
    if (size == 0) {
        *length = 0;
        return efs_status::ok;
    }
    if (offset > size) return efs_status::too_large;
    *length = std::min(*length, size - offset);

    delivery out = {buffer, *length, 0};
    return deliver(entry, size, offset, out);
}

} // namespace
} // namespace yfs::efs

uint32_t EFS_get_file_size(uint32_t file, uint32_t* size)
{
    using namespace yfs::efs;
    if (!mounted()) return efs_status::not_ready;
    const efs_file_t* const entry = find_file(file);
    if (entry == nullptr || size == nullptr) return efs_status::invalid;

    const auto status = EFS_read_and_verify_file(entry->first_block, entry->offset, 1, 0);
    return status != efs_status::ok ? status : stored_size(*entry, *size);
}

uint32_t EFS_read(uint32_t file, uint32_t offset, uint32_t* length, uint8_t* buffer)
{
    using namespace yfs::efs;
    if (length == nullptr) return mounted() ? efs_status::invalid : efs_status::not_ready;

    const bool overflows = *length > UINT32_MAX - offset;
    const efs_file_t* const entry = find_file(file);
    std::uint32_t status = efs_status::ok;
    if (!mounted()) {
        status = efs_status::not_ready;
    } else if (entry == nullptr || overflows || buffer == nullptr) {
        status = efs_status::invalid;
    } else {
        status = read_entry(*entry, offset, length, buffer);
    }
    if (status != efs_status::ok) *length = 0; // part of the data can lie in the buffer: none of it counts
    return status;
}
