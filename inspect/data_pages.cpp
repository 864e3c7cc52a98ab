// Pages of the data area: what their records say against what the files need, and the space that is left.
#include "inspect/inspect_internal.h"

namespace yfs::inspect {

namespace {

using namespace ftl;

// Occurrences of one kind in a unit, reported once with the first place.
struct tally {
    std::uint32_t slots = 0, first = none;
    void add(std::uint32_t slot)
    {
        if (slots++ == 0) first = slot;
    }
};

void check_unit(picture& p, std::uint32_t i)
{
    erase_unit& eu = p.eus[i];
    eu.slots.assign(data_slots, {});
    tally begun, dead, odd, unrecorded;
    for (std::uint32_t k = 0; k < data_slots; ++k) {
        slot_view& slot = eu.slots[k];
        const std::uint32_t at = eu_at(i), index = eu.group * data_slots + k;
        const std::uint32_t frame_at = at + data_frame_at(k);
        const std::uint8_t record = p.image[at + data_record_at(k)];
        slot.page = eu.header.base_page + k;
        const bool in_volume = eu.group != none && index < p.chunks;
        const std::uint32_t file = in_volume ? p.chunk_file[index] : none;
        if (file != none) {
            slot.state = slot_state::live;
            finding f{.id = finding_id::chunk_record,
                      .address = at + data_record_at(k),
                      .eu = i,
                      .slot = k,
                      .page = slot.page,
                      .file = file,
                      .chunk = p.files + index};
            if (record != data_rec_complete) {
                f.value = record;
            } else if (!frame_matches(p.image.data() + frame_at, slot.page)) {
                f.id = finding_id::chunk_crc;
                f.address = frame_at;
                f.value = load<le16>(p.image.data() + frame_at + offsetof(page_frame_t, crc));
            } else {
                continue;
            }
            p.findings.push_back(f);
            p.file[file].damaged = true;
            continue;
        }
        if (record == data_rec_free) {
            slot.state = in_volume ? slot_state::blank : slot_state::unreachable;
            if (!all_blank(p.image.subspan(frame_at, frame_size))) unrecorded.add(k);
        } else {
            slot.state = record == data_rec_complete ? slot_state::stale : slot_state::torn;
            (record == data_rec_complete ? dead : record == data_rec_begun ? begun : odd).add(k);
        }
    }
    const auto report = [&](const tally& t, finding_id id, std::uint32_t address) {
        if (t.slots != 0)
            p.findings.push_back({.id = id, .address = eu_at(i) + address, .eu = i, .slot = t.first, .value = t.slots});
    };
    report(begun, finding_id::data_slots_begun, data_record_at(begun.first));
    report(dead, finding_id::data_slots_dead, data_record_at(dead.first));
    report(odd, finding_id::data_record_odd, data_record_at(odd.first));
    report(unrecorded, finding_id::frame_unrecorded, data_frame_at(unrecorded.first));
}

void check_unowned(picture& p)
{
    std::uint32_t unused = 0, first = none;
    for (std::uint32_t group = 0; group < p.groups; ++group) {
        if (p.group_owner[group] != none) continue;
        bool used = false;
        for (std::uint32_t index = group * data_slots; index < p.chunks && index < (group + 1) * data_slots; ++index) {
            const std::uint32_t file = p.chunk_file[index];
            if (file == none) continue;
            p.file[file].damaged = true;
            if (!used)
                p.findings.push_back({.id = finding_id::group_no_owner,
                                      .page = p.fat_size / page_bytes + index,
                                      .file = file,
                                      .chunk = p.files + index,
                                      .value = group});
            used = true;
        }
        if (used) continue;
        if (unused++ == 0) first = p.files + group * data_slots;
    }
    if (unused != 0) p.findings.push_back({.id = finding_id::group_unowned, .chunk = first, .value = unused});
}

void count_space(picture& p)
{
    for (std::uint32_t i = 0; i < p.eus.size(); ++i) {
        erase_unit& eu = p.eus[i];
        for (const slot_view& slot : eu.slots) {
            switch (slot.state) {
            case slot_state::live:
                ++eu.live;
                break;
            case slot_state::stale:
                ++eu.stale;
                break;
            case slot_state::torn:
            case slot_state::lost:
                ++eu.torn;
                break;
            case slot_state::blank:
                ++eu.free;
                break;
            case slot_state::unreachable:
                break;
            }
        }
        if (eu.role == eu_role::log) {
            // Slots that the walk passed over untouched are as good as torn; free are those from the log's end on.
            eu.free = i == p.log_eu || eu.log_end == 0 ? log_slots - eu.log_end : 0;
            p.space.log_slots_now += eu.free;
            p.space.log_slots_after_reclaim += log_slots - eu.live;
        } else if (eu.group != none) {
            p.space.chunks_now += eu.free;
            p.space.chunks_after_reclaim += eu.free + eu.stale + eu.torn;
        }
    }
}

} // namespace

void check_data(picture& p)
{
    for (std::uint32_t i = 0; i < p.eus.size(); ++i)
        if (p.eus[i].role == eu_role::data) check_unit(p, i);
    check_unowned(p);
    count_space(p);
}

} // namespace yfs::inspect
