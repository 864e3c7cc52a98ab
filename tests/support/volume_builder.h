// Builds AFS images by saying what they hold. It shares the layout headers with the library and none of its write path,
// so a broken writer can't bless itself. A fresh `volume` is what a format leaves; every call changes the description,
// and image() lays it down:
//
//     volume v(6, 3, 100);                                  // 6 EUs, 3 of them data, 100 file heads
//     v.file(7, bytes(300)).in_chunks({4, 9, 5, 6, 7});     // data-area indices, in file order
//     v.eu(0).seq(9).erase_count(4);
//     v.log(0).page(0).page(1).torn(4).old(3);              // slots in the order of the calls
//     v.dead(20);                                           // a complete page that no file names
//     std::vector<std::uint8_t> flash = v.image();
//
// FAT pages that no log call placed are appended at the end of the log.
#pragma once

#include "afs/volume_layout.h"
#include "ftl/eu_layout.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <vector>

namespace yfs::test {

// `count` bytes that differ by `seed` and place.
std::vector<std::uint8_t> bytes(std::size_t count, unsigned seed = 1);

// One erase unit's plan.
struct eu_plan {
    using raw = std::vector<std::uint8_t>;

    // The header. Fields that aren't set keep what a format gives.
    eu_plan& seq(std::uint32_t value) { return header.seq = value, *this; }
    eu_plan& erase_count(std::uint32_t value) { return header.erase_count = value, *this; }
    eu_plan& src(unsigned value) { return header.src_eu = low16(value), *this; }
    eu_plan& base_page(unsigned value) { return header.base_page = low16(value), *this; }
    eu_plan& commit(std::uint8_t value) { return header.commit = value, *this; }
    // The magic as stored, with the header's checksum over it or, as usual, over the one that is written today.
    eu_plan& magic(std::uint32_t value, bool crc = false) { return header.magic = value, own_crc = crc, *this; }
    eu_plan& crc_xor(std::uint8_t value) { return crc_change = value, *this; }
    // The header's first `bytes` bytes stand and no more; with 0 the whole unit reads 0xFF.
    eu_plan& header_cut(unsigned bytes) { return header_bytes = bytes, *this; }
    eu_plan& erased() { return header_cut(0); }
    // The spare as reclaim leaves it: magic 0, all else as it was.
    eu_plan& given_up() { return magic(ftl::eu_magic_given_up); }

    // Slots of a log unit, each call one more. Committed: with the newest contents, with these, an older version
    // (zeros), old copies until `up_to` slots are taken, the newest with the CRC off, with this record as stored.
    eu_plan& page(unsigned page) { return add({.page = low16(page)}); }
    eu_plan& page(unsigned page, raw data) { return add({.page = low16(page), .data = std::move(data)}); }
    eu_plan& old(unsigned page) { return this->page(page, raw(ftl::page_bytes)); }
    eu_plan& fill(unsigned page, unsigned up_to = ftl::log_slots);
    eu_plan& wrong_crc(unsigned page) { return add({.page = low16(page), .sound = false}); }
    eu_plan& raw_record(std::uint16_t record) { return add({.data = raw(ftl::page_bytes), .raw_record = record}); }
    // Not committed: record and frame, the record alone, nothing.
    eu_plan& torn(unsigned page) { return add({.commit = false, .page = low16(page)}); }
    eu_plan& torn_record(unsigned page) { return add({.frame = false, .commit = false, .page = low16(page)}); }
    eu_plan& skip() { return add({.record = false, .frame = false, .commit = false}); }

    struct log_slot {
        bool record = true, frame = true, commit = true;
        std::uint16_t page = 0;
        bool sound = true;
        std::optional<raw> data = {}; // none: the volume's newest contents of the page
        std::optional<std::uint16_t> raw_record = {};
    };
    eu_plan& add(log_slot slot);

    ftl::eu_header_t header{};
    bool own_crc = false;
    std::uint8_t crc_change = 0;
    unsigned header_bytes = sizeof(ftl::eu_header_t);
    std::vector<log_slot> log;
};

// A file just added; without in_chunks it takes the lowest free ones when the image is made.
struct file_plan {
    file_plan& in_chunks(std::vector<unsigned> indices) { return chunks = std::move(indices), *this; }
    // Of the chunk at this place in the file: its checksum, its data record; then the value that ends the chain.
    file_plan& wrong_crc(unsigned position) { return wrong_crcs.insert(position), *this; }
    file_plan& record(unsigned position, std::uint8_t value) { return records[position] = value, *this; }
    file_plan& last_entry(std::uint16_t value) { return last = value, *this; }

    std::vector<std::uint8_t> content = {};
    std::vector<unsigned> chunks = {};
    std::map<unsigned, std::uint8_t> records = {};
    std::set<unsigned> wrong_crcs = {};
    std::optional<std::uint16_t> last = {};
};

class volume {
public:
    volume(unsigned eus, unsigned data_eus, unsigned files = 100);

    // What lies in it.
    file_plan& file(unsigned number, std::vector<std::uint8_t> content);
    volume& empty(unsigned number) { return fat(number, afs::empty_file); }
    volume& zombie(unsigned number) { return fat(number, afs::zombie); }
    // As stored, over what files ask for.
    volume& fat(unsigned entry, std::uint16_t value) { return fat_[entry] = value, *this; }
    // A page of the data area outside all files: complete, begun, or any record byte.
    volume& dead(unsigned index, std::uint8_t rec = ftl::data_rec_complete) { return dead_[index] = rec, *this; }
    // The volume header, before it is laid down.
    afs::volume_header_t& header() { return header_; }
    volume& without_header() { return has_header_ = false, *this; }

    // Where it lies.
    eu_plan& eu(unsigned index) { return eus_.at(index); }
    eu_plan& log(unsigned index) { return eus_.at(index); }
    // Everything but the place: kinds and contents change EUs.
    volume& swap(unsigned a, unsigned b) { return std::swap(eus_.at(a), eus_.at(b)), *this; }
    eu_plan& make_data(unsigned index, unsigned group);
    // FAT pages stay off flash unless a log call places them.
    volume& without_auto_log() { return auto_log_ = false, *this; }
    // A byte as it lies in the image, over all else.
    volume& poke(std::uint32_t address, std::uint8_t value) { return poke_[address] = value, *this; }

    std::vector<std::uint8_t> image() const;

    // Geometry.
    unsigned files() const { return files_; }
    unsigned chunks() const { return static_cast<unsigned>(afs::chunks_of(volume_size_, files_)); }
    std::uint32_t fat_size() const { return fat_size_; }
    std::uint32_t volume_size() const { return volume_size_; }
    unsigned fat_pages() const { return fat_size_ / ftl::page_bytes; }
    unsigned chunk_id(unsigned index) const { return files_ + index; }
    // The FAT page that holds an entry (a file number or a chunk id).
    static unsigned page_of(unsigned entry) { return afs::fat_entry_at(entry) / ftl::page_bytes; }
    std::uint32_t eu_at(unsigned index) const { return index * ftl::eu_size; }

private:
    using raw = std::vector<std::uint8_t>;
    void lay_files(raw& out, raw& fat) const;
    void lay_page(raw& out, unsigned index, std::uint8_t record, std::span<const std::uint8_t> data, bool sound) const;
    void append_missing_pages(const raw& fat, std::vector<eu_plan>& eus) const;

    unsigned files_;
    std::uint32_t fat_size_, volume_size_;
    afs::volume_header_t header_{};
    bool has_header_ = true, auto_log_ = true;
    std::vector<eu_plan> eus_;
    std::map<unsigned, file_plan> file_;
    std::map<unsigned, std::uint16_t> fat_;
    std::map<unsigned, std::uint8_t> dead_;
    std::map<std::uint32_t, std::uint8_t> poke_;
};

} // namespace yfs::test
