// A table of hashes for each table record, filled when it is asked. A hit is told by the name itself, and an entry
// behind one of the same name is not taken in, so that the first in the list's order is what is found. The hash depends
// on where the index lies in memory, so that no choice of names makes it slow. The entries that it points to end with
// the list that it was made for, and so does the index.
#include "facade/name_index.h"

#include "vfs/name_hash.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>
#include <string_view>
#include <vector>

namespace yfs::facade {

namespace {

struct slot {
    std::uint64_t hash;
    FcsFileEntry* entry; // null: free
};

struct name_index {
    const FcsTable* table;
    const FcsFileEntry* head = nullptr; // of the list that it was made for
    const FcsFileEntry* last = nullptr; // the last entry taken in
    std::vector<slot> slots;            // a power of two, at most a quarter of them taken
    std::size_t taken = 0;
};

// One for each record of the run.
std::vector<name_index> s_indexes;

std::string_view key_of(const char* name)
{
    return {name, strnlen(name, sizeof(FcsFileEntry::name))};
}

std::uint64_t hash_of(std::string_view name)
{
    return vfs::hash_of(name, reinterpret_cast<std::uintptr_t>(&s_indexes));
}

// Whether the entry has the name: as long as it, and equal.
bool is_named(const FcsFileEntry& entry, std::string_view name)
{
    if (std::memcmp(entry.name, name.data(), name.size()) != 0) return false;
    return name.size() == sizeof entry.name || entry.name[name.size()] == '\0';
}

// The slot with that name, or the free one where it would stand.
slot& place_of(std::vector<slot>& slots, std::string_view name, std::uint64_t hash)
{
    slot* const first = slots.data();
    const std::size_t mask = slots.size() - 1;
    for (std::size_t i = hash >> std::countl_zero(mask);; i = (i + 1) & mask) {
        slot& at = first[i];
        if (at.entry == nullptr || (at.hash == hash && is_named(*at.entry, name))) return at;
    }
}

void grow(name_index& index)
{
    constexpr std::size_t least = 16; // entries
    std::vector<slot> wider(index.slots.empty() ? 4 * std::bit_ceil(std::max<std::size_t>(least, index.table->count))
                                                : index.slots.size() * 2);
    for (const slot& old : index.slots) {
        if (old.entry != nullptr) place_of(wider, key_of(old.entry->name), old.hash) = old;
    }
    index.slots = std::move(wider);
}

void take_in(name_index& index, FcsFileEntry* entry)
{
    if (index.taken * 4 >= index.slots.size()) grow(index);
    const std::string_view name = key_of(entry->name);
    const std::uint64_t hash = hash_of(name);
    slot& at = place_of(index.slots, name, hash);
    if (at.entry != nullptr) return; // the first of a name stays
    at = {hash, entry};
    ++index.taken;
}

name_index& index_of(const FcsTable& table)
{
    for (name_index& index : s_indexes) {
        if (index.table == &table) return index;
    }
    s_indexes.push_back({.table = &table, .slots = {}});
    return s_indexes.back();
}

name_index& up_to_date(const FcsTable& table)
{
    name_index& index = index_of(table);
    if (index.head != table.head) index = {.table = &table, .head = table.head, .slots = {}};
    FcsFileEntry* next = index.last == nullptr ? table.head : index.last->next;
    for (; next != nullptr; next = next->next) {
        take_in(index, next);
        index.last = next;
    }
    return index;
}

} // namespace

FcsFileEntry* find_by_name(const FcsTable& table, const char* name) noexcept
{
    if (table.head == nullptr) return nullptr;
    const std::string_view key = key_of(name);
    try {
        return place_of(up_to_date(table).slots, key, hash_of(key)).entry;
    } catch (const std::bad_alloc&) {
        FcsFileEntry* entry = table.head;
        while (entry != nullptr && key_of(entry->name) != key) entry = entry->next;
        return entry;
    }
}

void forget_names(const FcsTable& table) noexcept
{
    std::erase_if(s_indexes, [&table](const name_index& index) { return index.table == &table; });
}

} // namespace yfs::facade
