// Reading pages: FAT pages where the page map says, data pages by arithmetic and the owner of their group. Every page
// that comes from flash has passed its CRC.
#include "ftl/flash_io.h"
#include "ftl/group_table.h"

namespace yfs::ftl {

data_place find_data_page(const afs_context& ctx, std::uint32_t index)
{
    const std::uint16_t cut = low16(index);
    return {find_owner(ctx, cut / data_slots), cut % data_slots};
}

// Room on the stack, and up to seven tries, are for a chip of the program's own: this stays a function apart.
[[gnu::noinline]] static std::uint32_t try_frame(std::uint32_t at, std::uint32_t page, void* buf)
{
    std::uint8_t scratch[frame_size];
    const std::uint8_t* const frame = look_at_checked_frames(at, 1, scratch, [page](std::uint32_t) { return page; });
    if (frame == nullptr) return afs_status::failed;
    std::memcpy(buf, frame, page_bytes);
    return afs_status::ok;
}

static std::uint32_t read_frame(std::uint32_t at, std::uint32_t page, void* buf)
{
    const std::uint8_t* const frame = chip::in_place(at, frame_size);
    if (frame == nullptr || load<le16>(frame + page_bytes) != page_crc(frame, page)) return try_frame(at, page, buf);
    std::memcpy(buf, frame, page_bytes);
    return afs_status::ok;
}

void page_window::take(const std::uint8_t* frames, std::uint32_t count)
{
    for (std::uint32_t i = 0; i < count && left != 0; ++i, frames += frame_size) {
        if (skip == 0 && left >= page_bytes) {
            std::memmove(to, frames, page_bytes);
            to += page_bytes;
            left -= page_bytes;
            continue;
        }
        const std::uint32_t from = std::min(skip, page_bytes);
        const std::uint32_t bytes = std::min(page_bytes - from, left);
        std::memmove(to, frames + from, bytes);
        skip -= from;
        to += bytes;
        left -= bytes;
    }
}

// Checked frames of one EU, taken over once all of them are sound.
static std::uint32_t take_pages(const afs_context& ctx, std::uint32_t eu, std::uint32_t slot, std::uint32_t count,
                                std::uint32_t first_page, std::uint8_t* scratch, page_window& out)
{
    if (count == 0) return afs_status::ok;
    const std::uint8_t* const frames = look_at_checked_frames(eu_at(ctx, eu) + data_frame_at(slot), count, scratch,
                                                              [first_page](std::uint32_t i) { return first_page + i; });
    if (frames == nullptr) return afs_status::failed;
    out.take(frames, count);
    return afs_status::ok;
}

std::uint32_t read_ftl_data_pages(afs_context* ctx, std::uint32_t eu, std::uint32_t slot, std::uint32_t count,
                                  std::uint32_t first_page, void* buf)
{
    auto* bytes = static_cast<std::uint8_t*>(buf);
    page_window out{bytes, 0, count * page_bytes};
    return take_pages(*ctx, eu, slot, count, first_page, bytes, out);
}

std::uint32_t read_data_run(const afs_context& ctx, std::uint32_t va, std::uint32_t count, std::uint8_t* scratch,
                            page_window out)
{
    const std::uint32_t index = index_of(ctx, va);
    if (ctx.no_alloc_map == 0 && !chunk_in_use(ctx, index)) {
        constexpr std::uint8_t zeros[frame_size] = {};
        out.take(zeros, 1);
        return afs_status::ok;
    }
    const data_place place = find_data_page(ctx, index);
    const std::uint32_t page = va / page_bytes;
    const std::uint32_t here = data_slots - place.slot;
    if (count <= here) return take_pages(ctx, place.eu, place.slot, count, page, scratch, out);
    if (count - here > data_slots) return afs_status::failed; // a run covers at most two EUs

    const std::uint32_t status = take_pages(ctx, place.eu, place.slot, here, page, scratch, out);
    if (status != afs_status::ok) return status;
    const std::uint32_t next_owner = find_owner(ctx, low16(index) / data_slots + 1);
    return take_pages(ctx, next_owner, 0, count - here, page + here, scratch + here * page_bytes, out);
}

} // namespace yfs::ftl

uint32_t afs_physical_ftl_read_page(struct afs_context* ctx, uint32_t va, uint32_t /*len*/, void* buf,
                                    uint32_t /*flash_base*/)
{
    using namespace yfs::ftl;
    const uint32_t page = va / page_bytes;
    if (ctx->ftl == nullptr) return afs_status::invalid; // not mounted
    if (is_fat_page(*ctx, va)) {
        const bool mapped = page < mapped_pages(*ctx) && ctx->ftl->page_map[page].slot != not_mapped;
        if (mapped) {
            const ftl_page_entry entry = ctx->ftl->page_map[page];
            return read_frame(eu_at(*ctx, entry.eu) + log_frame_at(entry.slot), page, buf);
        }
    } else {
        const uint32_t index = index_of(*ctx, va);
        if (ctx->no_alloc_map != 0 || yfs::chunk_in_use(*ctx, index)) {
            const data_place place = find_data_page(*ctx, index);
            return read_frame(eu_at(*ctx, place.eu) + data_frame_at(place.slot), page, buf);
        }
    }
    std::memset(buf, 0, page_bytes);
    return afs_status::ok;
}

uint32_t afs_physical_ftl_read_data_pages(struct afs_context* ctx, void* buf, uint32_t va, uint32_t count)
{
    using namespace yfs::ftl;
    if (ctx == nullptr || va < ctx->fat_size) return afs_status::failed;
    if (ctx->ftl == nullptr) return afs_status::invalid; // not mounted
    auto* const bytes = static_cast<uint8_t*>(buf);
    const bool zeros = ctx->no_alloc_map == 0 && !yfs::chunk_in_use(*ctx, index_of(*ctx, va));
    return read_data_run(*ctx, va, count, bytes, {bytes, 0, page_bytes * (zeros ? 1 : count)});
}
