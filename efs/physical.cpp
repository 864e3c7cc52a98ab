// The medium of EFS, nothing else: a program that defines these three functions itself takes this file's place.
#include "efs/layout.h"
#include "efs/medium_access.h"
#include "frame/blank.h"
#include "yfs/efs.h"
#include "yfs/status.h"

#include <cstring>

using yfs::efs::in_image;

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
    yfs::lay_erased(efs_image + address, length);
    return efs_status::ok;
}

// These names always mean the functions above; the exported ones mean a program's own where it has put them before. An
// exported name is bound before the library's first statement runs, so it is enough to compare them once.
static uint32_t own_read(uint32_t, uint32_t, void*) __attribute__((alias("EFS_physical_read")));
static uint32_t own_write(uint32_t, uint32_t, const void*) __attribute__((alias("EFS_physical_write")));
static uint32_t own_erase(uint32_t, uint32_t) __attribute__((alias("EFS_physical_erase")));

[[maybe_unused]] static const bool told = yfs::efs::medium_built_in =
    EFS_physical_read == own_read && EFS_physical_write == own_write && EFS_physical_erase == own_erase;
