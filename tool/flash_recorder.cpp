#include "tool/flash_recorder.h"

#include "yfs/efs.h"
#include "yfs/medium.h"

#include <algorithm>
#include <dlfcn.h>
#include <utility>

namespace yfs::tool {

namespace {

flash_recorder* current = nullptr;

void record_program(image_kind medium, std::uint32_t address, std::uint32_t length, const void* data)
{
    if (current == nullptr) return;
    const auto* const first = static_cast<const std::uint8_t*>(data);
    current->add({medium, false, address, length, {first, first + length}});
}

void record_erase(image_kind medium, std::uint32_t address, std::uint32_t length)
{
    if (current != nullptr) current->add({medium, true, address, length, {}});
}

// The library's own function of that name, which this program's stands before.
template <typename Function>
Function* behind(const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

} // namespace

void flash_operation::apply(bytes& image, std::uint32_t count) const
{
    const std::size_t first = std::min<std::size_t>(address, image.size());
    const std::size_t part = std::min<std::size_t>(count, image.size() - first);
    const auto at = image.begin() + static_cast<std::ptrdiff_t>(first);
    if (erase)
        std::fill_n(at, part, std::uint8_t{0xFF});
    else
        std::copy_n(data.begin(), part, at);
}

flash_recorder::flash_recorder()
{
    current = this;
}

flash_recorder::~flash_recorder()
{
    current = nullptr;
}

} // namespace yfs::tool

using yfs::tool::image_kind;

extern "C" {

uint32_t SpiDrvRead(uint32_t addr, uint32_t len, void* buf)
{
    static auto* const next = yfs::tool::behind<decltype(SpiDrvRead)>("SpiDrvRead");
    return next(addr, len, buf);
}

uint32_t SpiDrvWrite(uint32_t addr, uint32_t len, const void* buf)
{
    static auto* const next = yfs::tool::behind<decltype(SpiDrvWrite)>("SpiDrvWrite");
    const uint32_t status = next(addr, len, buf);
    if (status == 0) yfs::tool::record_program(image_kind::afs, addr, len, buf);
    return status;
}

uint32_t SpiDrvEraseBlock(uint32_t addr)
{
    constexpr uint32_t erase_block = 4096;
    static auto* const next = yfs::tool::behind<decltype(SpiDrvEraseBlock)>("SpiDrvEraseBlock");
    const uint32_t status = next(addr);
    if (status == 0) yfs::tool::record_erase(image_kind::afs, addr, erase_block);
    return status;
}

uint32_t EFS_physical_read(uint32_t address, uint32_t length, void* destination)
{
    static auto* const next = yfs::tool::behind<decltype(EFS_physical_read)>("EFS_physical_read");
    return next(address, length, destination);
}

uint32_t EFS_physical_write(uint32_t address, uint32_t length, const void* source)
{
    static auto* const next = yfs::tool::behind<decltype(EFS_physical_write)>("EFS_physical_write");
    const uint32_t status = next(address, length, source);
    if (status == 0) yfs::tool::record_program(image_kind::efs, address, length, source);
    return status;
}

uint32_t EFS_physical_erase(uint32_t address, uint32_t length)
{
    static auto* const next = yfs::tool::behind<decltype(EFS_physical_erase)>("EFS_physical_erase");
    const uint32_t status = next(address, length);
    if (status == 0) yfs::tool::record_erase(image_kind::efs, address, length);
    return status;
}

} // extern "C"
