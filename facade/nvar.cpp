// NVARs: the host's values, found by path in the one table that it names, and handed out in place. Nothing here reads
// or writes the volumes, but for the question whether the VFS is deployed.
#include "facade/facade_internal.h"

#include <cstring>

namespace yfs::facade {

// A needed argument. False, and reported.
static bool given(const void* argument, const char* message)
{
    if (argument == nullptr) report(yfs_error_corrupted_buffer, message);
    return argument != nullptr;
}

static bool exists(const char* path, FcsFileName table)
{
    return given(path, "Null NVAR path") && yeYfsFindFileEntryInTable(table, path) != nullptr;
}

// The entry of this path. Null, and reported: none.
static FcsFileEntry* look_up(FcsFileName table, const char* path)
{
    FcsFileEntry* const entry = yeYfsFindFileEntryInTable(table, path);
    if (entry == nullptr) report(yfs_error_file_not_found);
    return entry;
}

static bool get_value(const char* path, void** dataOut, std::uint32_t* sizeOut, FcsFileName table,
                      std::uint8_t* modifiable, std::uint32_t* maxSizeOut)
{
    if (!given(path, "Null NVAR path") || !given(dataOut, "Null data") || !given(sizeOut, "Null data size"))
        return false;
    *dataOut = nullptr;
    *sizeOut = 0;
    const FcsFileEntry* const entry = look_up(table, path);
    if (entry == nullptr) return false;
    if (entry->data == nullptr && entry->size != 0) {
        report(yfs_error_data_pointer);
        return false;
    }
    if (!reachable(*entry)) {
        report(yfs_error_nvar_access);
        return false;
    }
    *dataOut = entry->data;
    *sizeOut = entry->size;
    if (modifiable != nullptr) *modifiable = has_tail(*entry) && vfs_deployed() ? 0 : 1;
    if (maxSizeOut != nullptr) *maxSizeOut = entry->maxSize;
    return true;
}

bool resize_value(const char* path, void** dataOut, std::uint32_t newSize)
{
    FcsFileEntry* const entry = look_up(FCS_CURRENT_VALUES, path);
    if (entry == nullptr) return false;
    if (!reachable(*entry)) {
        report(yfs_error_nvar_access);
        return false;
    }
    if (newSize == 0) {
        std::free(entry->data);
        entry->data = nullptr;
    } else if (newSize != entry->size) {
        void* const data = std::realloc(entry->data, newSize);
        if (data == nullptr) {
            report(yfs_error_out_of_memory);
            return false;
        }
        entry->data = data;
        // What the host fills is open; stale heap must not reach an image where it fills less.
        if (newSize > entry->size) std::memset(static_cast<char*>(data) + entry->size, 0, newSize - entry->size);
    }
    entry->size = newSize;
    *dataOut = entry->data;
    return true;
}

} // namespace yfs::facade

using namespace yfs::facade;

std::uint8_t yeyfsCheckNvarExists(const char* path, FcsFileName table)
{
    return serve([&] { return exists(path, table); });
}

std::uint8_t yeYfsNvarGet(const char* path, void** dataOut, std::uint32_t* sizeOut, FcsFileName table,
                          std::uint8_t* modifiable, std::uint32_t* maxSizeOut)
{
    return serve([&] { return get_value(path, dataOut, sizeOut, table, modifiable, maxSizeOut); });
}

std::uint8_t yeYfsNvarResize(const char* path, void** dataOut, std::uint32_t newSize)
{
    return serve([&] {
        return given(path, "Null NVAR path") && given(dataOut, "Null New NVAR data") &&
               resize_value(path, dataOut, newSize);
    });
}
