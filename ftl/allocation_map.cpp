// The end of a mount: what the file chains reach is known, so the slots of the data EUs can be told apart. Allocation
// starts in the newest data EU that has a free slot.
#include "ftl/flash_io.h"
#include "ftl/ftl_internal.h"

namespace yfs::ftl {

namespace {

struct open_group {
    std::uint32_t seq = 0; // of the newest EU with free slots so far
};

// A data EU whose group lies outside the volume speaks for pages that don't exist. The last group may reach beyond the
// last chunk; such slots are never handed out.
bool group_inside_volume(const afs_context& ctx, std::uint32_t eu)
{
    const std::uint32_t base_page = ctx.ftl->eu_table[eu].base_page;
    return base_page >= fat_pages(ctx) && base_page - fat_pages(ctx) <= ctx.chunks;
}

// Eight neighbouring slots at a time: mostly all of them are live, or all of them are free.
constexpr std::uint32_t octet_slots = 8;
enum class octet { live, free, mixed };

octet look_at_octet(const afs_context& ctx, std::uint32_t index, const std::uint8_t* rec)
{
    if (ctx.alloc_map == nullptr || index + octet_slots > ctx.chunks) return octet::mixed;
    std::uint64_t records = 0;
    std::memcpy(&records, rec, sizeof records);
    std::uint64_t bits = ctx.alloc_map[index >> 5];
    if ((index & 31U) > 32 - octet_slots) bits |= std::uint64_t{ctx.alloc_map[(index >> 5) + 1]} << 32;
    const std::uint8_t used = low8(bits >> (index & 31U));
    if (used == 0xFF && records == 0) return octet::live;
    return used == 0 && records == UINT64_MAX ? octet::free : octet::mixed;
}
static_assert(data_rec_complete == 0x00 && data_rec_free == 0xFF);

std::uint32_t count_slots(afs_context& ctx, std::uint32_t eu, open_group& newest)
{
    ftl_context& ftl = *ctx.ftl;
    ftl_eu_entry& entry = ftl.eu_table[eu];
    entry.dirty = low8(end_index(ctx, eu) - first_index(ctx, eu)); // slots behind the last chunk can't be gained
    entry.free = 0;
    std::uint8_t buf[data_slots];
    const std::uint8_t* const rec = chip::look(eu_at(ctx, eu) + data_record_at(0), sizeof buf, buf);
    if (rec == nullptr) return afs_status::failed;

    const std::uint32_t first = first_index(ctx, eu);
    std::uint32_t first_free = none;
    for (std::uint32_t k = 0; k < data_slots; ++k) {
        const octet eight = k + octet_slots <= data_slots ? look_at_octet(ctx, first + k, rec + k) : octet::mixed;
        if (eight == octet::live) {
            entry.dirty = low8(entry.dirty - octet_slots);
            k += octet_slots - 1;
            continue;
        }
        if (eight == octet::free) {
            entry.free = low8(entry.free + octet_slots);
            if (first_free == none) first_free = k;
            k += octet_slots - 1;
            continue;
        }
        if (chunk_in_use(ctx, first + k)) {
            if (rec[k] != data_rec_complete) return afs_status::failed;
            --entry.dirty;
        } else if (rec[k] == data_rec_free && first + k < ctx.chunks) {
            ++entry.free;
            if (first_free == none) first_free = k;
        } // else the slot is dead until a reclaim
    }
    if (entry.free != 0 && entry.seq > newest.seq) {
        newest.seq = entry.seq;
        ftl.alloc_next = first + first_free;
        ftl.alloc_end = end_index(ctx, eu);
    }
    return afs_status::ok;
}

} // namespace

} // namespace yfs::ftl

uint32_t afs_physical_ftl_set_allocation_map(struct afs_context* ctx)
{
    using namespace yfs::ftl;
    ftl_context& ftl = *ctx->ftl;
    ftl.alloc_flush_asked = 0;
    ftl.alloc_next = none;

    open_group newest;
    for (uint32_t eu = 0; eu < ftl.eu_count; ++eu) {
        if (!is_data_eu(ftl, eu)) continue;
        if (!group_inside_volume(*ctx, eu)) return afs_status::failed;
        if (const uint32_t status = count_slots(*ctx, eu, newest); status != afs_status::ok) return status;
    }
    ftl.alloc_check_flash = 1;
    return afs_status::ok;
}
