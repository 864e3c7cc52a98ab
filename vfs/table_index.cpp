#include "vfs/table_index.h"

#include "vfs/name_hash.h"

#include <algorithm>
#include <bit>
#include <functional>

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
bool place_list::reserve(table_view table)
{
    table_ = table;
    words_.reset();
    if (table.count < worth_an_index) return false;
    start_bits_ = static_cast<unsigned>(std::bit_width(table.count)) - 1;
    const std::size_t words = table.count;
    const std::size_t starts = (std::size_t{1} << start_bits_) + 2;
    words_.reset(
        static_cast<std::uint64_t*>(std::malloc(words * sizeof(std::uint64_t) + starts * sizeof(std::uint32_t))));
    if (!words_) return false;
    starts_ = static_cast<std::uint32_t*>(static_cast<void*>(words_.get() + words));
    std::fill_n(starts_, starts, 0);
    return true;
}

// The words are dealt out by the first bits of their keys, and those that share them are sorted. While they are dealt,
// starts_[n + 1] is where the next one with first bits n goes.
template <typename Key, typename Less>
bool place_list::sort(table_view table, Key key_of_entry, Less less)
{
    if (!reserve(table)) return false;
    const word_block unsorted(static_cast<std::uint64_t*>(std::malloc(table.count * sizeof(std::uint64_t))));
    if (!unsorted) {
        words_.reset();
        return false;
    }
    std::uint64_t* const sorted = words_.get();
    std::uint64_t* const made = unsorted.get();
    for (std::uint32_t i = 0; i < table.count; ++i) {
        const std::uint32_t key = key_of_entry(table.first[i]);
        made[i] = std::uint64_t{key} << 32 | i;
        ++starts_[first_bits(key) + 2];
    }
    const std::size_t last = std::size_t{1} << start_bits_;
    for (std::size_t n = 2; n <= last; ++n) starts_[n] += starts_[n - 1];
    for (std::uint32_t i = 0; i < table.count; ++i) sorted[starts_[first_bits(key_of(made[i])) + 1]++] = made[i];
    for (std::size_t n = 0; n < last; ++n) {
        if (starts_[n + 1] - starts_[n] > 1) std::sort(sorted + starts_[n], sorted + starts_[n + 1], less);
    }
    return true;
}

// The first word from `first` on that isn't below `wanted`. Few words share the first bits of their keys, unless they
// were chosen to.
static const std::uint64_t* first_from(const std::uint64_t* first, const std::uint64_t* last, std::uint64_t wanted)
{
    constexpr std::ptrdiff_t few = 8;
    if (last - first > few) return std::lower_bound(first, last, wanted);
    while (first != last && *first < wanted) ++first;
    return first;
}

bool fileno_index::make(table_view table)
{
    return sort(
        table, [](const ftbl_file_entry_t& entry) { return spread(entry.fileno); }, std::less<>());
}

const ftbl_file_entry_t* fileno_index::find(fileno_t fileno) const
{
    const std::uint32_t key = spread(fileno);
    const auto [first, last] = places_of(key);
    const std::uint64_t* at = first_from(first, last, std::uint64_t{key} << 32);
    return at != last && key_of(*at) == key ? &entry_of(*at) : nullptr;
}

bool name_index::make(table_view table)
{
    return sort(
        table, [](const ftbl_file_entry_t& entry) { return spread(table_name(entry.name)); },
        [this](std::uint64_t a, std::uint64_t b) {
            if (key_of(a) != key_of(b)) return a < b;
            const int order = table_name(entry_of(a).name).compare(table_name(entry_of(b).name));
            return order != 0 ? order < 0 : a < b;
        });
}

const ftbl_file_entry_t* name_index::find(std::string_view name) const
{
    const std::uint32_t key = spread(name);
    const auto [begin, end] = places_of(key);
    const std::uint64_t* const first = first_from(begin, end, std::uint64_t{key} << 32);
    if (first == end || key_of(*first) != key) return nullptr;
    if (first + 1 == end || key_of(first[1]) != key) return &entry_of(*first); // mostly the key is one name's only
    const std::uint64_t* const at = std::lower_bound(begin, end, name, [this, key](std::uint64_t word, auto wanted) {
        return key_of(word) != key ? key_of(word) < key : table_name(entry_of(word).name) < wanted;
    });
    return at != end && key_of(*at) == key ? &entry_of(*at) : nullptr;
}

} // namespace yfs::vfs
