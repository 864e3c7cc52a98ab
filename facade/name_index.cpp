// An ordered map from names to entries for each table record, filled when it is asked. The keys point into the entries,
// so an index ends with the list that it was made for.
#include "facade/name_index.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <new>
#include <string_view>

namespace yfs::facade {

namespace {

struct name_index {
    std::map<std::string_view, FcsFileEntry*> entries;
    const FcsFileEntry* head = nullptr; // of the list that it was made for
    const FcsFileEntry* last = nullptr; // the last entry taken in
};

} // namespace

static std::map<const FcsTable*, name_index> s_indexes;

static std::string_view key_of(const char* name)
{
    const char* const end = std::find(name, name + sizeof(FcsFileEntry::name), '\0');
    return {name, static_cast<std::size_t>(end - name)};
}

static std::string_view key_of_query(const char* name)
{
    return {name, strnlen(name, sizeof(FcsFileEntry::name))};
}

static const name_index& up_to_date(const FcsTable& table)
{
    name_index& index = s_indexes[&table];
    if (index.head != table.head) index = {};
    index.head = table.head;
    FcsFileEntry* next = index.last == nullptr ? table.head : index.last->next;
    for (; next != nullptr; next = next->next) {
        index.entries.try_emplace(key_of(next->name), next); // the first of a name stays
        index.last = next;
    }
    return index;
}

FcsFileEntry* find_by_name(const FcsTable& table, const char* name) noexcept
{
    if (table.head == nullptr) return nullptr;
    const std::string_view key = key_of_query(name);
    try {
        const auto& entries = up_to_date(table).entries;
        const auto found = entries.find(key);
        return found == entries.end() ? nullptr : found->second;
    } catch (const std::bad_alloc&) {
        FcsFileEntry* entry = table.head;
        while (entry != nullptr && key_of(entry->name) != key) entry = entry->next;
        return entry;
    }
}

void forget_names(const FcsTable& table) noexcept
{
    s_indexes.erase(&table);
}

} // namespace yfs::facade
