// Which EU to reclaim: the one with the most to gain, now and then the least worn one so that cold data moves off it,
// in idle time only if it is worth while.
#include "ftl/ftl_internal.h"

namespace yfs::ftl {

namespace {

constexpr std::uint32_t wear_spread = 101;     // the wear rule acts from this difference of erase counts on,
constexpr std::uint32_t wear_step = 10;        // and on one value of the highest count in ten
constexpr std::uint32_t log_short = 29;        // free log slots at or below which the log is short of room
constexpr std::uint32_t data_short = 64;       // free data slots below which data is,
constexpr std::uint32_t data_worth_while = 96; // provided that more than this many could be gained

bool is_of_kind(const ftl_context& ftl, std::uint32_t eu, std::uint32_t kind)
{
    return eu != ftl.spare_eu && is_data_eu(ftl, eu) == (kind != kind_log);
}

// The oldest EU that has room as it is: a blank log EU, a data EU with free slots.
std::uint32_t find_open_eu(const ftl_context& ftl, std::uint32_t kind)
{
    std::uint32_t found = none;
    std::uint64_t oldest = UINT64_MAX;
    for (std::uint32_t eu = 0; eu < ftl.eu_count; ++eu) {
        const ftl_eu_entry& entry = ftl.eu_table[eu];
        if (entry.seq >= oldest || entry.free == 0 || !is_of_kind(ftl, eu, kind)) continue;
        found = eu;
        oldest = entry.seq;
    }
    return found;
}

struct candidates {
    const ftl_eu_entry* best = nullptr; // most dirty slots, then least worn, then first
    const ftl_eu_entry* least_worn = nullptr;
    std::uint32_t highest_count = 0;
};

candidates survey(const ftl_context& ftl, std::uint32_t kind)
{
    candidates c;
    for (std::uint32_t eu = 0; eu < ftl.eu_count; ++eu) {
        if (!is_of_kind(ftl, eu, kind)) continue;
        const ftl_eu_entry& entry = ftl.eu_table[eu];
        if (c.best == nullptr) {
            c = {&entry, &entry, entry.erase_count};
            continue;
        }
        if (entry.dirty > c.best->dirty || (entry.dirty == c.best->dirty && entry.erase_count < c.best->erase_count)) {
            c.best = &entry;
        }
        if (entry.erase_count < c.least_worn->erase_count) c.least_worn = &entry;
        if (entry.erase_count > c.highest_count) c.highest_count = entry.erase_count;
    }
    return c;
}

bool wear_rule_fires(const candidates& c)
{
    return c.best != nullptr && c.highest_count - c.least_worn->erase_count >= wear_spread &&
           c.highest_count % wear_step == 0;
}

struct idle_survey {
    std::uint32_t log_free = 0;
    std::uint32_t data_free = 0;
    std::uint32_t data_dirty = 0;
    std::uint32_t wholly_dead = none; // the least worn EU with nothing live
};

bool is_wholly_dead(const ftl_context& ftl, std::uint32_t eu)
{
    const ftl_eu_entry& entry = ftl.eu_table[eu];
    if (entry.free != 0) return false;
    if (is_data_eu(ftl, eu)) return entry.dirty == data_slots;
    return eu != ftl.log_eu && entry.dirty == log_slots;
}

idle_survey survey_for_idle(const ftl_context& ftl)
{
    idle_survey s;
    for (std::uint32_t eu = 0; eu < ftl.eu_count; ++eu) {
        if (eu == ftl.spare_eu) continue;
        const ftl_eu_entry& entry = ftl.eu_table[eu];
        if (is_data_eu(ftl, eu)) {
            s.data_free += entry.free;
            s.data_dirty += entry.dirty;
        } else if (eu == ftl.log_eu) {
            s.log_free += log_slots - ftl.log_slot;
        } else if (entry.free != 0) {
            s.log_free += log_slots;
        }
        if (is_wholly_dead(ftl, eu) &&
            (s.wholly_dead == none || entry.erase_count < ftl.eu_table[s.wholly_dead].erase_count)) {
            s.wholly_dead = eu;
        }
    }
    return s;
}

} // namespace

std::uint32_t choose_eu_to_reclaim(afs_context* ctx, std::uint32_t kind, bool allow_wear, std::uint32_t* mode,
                                   bool idle)
{
    const ftl_context& ftl = *ctx->ftl;
    std::uint32_t hint = none;
    if (idle) {
        if (afs_physical_ftl_idle_reclaim_needed(ctx, &hint, &kind) == 0) {
            *mode = mode_open;
            return none;
        }
    } else if (const std::uint32_t open = find_open_eu(ftl, kind); open != none) {
        *mode = mode_open;
        return open;
    }

    *mode = mode_reclaim;
    const candidates c = survey(ftl, kind);
    const auto number = [&](const ftl_eu_entry* eu) { return static_cast<std::uint32_t>(eu - ftl.eu_table); };
    if (allow_wear && wear_rule_fires(c)) return number(c.least_worn);
    if (hint != none) return hint;
    return c.best != nullptr ? number(c.best) : 0; // of no EU of the kind, the first of all
}

} // namespace yfs::ftl

uint8_t afs_physical_ftl_idle_reclaim_needed(struct afs_context* ctx, uint32_t* hint, uint32_t* is_data)
{
    using namespace yfs::ftl;
    const idle_survey s = survey_for_idle(*ctx->ftl);
    if (s.log_free <= log_short) {
        *is_data = kind_log;
        *hint = none;
        return 1;
    }
    if (s.data_free < data_short && s.data_dirty > data_worth_while) {
        *is_data = kind_data;
        *hint = none;
        return 1;
    }
    if (s.wholly_dead != none) {
        *is_data = is_data_eu(*ctx->ftl, s.wholly_dead) ? kind_data : kind_log;
        *hint = s.wholly_dead;
        return 1;
    }
    return 0;
}
