#include "vfs/table_index.h"

#include "vfs/name_hash.h"

#include <algorithm>
#include <bit>
#include <numeric>

namespace yfs::vfs {

namespace {

constexpr std::uint32_t worth_an_index = 16; // entries; fewer are walked as quickly

// Equal values are told apart by the names themselves.
std::uint32_t spread(std::string_view name)
{
    return low32(hash_of(name, 0) >> 32);
}

// Numbers stand close together. Times an odd number each is another one, and they are far apart.
std::uint32_t spread(fileno_t fileno)
{
    return fileno * 0x9E3779B1U;
}

} // namespace

// The memory comes from malloc and a failure isn't told further: without an index a lookup takes longer, that is all.
bool place_list::make(table_view table)
{
    table_ = table;
    words_.reset();
    if (table.count < worth_an_index) return false;
    start_bits_ = static_cast<unsigned>(std::bit_width(table.count)) - 1;
    const std::size_t starts = (std::size_t{1} << start_bits_) + 1;
    const std::size_t bytes = std::size_t{table.count} * sizeof(std::uint64_t) + starts * sizeof(std::uint32_t);
    words_.reset(static_cast<std::uint64_t*>(std::malloc(bytes)));
    if (!words_) return false;
    starts_ = static_cast<std::uint32_t*>(static_cast<void*>(words_.get() + table.count));
    std::iota(begin(), end(), std::uint64_t{0});
    return true;
}

void place_list::note_places()
{
    std::uint32_t place = 0;
    for (std::uint32_t start = 0; start < std::uint32_t{1} << start_bits_; ++start) {
        while (place < table_.count && key_of(words_[place]) >> (32 - start_bits_) < start) ++place;
        starts_[start] = place;
    }
    starts_[std::size_t{1} << start_bits_] = table_.count;
}

bool fileno_index::make(table_view table)
{
    if (!place_list::make(table)) return false;
    for (std::uint64_t& word : *this) set_key(word, spread(entry_of(word).fileno));
    std::sort(begin(), end());
    note_places();
    return true;
}

const ftbl_file_entry_t* fileno_index::find(fileno_t fileno) const
{
    const std::uint32_t key = spread(fileno);
    const auto [first, last] = places_of(key);
    const std::uint64_t* at = std::lower_bound(first, last, std::uint64_t{key} << 32);
    return at != last && key_of(*at) == key ? &entry_of(*at) : nullptr;
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
    note_places();
    return true;
}

const ftbl_file_entry_t* name_index::find(std::string_view name) const
{
    const std::uint32_t key = spread(name);
    const auto [first, last] = places_of(key);
    const std::uint64_t* at = std::lower_bound(first, last, name, [this, key](std::uint64_t word, auto wanted) {
        return key_of(word) != key ? key_of(word) < key : table_name(entry_of(word).name) < wanted;
    });
    return at != last && key_of(*at) == key ? &entry_of(*at) : nullptr;
}

} // namespace yfs::vfs
