// The changes that are made to a volume: bytes anywhere, and the records by which a mount finds its way.
#include "fuzz/patched.h"

#include "afs/volume_layout.h"
#include "ftl/flash_io.h"
#include "ftl/ftl_internal.h"
#include "fuzz/sound.h"
#include "fuzz/steps.h"
#include "yfs/dfs.h"
#include "yfs/make_volume.h"

#include <utility>

namespace fuzz {

using namespace yfs;

namespace {

constexpr std::uint32_t most_units = 5;

struct base_volume {
    bytes image;
    std::vector<std::uint32_t> log_page;      // by unit and slot: the page that the record names; else none
    std::vector<std::uint32_t> place_of_page; // by page of the chain table: unit and slot of its newest copy; else none
};

std::size_t place(std::uint32_t unit, std::uint32_t slot)
{
    return std::size_t{unit} * ftl::log_slots + slot;
}

// `image` has just been made and mounted: its logs hold nothing torn.
base_volume taken_from(bytes image)
{
    base_volume base{std::move(image), std::vector<std::uint32_t>(most_units * ftl::log_slots, ftl::none), {}};
    const ftl_context& ftl = *dfs_context->ftl;
    for (std::uint32_t unit = 0; unit < ftl.eu_count; ++unit) {
        if (ftl::is_data_eu(ftl, unit)) continue;
        const std::uint8_t* const eu = base.image.data() + std::size_t{unit} * ftl::eu_size;
        std::uint16_t page = 0;
        for (std::uint32_t slot = 0; slot < ftl::log_slots; ++slot) {
            if (!ftl::commits_slot_before(load<le16>(eu + ftl::log_record_at(slot + 1)))) break;
            page = ftl::log_record(page, load<le16>(eu + ftl::log_record_at(slot)));
            base.log_page[place(unit, slot)] = page;
        }
    }
    for (std::uint32_t page = 0; page < ftl.page_entries; ++page) {
        const ftl_page_entry at = ftl.page_map[page];
        base.place_of_page.push_back(at.slot < ftl::log_slots ? low32(place(at.eu, at.slot)) : ftl::none);
    }
    return base;
}

bytes fresh_volume(std::uint32_t units)
{
    bytes image(std::size_t{units} * ftl::eu_size);
    must(yfs_make_volume(image.data(), low32(image.size()), 65) == 0);
    must(dfs_init(image.data(), low32(image.size())) == 0);
    return image;
}

void put(std::uint32_t file, const bytes& content)
{
    must(dfs_write(file, 0, low32(content.size()), content.data(), 1) == 0);
}

base_volume make_base_volume(std::uint32_t units)
{
    bytes image = fresh_volume(units);
    for (unsigned i = 0; i < units * 30; ++i) put(i % 12, some_bytes(20 * (i % 23), i));
    put(20, {});
    put(64, some_bytes(64, 5));
    must(dfs_mark_zombie_file(21) == 0);
    return taken_from(std::move(image));
}

base_volume make_host_volume()
{
    bytes image = fresh_volume(4);
    put(1, some_bytes(3, 7));
    put(2, some_bytes(9, 5));
    put(3, some_bytes(6, 2));
    put(4, some_bytes(70, 3));
    put(5, {});
    return taken_from(std::move(image));
}

const base_volume& host_volume()
{
    static const base_volume base = make_host_volume();
    return base;
}

class changed_volume {
public:
    explicit changed_volume(const base_volume& base) : base_(base), image(base.image), log_page_(base.log_page) {}

    void take(input& in)
    {
        const std::uint32_t what = in.number(1);
        fits_ = (what & 0x80U) == 0;
        switch (what % 9) {
        case 0:
            return any_bytes(in);
        case 1:
            return unit_header(in);
        case 2:
            return log_record(in);
        case 3:
            return volume_header(in);
        case 4:
            return data_record(in);
        case 5:
            return copy_part(image, in, ftl::eu_size);
        case 6:
            return fill_stretch(image, in, ftl::eu_size);
        default:
            return chain_entry(in);
        }
    }

    // So that `left` more numbers are left, in all units by the same step.
    void lift_counters(std::uint32_t left, bool sequence, bool erase_count)
    {
        std::uint32_t highest_seq = 0, highest_count = 0;
        for_headers([&](ftl::eu_header_t& header) {
            highest_seq = std::max<std::uint32_t>(highest_seq, header.seq);
            highest_count = std::max<std::uint32_t>(highest_count, header.erase_count);
        });
        for_headers([&](ftl::eu_header_t& header) {
            if (sequence) header.seq = header.seq + (UINT32_MAX - left - highest_seq);
            if (erase_count) header.erase_count = header.erase_count + (UINT32_MAX - left - highest_count);
        });
    }

private:
    std::uint32_t units() const { return low32(base_.image.size() / ftl::eu_size); }
    std::uint8_t* unit(std::uint32_t index) { return image.data() + std::size_t{index} * ftl::eu_size; }

    static void seal(std::uint8_t* eu)
    {
        auto header = load<ftl::eu_header_t>(eu);
        header.crc = ftl::header_crc(header);
        store(eu, header);
    }
    void seal_frame(std::uint8_t* frame, std::uint32_t page) const
    {
        if (fits_ && page != ftl::none) store(frame + ftl::page_bytes, le16(ftl::page_crc(frame, page)));
    }
    template <typename Change>
    void for_headers(Change change)
    {
        for (std::uint32_t i = 0; i < units(); ++i) {
            auto header = load<ftl::eu_header_t>(unit(i));
            change(header);
            store(unit(i), header);
            seal(unit(i));
        }
    }

    void any_bytes(input& in)
    {
        const std::uint32_t at = in.number(2) % low32(image.size());
        put_bytes(at, in.bytes(in.number(1) % 8 + 1));
    }
    void put_bytes(std::uint32_t at, const bytes& change)
    {
        overwrite(image, at, change);
        std::uint8_t* const eu = unit(at / ftl::eu_size);
        const std::uint32_t index = at / ftl::eu_size, offset = at % ftl::eu_size;
        const std::uint16_t base_page = load<ftl::eu_header_t>(eu).base_page;
        if (offset < sizeof(ftl::eu_header_t)) {
            if (fits_) seal(eu);
        } else if (base_page == 0 && offset >= ftl::log_frame_at(0)) {
            const std::uint32_t slot = (offset - ftl::log_frame_at(0)) / ftl::frame_size;
            if (slot < ftl::log_slots) seal_frame(eu + ftl::log_frame_at(slot), log_page_[place(index, slot)]);
        } else if (base_page != 0 && offset >= ftl::data_frame_at(0)) {
            const std::uint32_t slot = (offset - ftl::data_frame_at(0)) / ftl::frame_size;
            seal_frame(eu + ftl::data_frame_at(slot), base_page + slot);
        }
    }

    // A word of it, or the commit byte.
    void unit_header(input& in)
    {
        constexpr std::pair<std::uint32_t, std::uint32_t> fields[] = {{0, 4},  {4, 4},  {8, 4},
                                                                      {12, 2}, {14, 2}, {17, 1}};
        std::uint8_t* const eu = unit(in.number(1) % units());
        const auto [at, size] = fields[in.number(1) % std::size(fields)];
        const bytes value = in.bytes(size);
        std::copy(value.begin(), value.end(), eu + at);
        if (fits_) seal(eu);
    }

    // Lets a slot hold another page, with the record behind it still telling the same.
    void log_record(input& in)
    {
        const std::uint32_t index = in.number(1) % units(), slot = in.number(1) % ftl::log_slots;
        const std::uint32_t page = in.number(2);
        std::uint8_t* const eu = unit(index);
        if (!fits_) return store(eu + ftl::log_record_at(slot), le16(low16(page)));
        const std::uint32_t before = slot == 0 ? 0 : log_page_[place(index, slot - 1)];
        store(eu + ftl::log_record_at(slot), le16(ftl::log_record(low16(before), low16(page))));
        seal_frame(eu + ftl::log_frame_at(slot), page);
        log_page_[place(index, slot)] = page;
        const std::uint32_t behind = slot + 1 < ftl::log_slots ? log_page_[place(index, slot + 1)] : ftl::none;
        if (behind != ftl::none) {
            store(eu + ftl::log_record_at(slot + 1), le16(ftl::log_record(low16(page), low16(behind))));
        }
    }

    // Bytes of the table that a mount reads as the newest.
    void table_bytes(std::uint32_t at, const bytes& change)
    {
        for (std::size_t i = 0; i < change.size(); ++i) {
            const std::size_t va = at + i, page = va / ftl::page_bytes;
            if (page >= base_.place_of_page.size() || base_.place_of_page[page] == ftl::none) return;
            const std::uint32_t where = base_.place_of_page[page];
            std::uint8_t* const frame = unit(where / ftl::log_slots) + ftl::log_frame_at(where % ftl::log_slots);
            frame[va % ftl::page_bytes] = change[i];
            seal_frame(frame, low32(page));
        }
    }
    void chain_entry(input& in)
    {
        const std::uint32_t entry = in.number(2) % (65 + 122 * (units() - 3));
        table_bytes(afs::fat_entry_at(entry), in.bytes(2));
    }
    void volume_header(input& in)
    {
        const std::uint32_t at = in.number(1) % sizeof(afs::volume_header_t);
        table_bytes(at, in.bytes(at == 8 ? 4 : 2));
    }

    void data_record(input& in)
    {
        std::uint8_t* const eu = unit(in.number(1) % units());
        eu[ftl::data_record_at(in.number(1) % ftl::data_slots)] = static_cast<std::uint8_t>(in.number(1));
    }

    const base_volume& base_;

public:
    bytes image;

private:
    std::vector<std::uint32_t> log_page_;
    bool fits_ = true;
};

bytes changed(const base_volume& base, input& in)
{
    const std::uint32_t how = in.number(1);
    changed_volume volume(base);
    for (std::uint32_t count = how / 16; count != 0 && !in.empty(); --count) volume.take(in);
    if ((how & 6U) != 0) volume.lift_counters(in.number(1), (how & 2U) != 0, (how & 4U) != 0);
    if ((how & 8U) != 0) {
        const std::uint32_t length = in.number(2);
        set_length(volume.image, length % (base.image.size() + 2 * ftl::eu_size));
    }
    return std::move(volume.image);
}

} // namespace

bytes patched_volume(input& in)
{
    static const base_volume bases[] = {make_base_volume(4), make_base_volume(5)};
    return changed(bases[in.number(1) % 2], in);
}

bytes patched_host_volume(input& in)
{
    return changed(host_volume(), in);
}

const bytes& host_volume_image()
{
    return host_volume().image;
}

} // namespace fuzz
