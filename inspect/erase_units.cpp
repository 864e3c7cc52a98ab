// Headers of the erase units, and which part each unit plays: what a mount concludes from them, in the order of index
// in which it reads.
#include "inspect/inspect_internal.h"
#include "inspect/recognize.h"

#include "yfs/medium.h"

#include <algorithm>
#include <numeric>

namespace yfs::inspect {

using namespace ftl;

namespace {

std::uint8_t crc_with(eu_header_t header, std::uint32_t magic)
{
    header.magic = magic;
    return crc8(&header, header_crc_bytes);
}

bool is_valid(const eu_header_t& h)
{
    if (h.seq == 0 || h.erase_count == 0) return false;
    if (h.magic == eu_magic || h.magic == eu_magic_alt) return h.crc == crc_with(h, eu_magic);
    return h.magic == eu_magic_old && (h.crc == crc_with(h, eu_magic) || h.crc == crc_with(h, eu_magic_old));
}

// A given-up header whose erase count still counts.
bool is_trusted_spare(const eu_header_t& h)
{
    return h.magic == eu_magic_given_up && (h.crc == crc_with(h, eu_magic) || h.crc == crc_with(h, eu_magic_old));
}

} // namespace

bool is_erase_unit(const eu_header_t& h)
{
    return is_valid(h) || is_trusted_spare(h);
}

namespace {

struct scan {
    std::vector<std::uint32_t> invalid;
    std::uint32_t incomplete = none;
    std::uint32_t newest_seq = 0, newest_src = 0;
};

void classify(picture& p, std::uint32_t i, scan& seen)
{
    erase_unit& eu = p.eus[i];
    const eu_header_t& h = eu.header;
    const auto report = [&](finding_id id, std::uint32_t value) {
        p.findings.push_back({.id = id, .address = eu_at(i), .eu = i, .value = value});
    };
    eu.valid = is_valid(h);
    if (!eu.valid) {
        seen.invalid.push_back(i);
        return;
    }
    if (h.magic != eu_magic) report(finding_id::eu_magic_old, h.magic);
    if (h.commit == not_committed) {
        if (seen.incomplete != none)
            report(finding_id::eu_two_incomplete, h.seq);
        else
            seen.incomplete = i;
        return;
    }
    if (h.commit != committed) report(finding_id::eu_commit_odd, h.commit);
    eu.role = h.base_page == 0 ? eu_role::log : eu_role::data;
    // On a tie the later unit counts.
    if (h.seq >= seen.newest_seq) {
        seen.newest_seq = h.seq;
        seen.newest_src = h.src_eu;
    }
}

// Of several units without a valid header one is the spare, and the others have lost theirs: the one that the newest
// header names, or that says so itself; else it can't be told, and it is the first.
std::uint32_t likeliest_spare(const picture& p, const scan& seen)
{
    const std::uint32_t named =
        seen.incomplete == none ? seen.newest_src : std::uint32_t{p.eus[seen.incomplete].header.src_eu};
    const auto first_that = [&](const auto& test) {
        const auto found = std::find_if(seen.invalid.begin(), seen.invalid.end(), test);
        return found == seen.invalid.end() ? none : *found;
    };
    for (const std::uint32_t spare : {first_that([&](std::uint32_t i) { return i == named; }),
                                      first_that([&](std::uint32_t i) { return is_trusted_spare(p.eus[i].header); })})
        if (spare != none) return spare;
    return seen.invalid.front();
}

// Settles what an interrupted reclaim left: the spare, and whether an uncommitted unit is in force.
void find_spare(picture& p, const scan& seen)
{
    const auto report = [&](finding_id id, std::uint32_t eu, std::uint32_t value = none) {
        p.findings.push_back({.id = id, .address = eu == none ? none : eu_at(eu), .eu = eu, .value = value});
    };
    if (seen.incomplete == none && seen.invalid.empty()) {
        report(finding_id::eu_no_spare, none);
        return;
    }
    if (seen.invalid.empty()) {
        p.spare = seen.incomplete;
        report(finding_id::eu_incomplete_discarded, p.spare, p.eus[p.spare].header.seq);
    } else {
        p.spare = likeliest_spare(p, seen);
        for (const std::uint32_t i : seen.invalid)
            if (i != p.spare) report(finding_id::eu_two_invalid, i, p.eus[i].header.magic);
        const eu_header_t& h = p.eus[p.spare].header;
        if (!is_trusted_spare(h)) report(finding_id::eu_spare_untrusted, p.spare, h.magic);
    }
    p.eus[p.spare].role = eu_role::spare;

    if (seen.incomplete == none) {
        if (seen.newest_src != p.spare) report(finding_id::eu_spare_not_named, p.spare, seen.newest_src);
    } else if (!seen.invalid.empty()) {
        erase_unit& eu = p.eus[seen.incomplete];
        const eu_header_t& h = eu.header;
        if (h.src_eu != p.spare)
            report(finding_id::eu_incomplete_source, seen.incomplete, h.src_eu);
        else
            report(finding_id::eu_commit_missing, seen.incomplete, h.seq);
        eu.commit_missing = true;
        eu.role = h.base_page == 0 ? eu_role::log : eu_role::data;
        p.highest_seq = std::max<std::uint32_t>(p.highest_seq, h.seq);
    }
}

void check_counts(picture& p)
{
    std::vector<std::uint32_t> in_force;
    for (std::uint32_t i = 0; i < p.eus.size(); ++i) {
        const erase_unit& eu = p.eus[i];
        if (eu.role == eu_role::log || eu.role == eu_role::data) in_force.push_back(i);
    }
    if (in_force.empty()) return;
    std::sort(in_force.begin(), in_force.end(),
              [&](std::uint32_t a, std::uint32_t b) { return p.eus[a].header.seq < p.eus[b].header.seq; });
    p.erases.lowest = none;
    for (std::size_t i = 0; i < in_force.size(); ++i) {
        const eu_header_t& h = p.eus[in_force[i]].header;
        const auto report = [&](finding_id id, std::uint32_t value) {
            p.findings.push_back({.id = id, .address = eu_at(in_force[i]), .eu = in_force[i], .value = value});
        };
        if (i > 0 && h.seq == p.eus[in_force[i - 1]].header.seq) report(finding_id::eu_seq_twice, h.seq);
        if (h.erase_count > p.highest_seq) report(finding_id::eu_erase_count_odd, h.erase_count);
        p.erases.lowest = std::min<std::uint32_t>(p.erases.lowest, h.erase_count);
        p.erases.highest = std::max<std::uint32_t>(p.erases.highest, h.erase_count);
    }
    const std::uint32_t spread = p.erases.highest - p.erases.lowest;
    if (spread > 100) p.findings.push_back({.id = finding_id::eu_erase_spread, .value = spread});
}

} // namespace

void read_erase_units(picture& p)
{
    const std::size_t looked_at = std::min<std::size_t>(p.image.size(), afs::max_flash_size);
    p.eus.resize(looked_at / eu_size);
    const auto tail = p.image.subspan(p.eus.size() * eu_size);
    if (p.image.size() < afs::max_flash_size && !all_blank(tail)) {
        const auto at = low32(p.image.size() - tail.size());
        p.findings.push_back({.id = finding_id::image_tail, .address = at, .value = low32(tail.size())});
    }
    if (p.eus.empty()) return;

    // A mount starts from the number that a format gave last, so older headers never name the spare.
    scan seen;
    seen.newest_seq = low32(p.eus.size() - 1);
    for (std::uint32_t i = 0; i < p.eus.size(); ++i) {
        p.eus[i].header = load<eu_header_t>(p.image.data() + eu_at(i));
        classify(p, i, seen);
    }
    p.highest_seq = seen.newest_seq;
    find_spare(p, seen);
    check_counts(p);
    if (std::none_of(p.eus.begin(), p.eus.end(), [](const erase_unit& e) { return e.role == eu_role::log; }))
        p.findings.push_back({.id = finding_id::eu_no_log});
}

} // namespace yfs::inspect
