// Chains of the files: from every head through the chain table, each chunk claimed by the first file that reaches it.
// A chunk is visited once, so the whole walk is linear whatever the table holds.
#include "inspect/inspect_internal.h"

#include <algorithm>

namespace yfs::inspect {

namespace {

class chain_walk {
public:
    chain_walk(picture& into, std::uint32_t file) : p_(into), file_(file), view_(into.file[file]) {}

    void run()
    {
        const std::uint16_t head = p_.entry(file_);
        view_.first = static_cast<std::uint32_t>(p_.chain.size());
        if (head == afs::no_file) return;
        if (head == afs::zombie) {
            view_.state = file_state::zombie;
            report(finding_id::file_zombie, file_, none);
            return;
        }
        view_.state = head == afs::empty_file ? file_state::empty : file_state::present;
        if (head == afs::empty_file) return;
        if (!is_chunk(head)) {
            damage(finding_id::fat_head_range, file_, head);
            return;
        }
        follow(head);
        view_.count = static_cast<std::uint32_t>(p_.chain.size()) - view_.first;
        if (view_.size > afs::max_file_bytes) report(finding_id::file_too_large, file_, view_.size);
    }

private:
    bool is_chunk(std::uint32_t value) const { return value >= p_.files && value - p_.files < p_.chunks; }

    void follow(std::uint16_t chunk)
    {
        for (std::uint32_t steps = 1;; ++steps) {
            std::uint32_t& owner = p_.chunk_file[chunk - p_.files];
            if (owner == file_) return damage(finding_id::chain_loop, chunk, steps - 1);
            if (owner != none) {
                p_.file[owner].damaged = true;
                return damage(finding_id::chain_cross, chunk, owner);
            }
            owner = file_;
            p_.chain.push_back(chunk);
            const std::uint16_t next = p_.entry(chunk);
            if (next == 0) report(finding_id::chain_entry_zero, chunk, none);
            view_.size += std::min<std::uint32_t>(next, afs::chunk_bytes);
            if (steps == p_.chunks) return damage(finding_id::chain_too_long, chunk, steps);
            if (next <= afs::last_chunk_max) return;
            if (!is_chunk(next)) return damage(finding_id::fat_entry_range, chunk, next);
            chunk = next;
        }
    }

    // `entry` is the place in the chain table: the head, or the chunk at fault.
    void report(finding_id id, std::uint32_t entry, std::uint32_t value)
    {
        const std::uint32_t va = afs::fat_entry_at(entry);
        const page_place place = p_.fat_pages[va / ftl::page_bytes];
        finding f{.id = id, .page = va / ftl::page_bytes, .file = file_, .value = value};
        if (entry != file_) f.chunk = entry;
        if (place.eu != none) {
            f.eu = place.eu;
            f.slot = place.slot;
            f.address = eu_at(place.eu) + ftl::log_frame_at(place.slot) + va % ftl::page_bytes;
        }
        p_.findings.push_back(f);
    }
    void damage(finding_id id, std::uint32_t entry, std::uint32_t value)
    {
        view_.damaged = true;
        report(id, entry, value);
    }

    picture& p_;
    std::uint32_t file_;
    file_view& view_;
};

} // namespace

void follow_chains(picture& p)
{
    p.chunk_file.assign(p.chunks, none);
    p.file.assign(p.files, {});
    p.chain.reserve(p.chunks);
    for (std::uint32_t file = 0; file < p.files; ++file) chain_walk(p, file).run();

    std::uint32_t odd = 0, first = none;
    for (std::uint32_t i = 0; i < p.chunks; ++i) {
        const std::uint32_t value = p.entry(p.files + i);
        const bool allowed = value <= afs::last_chunk_max || (value >= p.files && value - p.files < p.chunks);
        if (p.chunk_file[i] != none || allowed) continue;
        if (first == none) first = p.files + i;
        ++odd;
    }
    if (odd != 0) p.findings.push_back({.id = finding_id::fat_free_entry, .chunk = first, .value = odd});
}

} // namespace yfs::inspect
