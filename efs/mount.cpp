// Mount: from an image to the one BME in force, by reading the BM headers and one BM block. Nothing is written. Two
// sound BMs are what a power cut between a new header and the retiring of the old one leaves: the higher sequence
// counts. A last slot that fails its CRC is a commit that was cut: the slot before it is what still holds.
#include "efs/efs_internal.h"
#include "frame/blank.h"
#include "frame/memory.h"
#include "yfs/efs.h"
#include "yfs/medium.h"

#include <algorithm>
#include <bitset>
#include <cstring>

efs_ctx_t efs_ctx = {};

namespace yfs::efs {
namespace {

constexpr std::uint32_t most_passes = 7; // over a BM block whose last slot once reads written and once blank

// The tables behind the pointers of efs_ctx. They are released through these, whatever a program did to the record.
struct mount_tables {
    std::uint8_t* block_status;
    std::uint32_t* block_ec;
    std::uint8_t* valid_table;
    std::uint8_t* non_valid_table;
} tables = {};

// Ends a mount, finished or not: no table and no pointer to one stays.
void release_tables()
{
    lt_release(tables.block_status);
    lt_release(tables.block_ec);
    lt_release(tables.valid_table);
    lt_release(tables.non_valid_table);
    efs_ctx.block_status = nullptr;
    efs_ctx.block_ec = nullptr;
    efs_ctx.current_bme.valid_table = nullptr;
    efs_ctx.current_bme.non_valid_table = nullptr;
}

// A count of 0 still gets a table, so that null means no memory.
template <typename T>
T* allocate_table(std::uint64_t count)
{
    return lt_allocate_zero<T>(std::max<std::uint64_t>(count, 1)).release();
}

std::uint32_t allocate_tables(const geometry& geo)
{
    tables.block_status = allocate_table<std::uint8_t>(geo.non_valid_block_num);
    tables.block_ec = allocate_table<std::uint32_t>(geo.data_blocks());
    tables.valid_table = allocate_table<std::uint8_t>(geo.valid_block_num);
    tables.non_valid_table = allocate_table<std::uint8_t>(geo.non_valid_block_num);
    if (tables.block_status == nullptr || tables.block_ec == nullptr || tables.valid_table == nullptr ||
        tables.non_valid_table == nullptr) {
        return efs_status::no_memory;
    }
    efs_ctx.block_status = tables.block_status;
    efs_ctx.block_ec = tables.block_ec;
    efs_ctx.current_bme.valid_table = tables.valid_table;
    efs_ctx.current_bme.non_valid_table = tables.non_valid_table;
    return efs_status::ok;
}

// ---- Choosing the BM ----

bool made_for(const efs_bm_header_t& header, const geometry& geo)
{
    return header.bm_num == geo.bm_num && header.valid_block_num == geo.valid_block_num &&
           header.non_valid_block_num == geo.non_valid_block_num && header.layout_id == g_efs_layout_id;
}

// Sets current_bm and bm_sequence. One sound header of another geometry condemns the image, whichever BM bears it.
std::uint32_t choose_bm(const geometry& geo)
{
    std::uint32_t best_sequence = 0;
    std::uint32_t sound = 0;
    for (std::uint32_t bm = 0; bm < geo.bm_num; ++bm) {
        const auto header = read_bm_header(bm);
        if (!header) continue;
        if (!made_for(*header, geo)) return efs_status::integrity;
        ++sound;
        if (header->sequence > best_sequence) {
            best_sequence = header->sequence;
            efs_ctx.current_bm = bm;
        }
    }
    efs_ctx.bm_sequence = best_sequence;
    efs_ctx.older_maps = sound > 1 ? 1 : 0;
    return best_sequence != 0 ? efs_status::ok : efs_status::integrity;
}

// ---- Finding the BME ----

// The slots of the current BM, from the copy of its block in page_buf.
class bm_slots {
public:
    explicit bm_slots(const geometry& geo) : geo_(geo) {}

    std::uint8_t* bytes(std::uint32_t at) const { return efs_ctx.page_buf + at; }
    std::uint32_t size() const { return geo_.bme_bytes(); }
    bool blank(std::uint32_t at) const { return is_blank(bytes(at), size()); }

    bme_tail_t tail(std::uint32_t at) const { return load<bme_tail_t>(bytes(at) + geo_.data_blocks()); }
    bool sound(std::uint32_t at) const
    {
        const std::uint32_t covered = size() - static_cast<std::uint32_t>(sizeof(le32));
        return EFS_crc32(0, bytes(at), covered) == tail(at).crc && !is_void(at);
    }
    // Zeros pass their own CRC, and are what a failed commit is made void with. Only an image of a single block has an
    // entry of nothing but zeros.
    bool is_void(std::uint32_t at) const
    {
        return geo_.data_blocks() > 1 &&
               std::all_of(bytes(at), bytes(at) + size(), [](std::uint8_t b) { return b == 0; });
    }

    // Only blankness decides: a torn slot was written too, and none may be programmed behind it.
    std::uint32_t last_written() const
    {
        std::uint32_t at = first_slot_at;
        while (geo_.slot_fits(at + size()) && !blank(at + size())) at += size();
        return at;
    }

    std::uint32_t read_again(std::uint32_t at) const
    {
        return EFS_physical_read(geometry::bm_at(efs_ctx.current_bm) + at, size(), bytes(at));
    }

private:
    geometry geo_;
};

// Looks for the slot in force. ok with its offset in `at` | try_pass_again: the last slot reads blank now, so the block
// was misread | integrity | the status of a failed read.
std::uint32_t find_slot(const bm_slots& slots, std::uint32_t& at)
{
    at = slots.last_written();
    if (slots.sound(at)) return efs_status::ok;

    bool is_blank = false;
    bool torn = false;
    const auto again = read_until([&] { return slots.read_again(at); },
                                  [&] {
                                      const bool sound = slots.sound(at);
                                      is_blank = !sound && slots.blank(at);
                                      return sound || is_blank;
                                  },
                                  &torn);
    if (is_blank) return efs_status::try_pass_again;
    if (!torn) return again;

    // Torn. The commit before it holds, and the next one must not touch the torn slot.
    if (at < first_slot_at + slots.size()) return efs_status::integrity;
    at -= slots.size();
    if (!slots.sound(at)) {
        const auto before = read_until([&] { return slots.read_again(at); }, [&] { return slots.sound(at); });
        if (before != efs_status::ok) return before;
    }
    efs_ctx.force_bm_switch = 1;
    return efs_status::ok;
}

void install(const bm_slots& slots, std::uint32_t at, const geometry& geo)
{
    efs_bme_t& bme = efs_ctx.current_bme;
    const std::uint8_t* const entries = slots.bytes(at);
    std::memcpy(bme.valid_table, entries, geo.valid_block_num);
    std::memcpy(bme.non_valid_table, entries + geo.valid_block_num, geo.non_valid_block_num);
    const auto tail = slots.tail(at);
    bme.reserved0 = tail.reserved0;
    bme.reserved1 = tail.reserved1;
    bme.crc = tail.crc;
    efs_ctx.bme_offset = at;
}

// One pass: reads the current BM block afresh and installs the BME in force.
std::uint32_t find_bme_in_pass(const geometry& geo)
{
    const std::uint32_t bm_at = geometry::bm_at(efs_ctx.current_bm);
    if (const auto status = EFS_physical_read(bm_at, block_bytes, efs_ctx.page_buf); status != efs_status::ok) {
        return status;
    }
    const bm_slots slots(geo);
    std::uint32_t at = 0;
    if (const auto status = find_slot(slots, at); status != efs_status::ok) return status;
    const std::uint8_t* const entries = slots.bytes(at);
    if (!each_block_once(entries, entries + geo.valid_block_num, geo)) return efs_status::integrity;
    install(slots, at, geo);
    return efs_status::ok;
}

std::uint32_t find_bme(const geometry& geo)
{
    for (std::uint32_t pass = 0; pass < most_passes; ++pass) {
        const auto status = find_bme_in_pass(geo);
        if (status != efs_status::try_pass_again) return status;
    }
    return efs_status::integrity;
}

std::uint32_t mount(const geometry& geo, std::uint8_t format)
{
    if (const auto status = allocate_tables(geo); status != efs_status::ok) return status;
    efs_ctx.read_retries = read_tries;
    if (const auto status = EFS_physical_init(format); status != efs_status::ok) return status;
    if (format != 0) {
        if (const auto status = EFS_do_format(); status != efs_status::ok) return status;
    }
    if (geo.bm_num == 0) return efs_status::integrity;
    if (const auto status = choose_bm(geo); status != efs_status::ok) return status;
    if (const auto status = find_bme(geo); status != efs_status::ok) return status;

    efs_ctx.mounted_bm_num = geo.bm_num;
    efs_ctx.mounted_valid_block_num = geo.valid_block_num;
    efs_ctx.mounted_non_valid_block_num = geo.non_valid_block_num;
    efs_ctx.mounted_layout_id = g_efs_layout_id;
    efs_ctx.initialized = 1;
    return efs_status::ok;
}

} // namespace

// Blank and retired ones end the tries: sixteen zero bytes would pass the CRC.
std::optional<efs_bm_header_t> read_bm_header(std::uint32_t bm)
{
    std::uint8_t bytes[sizeof(efs_bm_header_t)];
    const auto all = [&](std::uint8_t value) {
        return std::all_of(std::begin(bytes), std::end(bytes), [=](std::uint8_t b) { return b == value; });
    };
    bool unused = false;
    const auto status = read_until([&] { return EFS_physical_read(geometry::bm_at(bm), sizeof bytes, bytes); },
                                   [&] {
                                       unused = all(erased_byte) || all(0);
                                       return unused || header_sound(bytes);
                                   });
    if (status != efs_status::ok || unused) return std::nullopt;
    return load<efs_bm_header_t>(bytes);
}

bool mounted()
{
    const geometry at_mount = {efs_ctx.mounted_bm_num, efs_ctx.mounted_valid_block_num,
                               efs_ctx.mounted_non_valid_block_num};
    return efs_ctx.initialized != 0 && at_mount == current_geometry() && efs_ctx.mounted_layout_id == g_efs_layout_id;
}

bool each_block_once(const std::uint8_t* valid_table, const std::uint8_t* non_valid_table, const geometry& geo)
{
    std::bitset<max_data_blocks> seen;
    const auto add = [&](std::uint8_t block) {
        if (block >= geo.data_blocks() || seen.test(block)) return false;
        seen.set(block);
        return true;
    };
    return std::all_of(valid_table, valid_table + geo.valid_block_num, add) &&
           std::all_of(non_valid_table, non_valid_table + geo.non_valid_block_num, add);
}

} // namespace yfs::efs

uint32_t EFS_init(uint8_t format)
{
    using namespace yfs::efs;
    release_tables();
    efs_ctx = {};
    if (g_efs_autogen_data_loaded == 0) return efs_status::not_ready;
    const geometry geo = current_geometry();
    if (!geo.representable()) return efs_status::integrity;
    const auto status = mount(geo, format);
    if (status != efs_status::ok) release_tables();
    return status;
}

uint32_t EFS_init_tools(void* image)
{
    if (image == nullptr) return efs_status::invalid;
    efs_image = static_cast<uint8_t*>(image);
    return EFS_init(0);
}

uint8_t EFS_is_initialized(void)
{
    return efs_ctx.initialized;
}
