// What the files of this folder share: geometry of a mounted volume, FAT access, limits.
#pragma once

#include "afs/volume_layout.h"
#include "ftl/chunk_bits.h"
#include "yfs/afs.h"
#include "yfs/status.h"

namespace yfs::afs {

inline constexpr std::uint32_t staging_bytes = 4096;
inline constexpr std::uint32_t no_size = 0xFFFFFFFF; // in file_sizes: no such file

// Flags of afs_init.
inline constexpr std::uint32_t flag_keep_sizes = 0x1;
inline constexpr std::uint32_t medium_mask = 0x6;
inline constexpr std::uint32_t medium_ftl = 0x4;
inline constexpr std::uint32_t flag_read_only = 0x8;
inline constexpr std::uint32_t flag_create = 0x10;
inline constexpr std::uint32_t flag_mount_ftl = 0x20;
inline constexpr std::uint32_t flag_zero_context = 0x40;
inline constexpr std::uint32_t flag_read_ahead = 0x80;
inline constexpr std::uint32_t flag_distrust_mount = 0x100;
inline constexpr std::uint32_t flag_attach = 0x20000;
inline constexpr std::uint32_t flag_format = 0x40000;
inline constexpr std::uint32_t flag_format_erasing = 0x80000;

inline constexpr std::uint32_t write_truncates = 0x1; // of afs_writefile

// The page cache. The FTL moves pages of 64 bytes whatever it is asked for, and takes a data page once only: a longer
// line could neither be filled nor be written back. So over the FTL a line holds one page, and a greater page_size only
// changes how many lines there are.
inline constexpr std::uint32_t line_bytes = 64;
inline constexpr std::uint32_t min_page_size = 64;
inline constexpr std::uint32_t max_page_size = 65535;
inline constexpr std::uint32_t min_lines = 2;
inline constexpr std::uint32_t max_lines = 1000;

constexpr bool cache_size_allowed(std::uint32_t page_size, std::uint32_t cache_lines)
{
    return page_size >= min_page_size && page_size <= max_page_size && page_size % 64 == 0 &&
           cache_lines >= min_lines && cache_lines <= max_lines;
}

// Whether `value`, taken from a FAT entry, is a chunk id and not a byte count.
constexpr bool is_chunk(std::uint16_t value)
{
    return value > last_chunk_max;
}

inline std::uint32_t chunk_index(const afs_context& ctx, std::uint16_t cid)
{
    return static_cast<std::uint32_t>(cid) - ctx.files;
}
inline std::uint32_t chunk_va(const afs_context& ctx, std::uint16_t cid)
{
    return ctx.fat_size + chunk_bytes * chunk_index(ctx, cid);
}
inline std::uint32_t map_words(const afs_context& ctx)
{
    return ctx.chunks / 32U + 1;
}

// 22 unless `file` names a file head of an open volume.
inline bool is_file_number(const afs_context* ctx, std::int32_t file)
{
    return ctx != nullptr && file >= 0 && file < static_cast<std::int32_t>(ctx->files);
}

inline constexpr std::uint16_t line_valid = 0x1; // in the link of a line,
inline constexpr std::uint16_t line_dirty = 0x2; // beside it

// The bytes of the line with `page`, which becomes the most recently used. 0 | the cache's status.
std::uint32_t fetch_line(afs_context& ctx, std::uint16_t page, std::uint8_t*& bytes);

// A pointer to the byte at `va` in its cache line. 0 | the cache's status.
inline std::uint32_t cache_at(afs_context& ctx, std::uint32_t va, std::uint8_t*& byte)
{
    if (ctx.line_table == nullptr || ctx.cache_data == nullptr || ctx.page_size == 0) return afs_status::bad_state;
    const std::uint32_t status = fetch_line(ctx, low16(va / line_bytes), byte);
    if (status == afs_status::ok) byte += va % line_bytes;
    return status;
}

// The next chunk of a walk is its first.
void begin_walk();

// The file scan of a mount: fills alloc_map and file_sizes, ends the zombies. 0 | 5: a corrupt chain | 12.
std::uint32_t scan_files(afs_context& ctx);

// Gives back the chunk `cid`, unless another file has it too. 0 | a trim's status.
std::uint32_t trim_chunk(afs_context& ctx, std::uint16_t cid);

// Gives back chunks from `cid` on that are followed by their neighbours, as many as can be at once and at most `most`,
// and goes on that far along the chain. The number of chunks, which may be 0.
std::uint32_t release_neighbours(afs_context& ctx, std::uint16_t cid, std::uint32_t most);

// As afs_allocate_chunk.
std::uint32_t allocate_chunk(afs_context& ctx, std::uint16_t& cid);

// Gives chunk `cid`, whether or not the allocator first wants the cache flushed.
std::uint32_t take_chunk(afs_context& ctx, std::uint16_t& cid);

} // namespace yfs::afs
