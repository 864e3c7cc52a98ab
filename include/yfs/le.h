/* Integers as they lie on flash and in tables: lowest byte first, at any address. In C++ they read and assign as
   plain integers; in C they are read and written through yfs_get16/32 and yfs_set16/32. */
#pragma once

#include "yfs/export.h"

#ifdef __cplusplus

#include <bit>
#include <concepts>
#include <cstring>
#include <type_traits>

namespace yfs {

// The low bits of a value: each cut to 8 or 16 bits is written out, so that -Wconversion stays on.
constexpr std::uint8_t low8(std::uint64_t value)
{
    return static_cast<std::uint8_t>(value & 0xFFU);
}
constexpr std::uint16_t low16(std::uint64_t value)
{
    return static_cast<std::uint16_t>(value & 0xFFFFU);
}
constexpr std::uint32_t low32(std::uint64_t value)
{
    return static_cast<std::uint32_t>(value & 0xFFFFFFFFU);
}

// An unsigned integer of sizeof(T) bytes, lowest byte first. Alignment 1, trivially copyable.
template <std::unsigned_integral T>
struct le {
    std::uint8_t byte[sizeof(T)];

    le() = default;
    constexpr le(T value) : byte{} { *this = value; } // NOLINT(google-explicit-constructor): reads as an integer
    constexpr operator T() const
    {
        if constexpr (std::endian::native == std::endian::little) return std::bit_cast<T>(*this);
        T value = 0;
        for (std::size_t i = sizeof(T); i > 0; --i) value = static_cast<T>((value << 8) | byte[i - 1]);
        return value;
    }
    constexpr le& operator=(T value)
    {
        if constexpr (std::endian::native == std::endian::little) return *this = std::bit_cast<le>(value);
        for (std::uint8_t& b : byte) {
            b = low8(value);
            value = static_cast<T>(value >> 8);
        }
        return *this;
    }
};

using le16 = le<std::uint16_t>;
using le32 = le<std::uint32_t>;

// A record as it lies on a medium or in a table: bytes become one by load(), and go back by store().
template <typename R>
concept flash_record = std::is_trivially_copyable_v<R> && alignof(R) == 1;

template <flash_record R>
R load(const void* from)
{
    R record;
    std::memcpy(&record, from, sizeof record);
    return record;
}

template <flash_record R>
void store(void* to, const R& record)
{
    std::memcpy(to, &record, sizeof record);
}

} // namespace yfs

using yfs_le16 = yfs::le16;
using yfs_le32 = yfs::le32;

static_assert(sizeof(yfs_le16) == 2 && yfs::flash_record<yfs_le16>);
static_assert(sizeof(yfs_le32) == 4 && yfs::flash_record<yfs_le32>);

#else

typedef struct yfs_le16 {
    uint8_t byte[2];
} yfs_le16;

typedef struct yfs_le32 {
    uint8_t byte[4];
} yfs_le32;

static inline uint16_t yfs_get16(yfs_le16 field)
{
    return (uint16_t)(field.byte[0] | (field.byte[1] << 8));
}

static inline uint32_t yfs_get32(yfs_le32 field)
{
    return (uint32_t)field.byte[0] | ((uint32_t)field.byte[1] << 8) | ((uint32_t)field.byte[2] << 16) |
           ((uint32_t)field.byte[3] << 24);
}

static inline void yfs_set16(yfs_le16* field, uint16_t value)
{
    field->byte[0] = (uint8_t)(value & 0xFFU);
    field->byte[1] = (uint8_t)(value >> 8);
}

static inline void yfs_set32(yfs_le32* field, uint32_t value)
{
    for (int i = 0; i < 4; ++i) field->byte[i] = (uint8_t)((value >> (8 * i)) & 0xFFU);
}

#endif
