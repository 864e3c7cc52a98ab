#include "inspect/efs_picture.h"

#include "inspect/inspect_internal.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace yfs::inspect {

namespace {

using efs::block_bytes;
using efs::chunk_room;
using efs::data_area_bytes;

bool crc32_matches(std::span<const std::uint8_t> covered, const std::uint8_t* stored)
{
    return EFS_crc32(0, covered.data(), low32(covered.size())) == load<le32>(stored);
}

bool header_matches(const std::uint8_t* header)
{
    return crc32_matches({header, efs::header_crc_bytes}, header + efs::header_crc_bytes);
}

bool all_zero(std::span<const std::uint8_t> bytes)
{
    return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t b) { return b == 0; });
}

// One reading of an image, step by step.
class efs_reader {
public:
    explicit efs_reader(efs_picture& p) : p_(p), geo_(p.plan.geo) {}

    void read()
    {
        check_plan();
        if (!image_fits()) return;
        read_maps();
        choose_map();
        if (!read_entry_in_force()) return;
        read_blocks();
        read_files();
    }

private:
    const std::uint8_t* at(std::uint32_t address) const { return p_.image.data() + address; }
    std::span<const std::uint8_t> bytes(std::uint32_t address, std::uint32_t length) const
    {
        return p_.image.subspan(address, length);
    }
    void add(finding f) { p_.findings.push_back(f); }

    bool image_fits()
    {
        const bool fits = geo_.representable() && geo_.bm_num != 0 && geo_.image_bytes() <= p_.image.size();
        if (!fits) add({.id = finding_id::efs_image_size, .value = low32(p_.image.size())});
        return fits;
    }

    // ---- The table of files, by itself ----

    struct extent {
        std::uint32_t block, from, to, file;
    };

    void check_plan()
    {
        std::vector<extent> extents;
        for (std::uint32_t file = 0; file < p_.plan.files.size(); ++file) {
            const efs_file_t entry = p_.plan.files[file];
            if ((entry.flags & efs::file_in_use) == 0) continue;
            if (entry.offset > chunk_room || entry.first_block >= geo_.valid_block_num) {
                add({.id = finding_id::efs_file_place, .file = file, .value = entry.offset});
                continue;
            }
            list_extents(entry, file, extents);
        }
        report_overlaps(extents);
    }

    void list_extents(const efs_file_t& entry, std::uint32_t file, std::vector<extent>& extents)
    {
        constexpr std::uint32_t header = sizeof(efs::efs_chunk_header_t);
        std::uint32_t left = entry.max_size;
        std::uint32_t from = entry.offset;
        std::uint32_t block = entry.first_block;
        for (bool first = true; first || left != 0; first = false, from = 0, ++block) {
            const std::uint32_t payload = std::min(left, chunk_room - from);
            if (block >= geo_.valid_block_num) {
                add({.id = finding_id::efs_file_beyond, .file = file, .value = entry.max_size});
                break;
            }
            extents.push_back({block, from, from + header + payload, file});
            left -= payload;
        }
        const std::uint32_t needed = (entry.max_size + chunk_room + 3U + entry.offset) / chunk_room;
        if (needed > geo_.non_valid_block_num) {
            add({.id = finding_id::efs_file_above_spares, .file = file, .value = needed});
        }
    }

    void report_overlaps(std::vector<extent>& extents)
    {
        std::sort(extents.begin(), extents.end(), [](const extent& a, const extent& b) {
            return a.block != b.block ? a.block < b.block : a.from < b.from;
        });
        std::uint32_t reach = 0;
        std::uint32_t holder = none;
        for (std::size_t i = 0; i < extents.size(); ++i) {
            const extent& e = extents[i];
            if (i == 0 || extents[i - 1].block != e.block) reach = 0;
            if (e.from < reach) add({.id = finding_id::efs_file_overlap, .file = e.file, .value = holder});
            if (e.to > reach) {
                reach = e.to;
                holder = e.file;
            }
        }
    }

    // ---- Block maps ----

    std::uint32_t slot_at(std::uint32_t bm, std::uint32_t slot) const
    {
        return efs::geometry::bm_at(bm) + efs::first_slot_at + slot * geo_.bme_bytes();
    }
    bool slot_blank(std::uint32_t bm, std::uint32_t slot) const
    {
        return all_blank(bytes(slot_at(bm, slot), geo_.bme_bytes()));
    }
    bool slot_sound(std::uint32_t bm, std::uint32_t slot) const
    {
        const auto entry = bytes(slot_at(bm, slot), geo_.bme_bytes());
        const std::size_t covered = entry.size() - sizeof(le32);
        return crc32_matches(entry.first(covered), entry.data() + covered);
    }

    bm_state state_of(std::uint32_t bm, const bm_view& view) const
    {
        const auto header = bytes(efs::geometry::bm_at(bm), sizeof(efs::efs_bm_header_t));
        if (all_blank(header)) return view.slots_written != 0 ? bm_state::prepared : bm_state::blank;
        if (all_zero(header)) return bm_state::retired;
        if (!header_matches(header.data())) {
            const bool marked = std::memcmp(header.data(), efs::rtfd_marker, sizeof efs::rtfd_marker) == 0;
            return marked ? bm_state::marked : bm_state::unsound;
        }
        const auto& h = view.header;
        const bool ours = h.bm_num == geo_.bm_num && h.valid_block_num == geo_.valid_block_num &&
                          h.non_valid_block_num == geo_.non_valid_block_num && h.layout_id == p_.plan.layout_id;
        return ours ? bm_state::superseded : bm_state::foreign; // the one in force is chosen later
    }

    void read_maps()
    {
        const std::uint32_t slots = (block_bytes - 1 - efs::first_slot_at) / geo_.bme_bytes();
        for (std::uint32_t bm = 0; bm < geo_.bm_num; ++bm) {
            bm_view view;
            view.slots = slots;
            view.header = load<efs::efs_bm_header_t>(at(efs::geometry::bm_at(bm)));
            while (view.slots_written < slots && !slot_blank(bm, view.slots_written)) ++view.slots_written;
            view.state = state_of(bm, view);
            p_.bms.push_back(view);
        }
    }

    void choose_map()
    {
        for (std::uint32_t bm = 0; bm < geo_.bm_num; ++bm) {
            const bm_view& view = p_.bms[bm];
            const bool sound = view.state == bm_state::superseded;
            if (sound && p_.current_bm != none && view.header.sequence == p_.sequence)
                add({.id = finding_id::bm_same_sequence, .bm = bm, .value = p_.sequence});
            if (!sound || view.header.sequence <= p_.sequence) continue;
            p_.sequence = view.header.sequence;
            p_.current_bm = bm;
        }
        if (p_.current_bm != none) p_.bms[p_.current_bm].state = bm_state::current;
        for (std::uint32_t bm = 0; bm < geo_.bm_num; ++bm) report_map(bm);
        if (p_.current_bm == none) add({.id = finding_id::bm_none});
    }

    void report_map(std::uint32_t bm)
    {
        const std::uint32_t address = efs::geometry::bm_at(bm);
        const bm_view& view = p_.bms[bm];
        const std::uint32_t start = load<le32>(at(address));
        switch (view.state) {
        case bm_state::foreign:
            return add({.id = finding_id::bm_foreign, .address = address, .bm = bm});
        case bm_state::unsound:
            return add({.id = finding_id::bm_unsound, .address = address, .bm = bm, .value = start});
        case bm_state::marked:
            return add({.id = finding_id::bm_marked, .address = address, .bm = bm});
        case bm_state::superseded:
            return add({.id = finding_id::bm_superseded, .address = address, .bm = bm, .value = view.header.sequence});
        case bm_state::prepared:
            return add({.id = finding_id::bm_prepared, .address = address, .bm = bm});
        default:
            return;
        }
    }

    bool read_entry_in_force()
    {
        if (p_.current_bm == none || p_.has(finding_id::bm_foreign)) return false;
        const std::uint32_t bm = p_.current_bm;
        const bm_view& view = p_.bms[bm];
        report_old_entries(bm, view);

        std::uint32_t slot = view.slots_written != 0 ? view.slots_written - 1 : 0;
        if (!slot_sound(bm, slot)) {
            if (slot == 0 || !slot_sound(bm, slot - 1)) {
                add({.id = finding_id::bme_none, .address = slot_at(bm, slot), .bm = bm, .value = slot});
                return false;
            }
            add({.id = finding_id::bme_torn, .address = slot_at(bm, slot), .bm = bm, .value = slot});
            --slot;
        }
        p_.current_slot = slot;
        return take_tables(bm, slot);
    }

    void report_old_entries(std::uint32_t bm, const bm_view& view)
    {
        for (std::uint32_t slot = 0; slot + 1 < view.slots_written; ++slot) {
            if (slot_sound(bm, slot)) continue;
            add({.id = finding_id::bme_old_unsound, .address = slot_at(bm, slot), .bm = bm, .value = slot});
        }
        for (std::uint32_t slot = view.slots_written; slot < view.slots; ++slot) {
            if (slot_blank(bm, slot)) continue;
            add({.id = finding_id::bme_behind_end, .address = slot_at(bm, slot), .bm = bm, .value = slot});
            return;
        }
    }

    bool take_tables(std::uint32_t bm, std::uint32_t slot)
    {
        const auto entry = bytes(slot_at(bm, slot), geo_.bme_bytes());
        std::array<bool, 256> seen{};
        for (std::uint32_t i = 0; i < geo_.data_blocks(); ++i) {
            const std::uint8_t block = entry[i];
            if (block >= geo_.data_blocks() || seen[block]) {
                add({.id = finding_id::bme_tables,
                     .address = slot_at(bm, slot) + i,
                     .block = block,
                     .bm = bm,
                     .value = slot});
                return false;
            }
            seen[block] = true;
        }
        const auto valid = entry.first(geo_.valid_block_num);
        const auto spares = entry.subspan(geo_.valid_block_num, geo_.non_valid_block_num);
        p_.valid_table.assign(valid.begin(), valid.end());
        p_.non_valid_table.assign(spares.begin(), spares.end());
        p_.has_map = true;
        return true;
    }

    // ---- Data blocks ----

    void read_blocks()
    {
        p_.blocks.resize(geo_.data_blocks());
        for (std::uint32_t logical = 0; logical < geo_.valid_block_num; ++logical) {
            const std::uint32_t block = p_.valid_table[logical];
            block_view& view = p_.blocks[block];
            view.role = block_role::in_use;
            view.logical = logical;
            read_header(block);
            if (!view.header_sound) {
                add({.id = finding_id::block_header, .address = geo_.data_block_at(block), .block = block});
            }
            check_footer(block);
        }
        for (const std::uint32_t block : p_.non_valid_table) read_spare(block);
        report_spares();
        report_wear();
    }

    void read_header(std::uint32_t block)
    {
        const std::uint8_t* const header = at(geo_.data_block_at(block));
        block_view& view = p_.blocks[block];
        view.header_sound = header_matches(header);
        view.erase_count = load<efs::efs_block_header_t>(header).erase_count;
    }

    void check_footer(std::uint32_t block)
    {
        const std::uint32_t address = geo_.data_block_at(block);
        constexpr std::uint32_t area_at = offsetof(efs::data_block_t, data_area);
        constexpr std::uint32_t footer_at = offsetof(efs::data_block_t, footer);
        if (crc32_matches(bytes(address + area_at, data_area_bytes), at(address + footer_at))) return;
        add({.id = finding_id::block_footer,
             .address = address + footer_at,
             .block = block,
             .value = load<le32>(at(address + footer_at))});
    }

    void read_spare(std::uint32_t block)
    {
        read_header(block);
        block_view& view = p_.blocks[block];
        constexpr std::uint32_t header = sizeof(efs::efs_block_header_t);
        const bool blank = all_blank(bytes(geo_.data_block_at(block) + header, block_bytes - header));
        const bool free = view.header_sound && blank;
        view.role = free ? block_role::spare_free : block_role::spare_dirty;
        ++(free ? p_.free_spares : p_.dirty_spares);
    }

    void report_spares()
    {
        std::uint32_t unsound = 0;
        for (const std::uint32_t block : p_.non_valid_table) {
            if (p_.blocks[block].header_sound) continue;
            const finding_id id = ++unsound > 1 ? finding_id::spare_headers : finding_id::spare_header;
            add({.id = id, .address = geo_.data_block_at(block), .block = block});
        }
    }

    void report_wear()
    {
        std::uint32_t lowest = none;
        for (const block_view& view : p_.blocks) {
            if (!view.header_sound) continue;
            lowest = std::min(lowest, view.erase_count);
            p_.highest_count = std::max(p_.highest_count, view.erase_count);
        }
        p_.lowest_count = lowest != none ? lowest : 0;
        const std::uint32_t spread = p_.highest_count - p_.lowest_count;
        // A move lags behind by the erases of one write, so twice the threshold is still in order.
        if (lowest != none && p_.plan.wear_threshold != 0 && spread / 2 > p_.plan.wear_threshold)
            add({.id = finding_id::efs_erase_spread, .value = spread});
    }

    // ---- Files ----

    void read_files()
    {
        p_.files.resize(p_.plan.files.size());
        for (std::uint32_t file = 0; file < p_.plan.files.size(); ++file) {
            const efs_file_t entry = p_.plan.files[file];
            const bool placed = entry.offset <= chunk_room && entry.first_block < geo_.valid_block_num;
            if ((entry.flags & efs::file_in_use) != 0 && placed) read_one(file, entry);
        }
    }

    bool chunk_matches(std::uint32_t logical, std::uint32_t offset, std::uint32_t payload) const
    {
        const std::uint8_t* const chunk = at(p_.data_area_at(logical) + offset);
        const auto header = load<efs::efs_chunk_header_t>(chunk);
        const std::uint16_t of_length = EFS_crc16(low16(logical), header.length.byte, sizeof header.length);
        return EFS_crc16(of_length, chunk + sizeof header, payload) == header.crc;
    }

    void read_one(std::uint32_t file, const efs_file_t& entry)
    {
        efs_file_view& view = p_.files[file];
        view.state = efs_file_state::damaged;
        view.blocks = 1;
        const std::uint32_t first_at = p_.data_area_at(entry.first_block) + entry.offset;
        const std::uint32_t length = load<efs::efs_chunk_header_t>(at(first_at)).length;
        const bool exists = length != efs::no_file;
        const std::uint32_t first_room = chunk_room - entry.offset;
        if (!chunk_matches(entry.first_block, entry.offset, exists ? std::min(length, first_room) : 0)) {
            return add({.id = finding_id::efs_chunk_crc, .address = first_at, .file = file, .value = 0});
        }
        if (!exists) {
            view.state = efs_file_state::absent;
            return;
        }
        view.size = length;
        if (length > entry.max_size) {
            return add({.id = finding_id::efs_file_size, .address = first_at, .file = file, .value = length});
        }
        if (check_continuation(file, entry, length)) view.state = efs_file_state::present;
    }

    bool check_continuation(std::uint32_t file, const efs_file_t& entry, std::uint32_t size)
    {
        std::uint32_t done = std::min(size, chunk_room - entry.offset);
        for (std::uint32_t j = 1; done < size; ++j) {
            const std::uint32_t logical = entry.first_block + j;
            if (logical >= geo_.valid_block_num) {
                add({.id = finding_id::efs_file_size, .file = file, .value = size});
                return false;
            }
            const std::uint32_t payload = std::min(size - done, chunk_room);
            if (!chunk_matches(logical, 0, payload)) {
                add({.id = finding_id::efs_chunk_crc, .address = p_.data_area_at(logical), .file = file, .value = j});
                return false;
            }
            done += payload;
            ++p_.files[file].blocks;
        }
        return true;
    }

    efs_picture& p_;
    efs::geometry geo_;
};

} // namespace

efs_plan loaded_efs_plan()
{
    efs_plan plan;
    plan.geo = {g_efs_bm_num, g_efs_valid_block_num, g_efs_non_valid_block_num};
    plan.layout_id = g_efs_layout_id;
    plan.wear_threshold = g_efs_wear_leveling_threshold;
    if (EFS_files != nullptr) plan.files.assign(EFS_files, EFS_files + g_efs_files_num);
    return plan;
}

bool efs_picture::has(finding_id id) const
{
    return std::any_of(findings.begin(), findings.end(), [id](const finding& f) { return f.id == id; });
}

severity efs_picture::worst() const
{
    severity out = severity::info;
    for (const finding& f : findings) out = std::max(out, severity_of(f));
    return out;
}

std::uint32_t efs_picture::data_area_at(std::uint32_t logical_block) const
{
    return plan.geo.data_block_at(valid_table[logical_block]) +
           static_cast<std::uint32_t>(offsetof(efs::data_block_t, data_area));
}

efs_picture inspect_efs(std::span<const std::uint8_t> image, efs_plan plan)
{
    efs_picture p;
    p.image = image;
    p.plan = std::move(plan);
    efs_reader(p).read();
    return p;
}

std::optional<std::vector<std::uint8_t>> read_file(const efs_picture& from, std::uint32_t file_index)
{
    if (file_index >= from.files.size() || from.files[file_index].state != efs_file_state::present) return std::nullopt;
    const efs_file_t entry = from.plan.files[file_index];
    std::vector<std::uint8_t> out(from.files[file_index].size);
    std::size_t done = 0;
    std::uint32_t offset = entry.offset;
    for (std::uint32_t logical = entry.first_block; done < out.size(); ++logical, offset = 0) {
        const std::size_t part = std::min<std::size_t>(efs::chunk_room - offset, out.size() - done);
        const std::uint8_t* const payload =
            from.image.data() + from.data_area_at(logical) + offset + sizeof(efs::efs_chunk_header_t);
        std::copy_n(payload, part, out.begin() + static_cast<std::ptrdiff_t>(done));
        done += part;
    }
    return out;
}

} // namespace yfs::inspect
