// The medium of EFS, nothing else: a program that defines these three functions itself takes this file's place.
#include "yfs/efs.h"

#include "efs/layout.h"
#include "yfs/status.h"

#include <cstring>

namespace {

bool in_image(uint32_t address, uint32_t length)
{
    return efs_image != nullptr && length != 0 && address < efs_size && uint64_t{address} + length <= efs_size;
}

} // namespace

uint32_t EFS_physical_read(uint32_t address, uint32_t length, void* destination)
{
    if (!in_image(address, length) || destination == nullptr) return efs_status::invalid;
    std::memcpy(destination, efs_image + address, length);
    return efs_status::ok;
}

uint32_t EFS_physical_write(uint32_t address, uint32_t length, const void* source)
{
    if (!in_image(address, length) || source == nullptr) return efs_status::invalid;
    std::memcpy(efs_image + address, source, length);
    return efs_status::ok;
}

uint32_t EFS_physical_erase(uint32_t address, uint32_t length)
{
    using yfs::efs::block_bytes;
    if (!in_image(address, length) || address % block_bytes != 0 || length % block_bytes != 0) {
        return efs_status::invalid;
    }
    std::memset(efs_image + address, yfs::efs::erased_byte, length);
    return efs_status::ok;
}
