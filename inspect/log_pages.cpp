// The records of the log units: which slot holds which page, which copy of a page is the newest, where the log ends.
#include "inspect/inspect_internal.h"

#include "yfs/medium.h"

#include <algorithm>

namespace yfs::inspect {

namespace {

using namespace ftl;

struct log_reader {
    picture& p;
    std::uint32_t i;          // the unit
    std::uint32_t page_limit; // behind the last page that any chain table on this flash could have
    erase_unit& eu = p.eus[i];
    log_eu_t raw = load<log_eu_t>(p.image.data() + eu_at(i));
    bool blank = raw.rec[0] == log_rec_untouched;

    void report(finding_id id, std::uint32_t slot, std::uint32_t address, std::uint32_t value) const
    {
        p.findings.push_back({.id = id, .address = eu_at(i) + address, .eu = i, .slot = slot, .value = value});
    }
    void walk();
    void check_rest(std::uint32_t from, bool takes_writes);
};

// The walk of a mount: up to the first untouched record behind a committed slot. A slot without its commit takes the
// next one with it, whose top bit may be half programmed.
void log_reader::walk()
{
    eu.slots.assign(log_slots, {});
    std::uint16_t previous = 0;
    std::uint32_t k = 0;
    bool ended = blank;
    eu.log_end = 0;
    while (!ended && k < log_slots) {
        const std::uint16_t record = raw.rec[k], next = raw.rec[k + 1];
        if (!commits_slot_before(next)) {
            if (record == log_rec_untouched) {
                ++k;
                continue;
            }
            report(finding_id::log_slot_torn, k, log_record_at(k), record);
            eu.slots[k].state = slot_state::torn;
            if (k + 1 < log_slots) eu.slots[k + 1].state = slot_state::lost;
            k += 2;
            eu.log_end = std::min(k, log_slots);
            continue;
        }
        const le16 key = previous;
        const std::uint16_t page = low16(crc14(&key, sizeof key) ^ record);
        eu.slots[k].state = slot_state::stale; // the newest copies become live once all units are known
        if (page < page_limit)
            eu.slots[k].page = page;
        else
            report(finding_id::log_record_range, k, log_record_at(k), record);
        previous = page;
        ++k;
        eu.log_end = k;
        ended = next == log_rec_end;
    }
}

// What stands behind the end: nothing should. `takes_writes`: the next writes go there.
void log_reader::check_rest(std::uint32_t from, bool takes_writes)
{
    for (std::uint32_t k = from; k <= log_slots; ++k) {
        const std::uint16_t record = raw.rec[k];
        const bool is_end_mark = k == eu.log_end && record == log_rec_end;
        if (record == log_rec_untouched || is_end_mark) continue;
        report(finding_id::log_behind_end, k, log_record_at(k), record);
        break;
    }
    std::uint32_t written = 0, first = none;
    for (std::uint32_t k = from; k < log_slots; ++k) {
        if (!takes_writes) eu.slots[k].state = slot_state::unreachable;
        if (all_blank(p.image.subspan(eu_at(i) + log_frame_at(k), frame_size))) continue;
        if (first == none) first = k;
        ++written;
    }
    if (written != 0)
        report(takes_writes ? finding_id::frame_unrecorded : finding_id::frame_unrecorded_idle, first,
               log_frame_at(first), written);
    if (!all_blank(raw.unused)) report(finding_id::log_tail_written, none, offsetof(log_eu_t, unused), none);
}

} // namespace

void walk_logs(picture& p, std::vector<page_place>& places)
{
    places.assign(p.eus.size() * (eu_size / page_bytes), {});
    // Where two copies have the same sequence number, the one read later is in force: units in order of index, the one
    // that an interrupted reclaim left uncommitted behind them all.
    std::vector<std::uint32_t> order;
    for (std::uint32_t i = 0; i < p.eus.size(); ++i)
        if (p.eus[i].role == eu_role::log && !p.eus[i].commit_missing) order.push_back(i);
    for (std::uint32_t i = 0; i < p.eus.size(); ++i)
        if (p.eus[i].role == eu_role::log && p.eus[i].commit_missing) order.push_back(i);

    // The unit that takes the next write: the newest one with records, else the oldest one.
    std::uint32_t newest = none, oldest = none;
    for (const std::uint32_t i : order) {
        const eu_header_t& h = p.eus[i].header;
        const bool has_records = !(load<le16>(p.image.data() + eu_at(i) + log_record_at(0)) == log_rec_untouched);
        if (has_records && (newest == none || p.eus[i].commit_missing || h.seq >= p.eus[newest].header.seq)) newest = i;
        if (oldest == none || h.seq < p.eus[oldest].header.seq) oldest = i;
    }
    p.log_eu = newest != none ? newest : oldest;

    for (const std::uint32_t i : order) {
        log_reader log{p, i, static_cast<std::uint32_t>(places.size())};
        log.walk();
        log.check_rest(log.eu.log_end, log.blank || i == p.log_eu);
        for (std::uint32_t k = 0; k < log_slots; ++k) {
            const slot_view& slot = log.eu.slots[k];
            if (slot.state != slot_state::stale || slot.page == none) continue;
            page_place& place = places[slot.page];
            if (place.eu == none || p.eus[place.eu].header.seq <= log.eu.header.seq) place = {i, k};
        }
    }
}

} // namespace yfs::inspect
