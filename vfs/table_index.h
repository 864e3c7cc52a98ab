// Search structures over the entries of a file table: their places, sorted by number or by a hash of the name and then
// the name. Where a key must be is told by its first bits; what stands there is halved, so that no choice of names or
// numbers makes a lookup slow. An index answers for the bytes that it was made from: where these can change behind its
// back, it is up to the caller to confirm an answer.
#pragma once

#include "vfs/ftbl_layout.h"

#include <cstdlib>
#include <memory>

namespace yfs::vfs {

struct table_view {
    const ftbl_file_entry_t* first = nullptr;
    std::uint32_t count = 0;

    const ftbl_file_entry_t* begin() const { return first; }
    const ftbl_file_entry_t* end() const { return first + count; }
    bool operator==(const table_view&) const = default;
};

// What both indexes hold: for each entry a word with its key in the high half and its place in the low one.
class place_list {
public:
    // The places stand for exactly these entries.
    bool covers(table_view table) const { return words_ && table == table_; }

protected:
    static std::uint32_t key_of(std::uint64_t word) { return low32(word >> 32); }
    const ftbl_file_entry_t& entry_of(std::uint64_t word) const { return table_.first[low32(word)]; }

    // Sorts the entries by key_of_entry(entry), those of one key by less(word, word). False: the table is so small that
    // a walk is as quick, or there is no memory. The list is empty then.
    template <typename Key, typename Less>
    bool sort(table_view table, Key key_of_entry, Less less);

    // The words among which those with that key are, if there are any.
    struct places {
        const std::uint64_t* first;
        const std::uint64_t* last;
    };
    places places_of(std::uint32_t key) const
    {
        const std::uint32_t* const at = starts_ + first_bits(key);
        return {words_.get() + at[0], words_.get() + at[1]};
    }

private:
    bool reserve(table_view table);
    std::uint64_t first_bits(std::uint32_t key) const { return std::uint64_t{key} >> (32 - start_bits_); }

    struct release {
        void operator()(std::uint64_t* words) const { std::free(words); }
    };
    using word_block = std::unique_ptr<std::uint64_t[], release>;
    table_view table_;
    word_block words_; // and behind them, in the same memory, the starts
    std::uint32_t* starts_ = nullptr;
    unsigned start_bits_ = 0;
};

class fileno_index : public place_list {
public:
    bool make(table_view table);
    // The first entry in the order of the table, or null.
    const ftbl_file_entry_t* find(fileno_t fileno) const;
};

class name_index : public place_list {
public:
    bool make(table_view table);
    // The only entry that can be the first of that name, or null: the caller holds it against the name in any case.
    const ftbl_file_entry_t* find(std::string_view name) const;
};

} // namespace yfs::vfs
