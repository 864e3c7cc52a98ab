// The bytes of ftbl.bin. The active file table is read in place from them, and stays active when a later load fails or
// doesn't know its SKU: so the bytes that it points into are kept beside the new ones until it has moved on.
#include "facade/facade_internal.h"

#include <functional>
#include <utility>
#include <vector>

namespace yfs::facade {

static std::vector<std::uint8_t> s_fileTableBuffer;
static std::vector<std::uint8_t> s_formerFileTableBuffer; // empty unless the active table points into it

static bool holds_active_table(const std::vector<std::uint8_t>& buffer)
{
    const void* const active = g_table_buf;
    const void* const begin = buffer.data();
    const void* const end = buffer.data() + buffer.size(); // an empty table may stand there
    const std::less_equal<const void*> not_behind;
    return !buffer.empty() && not_behind(begin, active) && not_behind(active, end);
}

void refill_file_table_buffer(const void* data, std::uint32_t size)
{
    const auto* const bytes = static_cast<const std::uint8_t*>(data);
    std::vector<std::uint8_t> fresh(bytes, bytes + size);
    if (holds_active_table(s_fileTableBuffer)) s_formerFileTableBuffer = std::move(s_fileTableBuffer);
    s_fileTableBuffer = std::move(fresh);
}

std::uint32_t load_file_table_buffer()
{
    const std::uint32_t status =
        load_file_table(s_fileTableBuffer.data(), s_yZonAfsSkuId, static_cast<std::uint32_t>(s_fileTableBuffer.size()));
    // Swapped, not assigned: an empty list would leave the memory with the vector.
    if (!holds_active_table(s_formerFileTableBuffer)) std::vector<std::uint8_t>().swap(s_formerFileTableBuffer);
    return status;
}

} // namespace yfs::facade
