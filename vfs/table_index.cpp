#include "vfs/table_index.h"

#include <algorithm>
#include <numeric>

namespace yfs::vfs {

namespace {

constexpr std::uint32_t worth_an_index = 16; // entries; fewer are walked as quickly

// FNV-1a. It only spreads the names; equal values are told apart by the names themselves.
std::uint32_t spread(std::string_view name)
{
    std::uint32_t value = 2166136261U;
    for (const char c : name) value = (value ^ static_cast<unsigned char>(c)) * 16777619U;
    return value;
}

} // namespace

// The memory comes from malloc and a failure isn't told further: without an index a lookup takes longer, that is all.
bool place_list::make(table_view table)
{
    table_ = table;
    words_.reset();
    if (table.count < worth_an_index) return false;
    words_.reset(static_cast<std::uint64_t*>(std::malloc(std::size_t{table.count} * sizeof(std::uint64_t))));
    if (!words_) return false;
    std::iota(begin(), end(), std::uint64_t{0});
    return true;
}

bool fileno_index::make(table_view table)
{
    if (!place_list::make(table)) return false;
    for (std::uint64_t& word : *this) set_key(word, entry_of(word).fileno);
    std::sort(begin(), end());
    return true;
}

const ftbl_file_entry_t* fileno_index::find(fileno_t fileno) const
{
    const std::uint64_t* at = std::lower_bound(begin(), end(), std::uint64_t{fileno} << 32);
    return at != end() && key_of(*at) == fileno ? &entry_of(*at) : nullptr;
}

bool name_index::make(table_view table)
{
    if (!place_list::make(table)) return false;
    for (std::uint64_t& word : *this) set_key(word, spread(table_name(entry_of(word).name)));
    std::sort(begin(), end(), [this](std::uint64_t a, std::uint64_t b) {
        if (key_of(a) != key_of(b)) return a < b;
        const int order = table_name(entry_of(a).name).compare(table_name(entry_of(b).name));
        return order != 0 ? order < 0 : a < b;
    });
    return true;
}

// The keys are spread evenly over their range, so the place of one is known but for a few words; where it isn't among
// them, the list is halved from there on.
const std::uint64_t* name_index::first_of_key(std::uint32_t key) const
{
    constexpr int near = 8;
    const std::uint64_t wanted = std::uint64_t{key} << 32;
    const std::uint64_t* const first = begin();
    const std::uint64_t* const last = end();
    const std::uint64_t* at = first + (static_cast<std::uint64_t>(last - first) * key >> 32);
    for (int i = 0; i < near; ++i) {
        if (at != first && at[-1] >= wanted) {
            --at;
        } else if (at != last && *at < wanted) {
            ++at;
        } else {
            return at;
        }
    }
    return at != first && at[-1] >= wanted ? std::lower_bound(first, at, wanted) : std::lower_bound(at, last, wanted);
}

const ftbl_file_entry_t* name_index::find(std::string_view name) const
{
    const std::uint32_t key = spread(name);
    const std::uint64_t* const last = end();
    const std::uint64_t* at = first_of_key(key);
    // Names of one key are few, unless somebody has looked for such: these stand in the order of the names.
    const bool several = last - at > 1 && key_of(at[1]) == key;
    if (several) {
        at = std::lower_bound(at, last, name, [this, key](std::uint64_t word, auto wanted) {
            return key_of(word) != key ? key_of(word) < key : table_name(entry_of(word).name) < wanted;
        });
    }
    return at != end() && key_of(*at) == key && table_name(entry_of(*at).name) == name ? &entry_of(*at) : nullptr;
}

} // namespace yfs::vfs
