// The media and the memory with a tally: the chips still work on gpBuffer and efs_image, but every access is counted.
// The addresses are the library's own; the scenarios hand it sound images only.
#include "bench/counting_medium.h"

#include "yfs/efs.h"
#include "yfs/medium.h"

#include <cstdlib>
#include <cstring>

namespace bench {

flash_tally flash;
memory_tally memory;

} // namespace bench

uint32_t SpiDrvRead(uint32_t addr, uint32_t len, void* buf)
{
    bench::flash.read += len;
    std::memcpy(buf, gpBuffer + addr, len);
    return 0;
}

uint32_t SpiDrvWrite(uint32_t addr, uint32_t len, const void* buf)
{
    ++bench::flash.programs;
    bench::flash.programmed += len;
    std::memcpy(gpBuffer + addr, buf, len);
    return 0;
}

uint32_t SpiDrvEraseBlock(uint32_t addr)
{
    constexpr uint32_t block_bytes = 4096;
    ++bench::flash.erases;
    std::memset(gpBuffer + addr, 0xFF, block_bytes);
    return 0;
}

uint32_t EFS_physical_read(uint32_t address, uint32_t length, void* destination)
{
    bench::flash.read += length;
    std::memcpy(destination, efs_image + address, length);
    return 0;
}

uint32_t EFS_physical_write(uint32_t address, uint32_t length, const void* source)
{
    ++bench::flash.programs;
    bench::flash.programmed += length;
    std::memcpy(efs_image + address, source, length);
    return 0;
}

uint32_t EFS_physical_erase(uint32_t address, uint32_t length)
{
    constexpr uint32_t block_bytes = 4096;
    bench::flash.erases += length / block_bytes;
    std::memset(efs_image + address, 0xFF, length);
    return 0;
}

// Each piece carries its size in front, in room that keeps the alignment of malloc.
static constexpr std::size_t head = alignof(std::max_align_t);

void* LtAllocateMemory(size_t size)
{
    auto* piece = static_cast<uint8_t*>(std::malloc(head + size));
    if (piece == nullptr) return nullptr;
    std::memcpy(piece, &size, sizeof size);
    bench::memory.held += size;
    bench::memory.most = bench::memory.held > bench::memory.most ? bench::memory.held : bench::memory.most;
    return piece + head;
}

void* LtAllocateZeroMemory(size_t count)
{
    void* piece = LtAllocateMemory(count);
    return piece == nullptr ? nullptr : std::memset(piece, 0, count);
}

void LtFreeMemory(void* ptr)
{
    if (ptr == nullptr) return;
    auto* piece = static_cast<uint8_t*>(ptr) - head;
    std::size_t size = 0;
    std::memcpy(&size, piece, sizeof size);
    bench::memory.held -= size;
    std::free(piece);
}
