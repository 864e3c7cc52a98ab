// Copies between buffers and to addresses of the host.
#include "yfs/medium.h"

#include <cstring>

uint32_t ByteCopy(void* dst, size_t dst_size, const void* src, size_t count)
{
    constexpr uint32_t null_pointer = 3;
    constexpr uint32_t above_room = 40;

    if (dst == nullptr || src == nullptr) return null_pointer;
    if (count > dst_size) return above_room;
    std::memmove(dst, src, count); // a plain copy never fails, so 43 stays unused here
    return 0;
}

// Two 32-bit halves of a host address, added in 64 bits.
static void* host_address(uint32_t a, uint32_t b)
{
    const uint64_t address = uint64_t{a} + b;
    return reinterpret_cast<void*>(static_cast<uintptr_t>(address)); // NOLINT(performance-no-int-to-ptr)
}

uint32_t mg_copyfrom(uint32_t /*arg0*/, uint32_t a, uint32_t b, void* buf, uint32_t /*arg4*/, uint32_t len)
{
    if (len != 0) std::memcpy(buf, host_address(a, b), len);
    return 0;
}

uint32_t mg_copyto(uint32_t /*arg0*/, uint32_t a, uint32_t b, const void* buf, uint32_t /*arg4*/, uint32_t len)
{
    if (len != 0) std::memcpy(host_address(a, b), buf, len);
    return 0;
}
