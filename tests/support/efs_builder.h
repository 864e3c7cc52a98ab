// Builds EFS images and EFST tables by saying what they hold. It shares the layout header with the library, and neither
// its writers nor its checksums. An image grows as history made it, step by step:
//
//     efs_volume v({2, 7, 3});                   // BMs, logical blocks, spares; every BM blank
//     v.file(note, bytes(300));                  // lays chunks down where the blocks of the moment are
//     v.bm(0).sequence(1).entry();               // a BME that tells these blocks
//     v.move(note.first_block, 8);               // logical block to spare 8, with its contents
//     v.file(note, bytes(20)).bm(0).torn();      // new contents there, and a commit that was cut
//     std::vector<std::uint8_t> image = v.image();
#pragma once

#include "efs/layout.h"
#include "yfs/efs.h"

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace yfs::test {

// Bit by bit, as the format defines them.
std::uint16_t plain_crc16(std::uint16_t initial, const std::vector<std::uint8_t>& data);
std::uint32_t plain_crc32(const std::vector<std::uint8_t>& data);

// The table in the library's globals, for programs that do without a file table. `files` is kept, not copied.
void use_efs_table(const efs::geometry& geo, std::vector<efs_file_t>& files, std::uint8_t layout_id = 0);

efs_file_t efs_entry(unsigned first_block, unsigned offset, unsigned max_size);

class efs_volume {
public:
    class bm_plan {
    public:
        bm_plan& sequence(std::uint32_t value) { return header_.sequence = value, *this; }
        bm_plan& version(unsigned value) { return header_.version = low16(value), *this; }
        bm_plan& sku(unsigned value) { return header_.sku_id = low16(value), *this; }
        bm_plan& layout(std::uint8_t value) { return header_.layout_id = value, *this; }
        bm_plan& counts(const efs::geometry& geo);
        bm_plan& wrong_crc() { return crc_xor_ = 0x100, *this; }
        bm_plan& no_header() { return state_ = state::blank, *this; } // its slots stand already
        bm_plan& retired() { return state_ = state::retired, *this; }
        // The next slot: the blocks as they are now, or the given tables.
        bm_plan& entry() { return entry(*now_); }
        bm_plan& entry(const std::vector<std::uint8_t>& tables);
        // The next slot with bad bytes: all of it with a wrong CRC, or its first `count` bytes and no more.
        bm_plan& torn();
        bm_plan& cut(unsigned count);
        std::uint32_t slots() const { return static_cast<std::uint32_t>(slots_.size()); }

    private:
        friend class efs_volume;
        enum class state { sound, blank, retired };
        efs::efs_bm_header_t header_{};
        state state_ = state::sound;
        std::uint32_t crc_xor_ = 0;
        std::vector<std::vector<std::uint8_t>> slots_;
        const std::vector<std::uint8_t>* now_ = nullptr;
    };

    explicit efs_volume(const efs::geometry& geo, std::uint8_t layout_id = 0);
    efs_volume(const efs_volume&) = delete; // its BMs look at its blocks
    efs_volume& operator=(const efs_volume&) = delete;

    bm_plan& bm(unsigned index);

    // The file's chunks in the logical blocks of the moment; bytes of earlier chunks that it doesn't cover stay.
    efs_volume& file(const efs_file_t& entry, const std::vector<std::uint8_t>& contents);
    efs_volume& no_file(const efs_file_t& entry);
    // One chunk alone: `length` as its header tells it, a CRC that fits.
    efs_volume& chunk(unsigned logical, unsigned offset, unsigned length, const std::vector<std::uint8_t>& payload);
    // The logical block goes to the data block `to`, a spare, with its contents; its old block becomes the spare.
    efs_volume& move(unsigned logical, unsigned to);
    efs_volume& erase_count(unsigned physical, std::uint32_t value);
    // Where chunk number `index` of the file lies in the image.
    std::uint32_t chunk_at(const efs_file_t& entry, unsigned index = 0) const;
    std::uint32_t block_at(unsigned logical) const;

    std::vector<std::uint8_t> image() const;

private:
    struct block {
        std::uint32_t erase_count = 1;
        std::optional<std::vector<std::uint8_t>> data_area; // none: free
    };

    efs::geometry geo_;
    std::uint8_t layout_id_;
    std::vector<std::uint8_t> now_; // valid table, then non-valid table
    std::vector<block> blocks_;
    std::map<unsigned, bm_plan> bms_;
};

// What the record "EFST" tells for one SKU. Unset counts follow from the lists.
struct efst_sku {
    std::uint32_t sku = 0;
    efs::geometry geo = {2, 7, 3};
    std::map<unsigned, efs_file_t> files = {}; // by index
    std::uint32_t layout_id = 0;
    std::uint32_t threshold = 100;
    std::optional<std::uint32_t> files_num = {};
};

// EFST with its file lists behind it, to be laid down at byte `at` of ftbl.bin. Bytes that nobody reads are 0xEE.
std::vector<std::uint8_t> make_efst(const std::vector<efst_sku>& skus, std::uint32_t at);

// An ftbl.bin of `rows` rows for SKUs (with no files) and EFST; and where in it EFST begins.
std::vector<std::uint8_t> make_autogen_table(const std::vector<efst_sku>& skus, std::uint32_t rows = 1);
constexpr std::uint32_t efst_at(std::uint32_t rows = 1)
{
    return (rows + 1) * 16;
}

} // namespace yfs::test
