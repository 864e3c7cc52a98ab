// Ownership of memory from the Lt* primitives, so that every path out of a function releases it.
#pragma once

#include "yfs/medium.h"

#include <memory>

namespace yfs {

struct lt_free {
    void operator()(void* ptr) const { LtFreeMemory(ptr); }
};

// A block of T from LtAllocate*; null if there was no memory.
template <typename T>
using lt_block = std::unique_ptr<T[], lt_free>;

template <typename T>
lt_block<T> lt_allocate(std::size_t count)
{
    return lt_block<T>(static_cast<T*>(LtAllocateMemory(count * sizeof(T))));
}

template <typename T>
lt_block<T> lt_allocate_zero(std::size_t count)
{
    return lt_block<T>(static_cast<T*>(LtAllocateZeroMemory(count * sizeof(T))));
}

// Releases what `field` points to and sets it to null.
template <typename T>
void lt_release(T*& field)
{
    LtFreeMemory(field);
    field = nullptr;
}

} // namespace yfs
