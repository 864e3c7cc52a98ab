// Opening a volume. The geometry stands in the volume header, and the header can be read only through a mounted FTL; so
// the FTL is mounted twice, first as if the whole flash were FAT, which is enough to find page 0, then as it is.
#include "afs/afs_internal.h"
#include "frame/memory.h"
#include "ftl/ftl_internal.h"

#include <algorithm>

namespace yfs::afs {

namespace {

// The arguments of afs_init, and the header once it is read.
struct opening {
    afs_context& ctx;
    void* image;
    std::uint32_t page_size;
    std::uint32_t cache_lines;
    std::uint32_t files;
    std::uint32_t flash_base;
    std::uint32_t flash_size;
    std::uint32_t flags;
    std::uint8_t header_byte4;
    std::uint32_t header_field12;
    volume_header_t header{};

    bool wants(std::uint32_t flag) const { return (flags & flag) != 0; }
};

std::uint32_t prepare_context(opening& job)
{
    afs_context& ctx = job.ctx;
    if (job.wants(flag_zero_context)) ctx = afs_context{};
    // Of a volume opened before nothing may reach the new one, nor may half of it stay if this open fails.
    cache_invalidate(&ctx);
    lt_release(ctx.file_sizes);
    lt_release(ctx.alloc_map);
    lt_release(ctx.shared_map);
    ctx.files = 0;
    ctx.page_size = low16(job.page_size);
    ctx.handler = &afs_physical_spi_handler;
    ctx.image = job.image;
    ctx.ftl_allocator = 0;
    ctx.no_alloc_map = 0;
    if ((job.flags & medium_mask) != medium_ftl) return afs_status::invalid;
    ctx.sub_partition = 0;
    if (job.wants(flag_read_only)) ctx.no_alloc_map = 1;
    ctx.flash_base = job.flash_base;
    ctx.flash_size = job.flash_size;

    // As if all of the flash were FAT.
    ctx.volume_size = job.flash_size;
    ctx.fat_size = job.flash_size;
    ctx.chunks = low16(job.flash_size / chunk_bytes);
    return afs_status::ok;
}

std::uint32_t mount_for_header(opening& job)
{
    afs_context& ctx = job.ctx;
    if (!job.wants(flag_mount_ftl)) return ctx.ftl != nullptr ? afs_status::ok : afs_status::invalid;

    const std::uint32_t status =
        afs_physical_ftl_init(&ctx, ctx.flash_size, ftl::flag_allocate | (job.flags & flag_attach));
    if (status == afs_status::ok && !job.wants(flag_distrust_mount)) return afs_status::ok;
    if (!job.wants(flag_format) && !job.wants(flag_format_erasing)) return afs_status::failed;
    if (ctx.ftl == nullptr) return status; // no memory for it: nothing to format with

    const std::uint32_t formatted = afs_physical_ftl_format(&ctx, job.wants(flag_format_erasing) ? 1 : 0);
    if (formatted != afs_status::ok) return formatted;
    return afs_physical_ftl_init(&ctx, ctx.flash_size, 0);
}

std::uint32_t read_header(opening& job)
{
    std::uint32_t status = cache_init(&job.ctx, job.page_size, job.cache_lines);
    std::uint8_t* page0 = nullptr;
    if (status == afs_status::ok) status = cache_at(job.ctx, 0, page0);
    if (status != afs_status::ok) return status;
    job.ctx.scan_next = 0;
    job.header = load<volume_header_t>(page0);
    return afs_status::ok;
}

// A header that contradicts itself or the flash is refused; whatever it says is bounded in 64 bits first.
bool header_makes_sense(const afs_context& ctx, const volume_header_t& header)
{
    const std::uint64_t files = header.files;
    const std::uint64_t volume_size = header.volume_size;
    const std::uint64_t chunks = chunks_of(volume_size, files);
    return files >= min_files && volume_size <= ctx.flash_size && fat_size_of(files, chunks) <= volume_size &&
           files + chunks <= zombie;
}

std::uint32_t mount_true_geometry(opening& job)
{
    afs_context& ctx = job.ctx;
    if (!header_makes_sense(ctx, job.header)) return afs_status::failed;
    ctx.volume_size = job.header.volume_size;
    ctx.chunks = low16(chunks_of(ctx.volume_size, job.header.files));
    ctx.fat_size = low32(fat_size_of(job.header.files, ctx.chunks));
    return afs_physical_ftl_init(&ctx, ctx.flash_size, ftl::flag_allocate);
}

std::uint32_t create_header(opening& job)
{
    if (!job.wants(flag_create) && !job.wants(flag_distrust_mount)) return afs_status::failed;
    job.header.magic = volume_magic;
    job.header.byte4 = job.header_byte4;
    job.header.field12_low = low8(job.header_field12);
    job.header.field12_high = low8((job.header_field12 >> 8) & 0xFU);
    job.header.zero = 0;
    job.header.volume_size = job.ctx.volume_size;
    job.header.files = low16(job.files);

    std::uint8_t* page0 = nullptr;
    if (const std::uint32_t status = cache_at(job.ctx, 0, page0); status != afs_status::ok) return status;
    std::memset(page0, 0, line_bytes);
    store(page0, job.header);
    cache_line_written(&job.ctx, page0);
    return cache_flush(&job.ctx); // COMMIT: the only page of a new volume that gets written
}

std::uint32_t header_word_of(const volume_header_t& header)
{
    return header.byte4 | static_cast<std::uint32_t>(header.field12_low) << 8 |
           static_cast<std::uint32_t>(header.field12_high) << 16 | static_cast<std::uint32_t>(header.zero) << 24;
}

std::uint32_t allocate_tables(opening& job)
{
    afs_context& ctx = job.ctx;
    if (job.wants(flag_keep_sizes)) {
        auto sizes = lt_allocate<std::uint32_t>(ctx.files);
        if (!sizes) return afs_status::no_memory;
        std::fill_n(sizes.get(), ctx.files, no_size);
        ctx.file_sizes = sizes.release();
    }
    if (ctx.no_alloc_map == 0) {
        auto map = lt_allocate_zero<std::uint32_t>(map_words(ctx));
        if (!map) return afs_status::no_memory;
        ctx.alloc_map = map.release();
    }
    return afs_status::ok;
}

// Hands the map to the FTL, and gives the log back the FAT pages that describe only free chunks.
std::uint32_t start_allocation(afs_context& ctx)
{
    ctx.ftl_allocator = 1;
    if (const std::uint32_t status = afs_physical_ftl_set_allocation_map(&ctx); status != afs_status::ok) return status;
    // Of the free chunks whose entries share a FAT page the first is enough.
    for (std::uint32_t index = 0; index <= ctx.chunks;) {
        index += in_use_ahead(ctx, index, UINT32_MAX);
        if (index > ctx.chunks) break;
        afs_trim_fat_page_if_needed(&ctx, low16(index));
        const std::uint32_t in_page = fat_entry_at(ctx.files + index) % line_bytes;
        index += (line_bytes - in_page) / 2;
    }
    return afs_status::ok;
}

void read_ahead(opening& job)
{
    for (std::uint32_t page = 0; page < job.cache_lines; ++page) {
        void* line = nullptr;
        static_cast<void>(cache_ptr(&job.ctx, low16(page), &line)); // only a convenience
    }
}

std::uint32_t open_volume(opening& job)
{
    afs_context& ctx = job.ctx;
    std::uint32_t status = prepare_context(job);
    if (status == afs_status::ok) status = mount_for_header(job);
    if (status == afs_status::ok) status = read_header(job);
    if (status != afs_status::ok) return status;

    status = job.header.magic == volume_magic ? mount_true_geometry(job) : create_header(job);
    if (status != afs_status::ok) return status;
    ctx.files = job.header.files;
    ctx.header_word = header_word_of(job.header);
    ctx.last_fat_page = 0;

    status = allocate_tables(job);
    const bool has_tables = ctx.no_alloc_map == 0 || ctx.file_sizes != nullptr;
    if (status == afs_status::ok && has_tables) status = scan_files(ctx);
    if (status == afs_status::ok && ctx.no_alloc_map == 0 && ctx.sub_partition == 0) status = start_allocation(ctx);
    if (status != afs_status::ok) {
        lt_release(ctx.alloc_map); // by half a map a reclaim would take live pages for dead
        return status;
    }

    // Every check of the true geometry has passed: what a cut reclaim left undone is done now.
    if (!job.wants(flag_read_only)) status = ftl::finish_interrupted_reclaim(&ctx);
    if (status == afs_status::ok && job.wants(flag_read_ahead)) read_ahead(job);
    return status;
}

} // namespace

} // namespace yfs::afs

uint32_t afs_init(afs_context* ctx, void* image, uint32_t page_size, uint32_t cache_lines, uint32_t files,
                  uint32_t flash_base, uint32_t flash_size, uint32_t flags, uint8_t header_byte4,
                  uint32_t header_field12)
{
    using namespace yfs::afs;
    if (!cache_size_allowed(page_size, cache_lines) || ctx == nullptr) return afs_status::invalid;
    if (files < min_files || files > max_files) return afs_status::invalid;
    if (flash_size < min_flash_size || flash_size > max_flash_size) return afs_status::invalid;

    opening job{.ctx = *ctx,
                .image = image,
                .page_size = page_size,
                .cache_lines = cache_lines,
                .files = files,
                .flash_base = flash_base,
                .flash_size = flash_size,
                .flags = flags,
                .header_byte4 = header_byte4,
                .header_field12 = header_field12};
    return open_volume(job);
}

uint32_t afs_setcache(afs_context* ctx, uint32_t page_size, uint32_t cache_lines)
{
    using namespace yfs::afs;
    if (!cache_size_allowed(page_size, cache_lines) || ctx == nullptr) return afs_status::invalid;
    const uint32_t status = cache_init(ctx, page_size, cache_lines);
    if (status == afs_status::ok) ctx->page_size = yfs::low16(page_size);
    return status;
}
