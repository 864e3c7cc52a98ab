// The volume header, the chain table as it reads, and the groups of the data area.
#include "inspect/inspect_internal.h"

#include "yfs/medium.h"

#include <algorithm>

namespace yfs::inspect {

using namespace ftl;

bool read_volume(picture& p, const std::vector<page_place>& places)
{
    const page_place at = places.empty() ? page_place{} : places[0];
    const auto report = [&](finding_id id, std::uint32_t value) {
        const std::uint32_t address = at.eu == none ? none : eu_at(at.eu) + log_frame_at(at.slot);
        p.findings.push_back({.id = id, .address = address, .eu = at.eu, .slot = at.slot, .page = 0, .value = value});
        return false;
    };
    if (at.eu == none) return report(finding_id::volume_header_missing, none);
    p.header = load<afs::volume_header_t>(p.image.data() + eu_at(at.eu) + log_frame_at(at.slot));
    if (p.header.magic != afs::volume_magic) return report(finding_id::volume_header_missing, p.header.magic);

    const std::uint32_t files = p.header.files, volume_size = p.header.volume_size;
    const std::uint64_t chunks = afs::chunks_of(volume_size, files);
    const std::uint64_t fat_size = afs::fat_size_of(files, chunks);
    if (fat_size > volume_size || volume_size > p.image.size())
        return report(finding_id::volume_header_size, volume_size);
    if (files < afs::min_files || files + chunks > 0xFFFE) return report(finding_id::volume_header_files, files);
    if (p.header.zero != 0 || (p.header.field12_high & 0xF0U) != 0)
        report(finding_id::volume_header_bytes, load<le32>(&p.header.byte4));

    p.has_volume = true;
    p.files = files;
    p.volume_size = volume_size;
    p.chunks = low32(chunks);
    p.fat_size = low32(fat_size);
    p.groups = (p.chunks + data_slots - 1) / data_slots;
    return true;
}

void read_fat(picture& p, std::vector<page_place> places)
{
    const std::uint32_t pages = p.fat_size / page_bytes;
    for (std::uint32_t i = 0; i < p.eus.size(); ++i) {
        if (p.eus[i].role != eu_role::log) continue;
        for (std::uint32_t k = 0; k < p.eus[i].slots.size(); ++k) {
            const std::uint32_t page = p.eus[i].slots[k].page;
            if (page == none || page < pages) continue;
            const std::uint32_t at = eu_at(i) + log_record_at(k);
            p.findings.push_back({.id = finding_id::log_record_range,
                                  .address = at,
                                  .eu = i,
                                  .slot = k,
                                  .page = page,
                                  .value = load<le16>(p.image.data() + at)});
        }
    }
    places.resize(pages); // the table fits the flash, so this only shortens
    p.fat_pages = std::move(places);
    p.fat.assign(p.fat_size, 0);
    for (std::uint32_t page = 0; page < pages; ++page) {
        const page_place place = p.fat_pages[page];
        if (place.eu == none) continue; // never written: reads as zeros
        p.eus[place.eu].slots[place.slot].state = slot_state::live;
        const std::uint32_t at = eu_at(place.eu) + log_frame_at(place.slot);
        const std::uint8_t* frame = p.image.data() + at;
        std::copy_n(frame, page_bytes, p.fat.begin() + page * page_bytes);
        if (frame_matches(frame, page)) continue;
        p.findings.push_back({.id = finding_id::fat_page_crc,
                              .address = at,
                              .eu = place.eu,
                              .slot = place.slot,
                              .page = page,
                              .value = load<le16>(frame + offsetof(page_frame_t, crc))});
    }
}

void assign_groups(picture& p)
{
    p.group_owner.assign(p.groups, none);
    const std::uint32_t first_page = p.fat_size / page_bytes;
    for (std::uint32_t i = 0; i < p.eus.size(); ++i) {
        erase_unit& eu = p.eus[i];
        if (eu.role != eu_role::data) continue;
        const std::uint32_t base = eu.header.base_page;
        const auto report = [&](finding_id id, std::uint32_t value) {
            const auto at = low32(eu_at(i) + offsetof(eu_header_t, base_page));
            p.findings.push_back({.id = id, .address = at, .eu = i, .value = value});
        };
        const std::uint32_t group = base < first_page ? p.groups : (base - first_page) / data_slots;
        if (group >= p.groups) {
            report(finding_id::group_outside, base);
        } else if ((base - first_page) % data_slots != 0) {
            report(finding_id::group_off_grid, base);
        } else if (p.group_owner[group] != none) {
            report(finding_id::group_two_owners, p.group_owner[group]);
        } else {
            p.group_owner[group] = i;
            eu.group = group;
        }
    }
}

} // namespace yfs::inspect
