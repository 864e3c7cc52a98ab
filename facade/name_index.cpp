// A table of hashes for each table record, filled when it is asked. A hit is told by the name itself, and an entry
// behind one of the same name is not taken in, so that the first in the list's order is what is found. The hash depends
// on where the index lies in memory, so that no choice of names makes it slow. The entries that it points to end with
// the list that it was made for, and so does the index.
#include "facade/name_index.h"

#include <algorithm>
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
    std::vector<slot> slots;            // a power of two, at most half of them taken
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
    constexpr std::uint64_t spread = 0x9E3779B97F4A7C15;
    std::uint64_t hash = reinterpret_cast<std::uintptr_t>(&s_indexes) * spread ^ name.size();
    std::uint64_t word = 0;
    for (; name.size() >= sizeof word; name.remove_prefix(sizeof word)) {
        std::memcpy(&word, name.data(), sizeof word);
        hash = (hash ^ word) * spread;
        hash ^= hash >> 32;
    }
    word = 0;
    std::copy(name.begin(), name.end(), static_cast<char*>(static_cast<void*>(&word)));
    hash = (hash ^ word) * spread;
    return hash ^ (hash >> 32);
}

// The slot with that name, or the free one where it would stand.
slot& place_of(std::vector<slot>& slots, std::string_view name, std::uint64_t hash)
{
    for (std::size_t i = hash;; ++i) {
        slot& at = slots[i & (slots.size() - 1)];
        if (at.entry == nullptr || (at.hash == hash && key_of(at.entry->name) == name)) return at;
    }
}

void grow(name_index& index)
{
    constexpr std::size_t least = 64;
    std::vector<slot> wider(std::max(least, index.slots.size() * 2));
    for (const slot& old : index.slots) {
        if (old.entry != nullptr) place_of(wider, key_of(old.entry->name), old.hash) = old;
    }
    index.slots = std::move(wider);
}

void take_in(name_index& index, FcsFileEntry* entry)
{
    if (index.taken * 2 >= index.slots.size()) grow(index);
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
