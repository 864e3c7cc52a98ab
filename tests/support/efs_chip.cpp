#include "tests/support/efs_chip.h"

#include "yfs/efs.h"

#include <cstring>

namespace {
yfs::test::nor_chip* s_chip = nullptr;
}

void yfs::test::use_efs_chip(nor_chip* chip)
{
    s_chip = chip;
}

std::uint32_t EFS_physical_read(std::uint32_t address, std::uint32_t length, void* destination)
{
    if (s_chip != nullptr) return s_chip->read(address, length, destination);
    std::memcpy(destination, efs_image + address, length);
    return 0;
}

std::uint32_t EFS_physical_write(std::uint32_t address, std::uint32_t length, const void* source)
{
    if (s_chip != nullptr) return s_chip->write(address, length, source);
    std::memcpy(efs_image + address, source, length);
    return 0;
}

std::uint32_t EFS_physical_erase(std::uint32_t address, std::uint32_t length)
{
    if (s_chip == nullptr) std::memset(efs_image + address, 0xFF, length);
    for (std::uint32_t done = 0; s_chip != nullptr && done < length; done += yfs::test::nor_chip::block) {
        if (const auto status = s_chip->erase(address + done); status != 0) return status;
    }
    return 0;
}
