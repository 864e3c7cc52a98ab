// Builds EFS images and EFST tables by saying what they hold. It shares the layout header with the library, and neither
// its writers nor its checksums. Each call lays bytes down in `image`:
//
//     efs_volume v({2, 7, 3});                 // data blocks erased once, nothing else
//     v.file(note, bytes(300)).bm(0);          // chunks where `tables` has their blocks; a BM with one slot
//     v.tables[1] = 8, v.tables[8] = 1;        // logical block 1 goes to a spare
//     v.file(note, bytes(20)).torn(0);         // new contents there, and a commit that was cut
#pragma once

#include "efs/layout.h"
#include "yfs/efs.h"

#include <cstdint>
#include <map>
#include <vector>

namespace yfs::test {

// Bit by bit, as the formats define them; the first one with the most significant bit first.
unsigned plain_crc(const std::vector<std::uint8_t>& data, unsigned width, unsigned polynomial, unsigned mask,
                   unsigned reg);
std::uint32_t plain_crc32(const std::uint8_t* data, std::size_t count);

efs_file_t efs_entry(unsigned first_block, unsigned offset, unsigned max_size);

// The table in the library's globals, for programs that do without a file table; until the next call.
void use_efs_table(const efs::geometry& geo, std::vector<efs_file_t> files, std::uint8_t layout_id = 0,
                   std::uint32_t threshold = 1000000);

struct efs_volume {
    explicit efs_volume(const efs::geometry& geo, std::uint8_t layout_id = 0);

    // The header of a BM, with the byte at `changed` changed under its CRC, and its first slots.
    efs_volume& bm(unsigned index, std::uint32_t sequence = 1, unsigned slots = 1, unsigned changed = 0,
                   std::uint8_t changed_to = 1);
    // The next slot: the tables as they are now. Of a torn one the first `kept` bytes stand.
    efs_volume& slot(unsigned index);
    efs_volume& torn(unsigned index, unsigned kept = 15);
    // One chunk: `length` as its header tells it, a CRC that fits.
    efs_volume& chunk(unsigned logical, unsigned offset, unsigned length, const std::vector<std::uint8_t>& payload);
    efs_volume& file(const efs_file_t& entry, const std::vector<std::uint8_t>& contents);
    efs_volume& block_header(unsigned physical, std::uint32_t erase_count);
    efs_volume& fill(std::uint32_t at, std::uint32_t count, std::uint8_t byte);
    // Where the data area of a logical block lies.
    std::uint32_t area_at(unsigned logical) const;

    efs::geometry geo;
    std::uint8_t layout_id;
    std::vector<std::uint8_t> tables; // valid table, then non-valid table
    std::vector<std::uint8_t> image;

private:
    void put(std::size_t offset, const std::vector<std::uint8_t>& part);
    void put_footer(unsigned logical);
    std::map<unsigned, unsigned> slots_; // so many, by BM
};

// An ftbl.bin of `rows` rows for SKUs (with no files) and EFST behind them: SKU 8 with two records for file 0, and SKU
// 0x01020307 with files 5 and 1. With one row EFST begins at 32, its records at 48 and 88, their lists at 128 and 248.
std::vector<std::uint8_t> make_autogen_table(std::uint32_t rows = 1);

} // namespace yfs::test
