// Builds file tables, cfg tables and file images from plain lists. It shares the layout headers with the library and
// none of its writers, so a broken writer can't bless itself.
//
//     make_file_table({{2, {{"/home/a", 0x501}, {"/home/b", 0x502, 0x0002}}}});    // SKU 2, two files
//     make_cfg_table({{0x501, {'a', 'b', 'c'}}, {0x502, {}, 0}});
#pragma once

#include "yfs/cfgtable.h"
#include "yfs/vfs.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace yfs::test {

using blob = std::vector<std::uint8_t>;

// One entry of a file table.
struct table_file {
    std::string name; // at most 48 characters are laid down
    std::uint32_t fileno = 0;
    std::uint16_t attributes = 0;
    std::uint16_t file_index = 0;
    std::uint8_t fs_selector = 1;
    std::uint32_t max_size = 0xFFFF;
};

ftbl_file_entry_t file_entry(const table_file& file);

struct table_sku {
    std::uint32_t sku = 0;
    std::vector<table_file> files;
};

// Contents of an ftbl.bin, filled up with zeros to `min_length`.
blob make_file_table(const std::vector<table_sku>& skus, std::size_t min_length = 1024);

// One record of a cfg table with its payload. With `offset` the record points there and its payload is not laid down;
// with `size` the record tells that size whatever the payload has.
struct cfg_file {
    std::uint32_t fileno = 0;
    blob payload = {};
    std::uint16_t flags = 1;
    std::optional<std::uint32_t> offset = {};
    std::optional<std::uint16_t> size = {};
};

// Records in the order of the list, payloads packed behind them in the same order.
blob make_cfg_table(const std::vector<cfg_file>& files);

// The table as a zonc.cfg partition: a 16-byte header, whose unread bytes count up from 0xA0, then the table.
blob make_partition(const blob& table);

// A record directly followed by its payload.
blob make_file_image(std::uint32_t fileno, const blob& payload = {}, std::uint16_t flags = 1);

} // namespace yfs::test
