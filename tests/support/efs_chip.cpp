#include "tests/support/efs_chip.h"

#include "yfs/efs.h"
#include "yfs/status.h"

#include <cstring>

using yfs::test::efs_chip;

static const auto in_image = [](std::uint32_t address, std::uint32_t length) {
    return length != 0 && std::uint64_t{address} + length <= efs_size;
};

std::uint32_t EFS_physical_read(std::uint32_t address, std::uint32_t length, void* destination)
{
    if (!in_image(address, length)) return efs_status::invalid;
    if (efs_chip != nullptr) return efs_chip->read(address, length, destination);
    std::memcpy(destination, efs_image + address, length);
    return 0;
}

std::uint32_t EFS_physical_write(std::uint32_t address, std::uint32_t length, const void* source)
{
    if (!in_image(address, length)) return efs_status::invalid;
    if (efs_chip != nullptr) return efs_chip->write(address, length, source);
    std::memcpy(efs_image + address, source, length);
    return 0;
}

std::uint32_t EFS_physical_erase(std::uint32_t address, std::uint32_t length)
{
    if (!in_image(address, length)) return efs_status::invalid;
    if (efs_chip != nullptr && length == yfs::test::nor_chip::block) return efs_chip->erase(address);
    std::memset(efs_image + address, 0xFF, length);
    return 0;
}
