// Builds AFS images by saying what they hold. It shares the layout headers with the library and none of its write path,
// so a broken writer can't bless itself. A fresh `volume` is what a format leaves; every call changes the description,
// and image() lays it down:
//
//     volume v(6, 3, 100);                                  // 6 EUs, 3 of them data, 100 file heads
//     v.file(7, bytes(300)).in_chunks({4, 9, 5, 6, 7});     // data-area indices, in file order
//     v.eu(0).seq(9).erase_count(4);
//     v.log(0).pages({0, 1, 2}).torn(4).old(3);             // slots in the order of the calls
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
#include <vector>

namespace yfs::test {

// `count` bytes that differ by `seed` and place.
std::vector<std::uint8_t> bytes(std::size_t count, unsigned seed = 1);

class volume;

// One erase unit's plan. Fields that aren't set keep what a format gives.
class eu_plan {
public:
    eu_plan& seq(std::uint32_t value) { return header_.seq = value, *this; }
    eu_plan& erase_count(std::uint32_t value) { return header_.erase_count = value, *this; }
    eu_plan& src(unsigned value) { return header_.src_eu = low16(value), *this; }
    eu_plan& base_page(unsigned value) { return header_.base_page = low16(value), *this; }
    eu_plan& commit(std::uint8_t value) { return header_.commit = value, *this; }
    // The magic as stored. `crc_as_stored` takes the header's checksum over it, not over the usual magic.
    eu_plan& magic(std::uint32_t value, bool crc_as_stored = false);
    eu_plan& wrong_crc() { return crc_xor_ = 0x55, *this; }
    eu_plan& crc_xor(std::uint8_t value) { return crc_xor_ = value, *this; }
    // All 8192 bytes read 0xFF, or the header's first `bytes` bytes stand and no more.
    eu_plan& erased() { return header_bytes_ = 0, blank_ = true, *this; }
    eu_plan& header_cut(unsigned bytes) { return header_bytes_ = bytes, *this; }
    // The spare as reclaim leaves it: magic 0, all else as it was.
    eu_plan& given_up() { return magic(ftl::eu_magic_given_up); }

private:
    friend class volume;
    friend class log_plan;
    friend class file_plan;

    enum class slot_state { skipped, record_only, no_commit, committed, frame_only };
    struct log_slot {
        slot_state state;
        std::uint16_t page;
        std::optional<std::vector<std::uint8_t>> data; // none: the volume's newest contents of the page
        bool wrong_crc = false;
        std::optional<std::uint16_t> raw_record;
    };
    struct data_slot {
        std::uint8_t record;
        std::optional<std::vector<std::uint8_t>> data; // none: the frame stays blank
        bool wrong_crc = false;
        std::uint16_t key_xor = 0;
    };

    ftl::eu_header_t header_{};
    bool crc_as_stored_ = false, blank_ = false;
    std::uint8_t crc_xor_ = 0;
    unsigned header_bytes_ = sizeof(ftl::eu_header_t);
    std::vector<log_slot> log_;
    std::map<unsigned, data_slot> data_;
};

// Appends to one log EU, slot by slot.
class log_plan {
public:
    log_plan& page(unsigned page);                                        // committed, newest contents
    log_plan& pages(std::initializer_list<unsigned> list);                //
    log_plan& page(unsigned page, const std::vector<std::uint8_t>& data); // committed, these contents
    log_plan& old(unsigned page);                                         // committed, an older version (zeros)
    log_plan& fill(unsigned page, unsigned up_to = ftl::log_slots);       // old copies until `up_to` slots are taken
    log_plan& wrong_crc(unsigned page);                                   // committed, newest contents, CRC off
    log_plan& torn(unsigned page);                                        // record and frame, no commit
    log_plan& torn_record(unsigned page);                                 // record alone, no commit
    log_plan& frame_only(unsigned page);                                  // frame without a record
    log_plan& skip(unsigned slots = 1);                                   // untouched
    log_plan& raw_record(std::uint16_t record);                           // committed, this record as stored

private:
    friend class volume;
    log_plan(volume& owner, eu_plan& eu) : owner_(&owner), eu_(&eu) {}
    log_plan& add(eu_plan::log_slot slot);
    volume* owner_;
    eu_plan* eu_;
};

// A file just added; without in_chunks it takes the lowest free ones when the image is made.
class file_plan {
public:
    file_plan& in_chunks(std::vector<unsigned> indices);
    file_plan& wrong_crc(unsigned position);                  // of the chunk at this place in the file
    file_plan& record(unsigned position, std::uint8_t value); // data record of that chunk
    file_plan& last_entry(std::uint16_t value);               // the value that ends the chain

private:
    friend class volume;
    std::vector<std::uint8_t> content_;
    std::vector<unsigned> chunks_;
    std::map<unsigned, std::uint8_t> records_;
    std::map<unsigned, bool> wrong_crc_;
    std::optional<std::uint16_t> last_entry_;
};

class volume {
public:
    volume(unsigned eus, unsigned data_eus, unsigned files = 100);

    // What lies in it.
    file_plan& file(unsigned number, std::vector<std::uint8_t> content);
    volume& empty(unsigned number) { return fat(number, afs::empty_file); }
    volume& zombie(unsigned number) { return fat(number, afs::zombie); }
    volume& fat(unsigned entry, std::uint16_t value); // as stored, over what files ask for
    // A page of the data area outside all files: complete, begun, or any record byte.
    volume& dead(unsigned index, std::uint8_t record = ftl::data_rec_complete);
    // The volume header, before it is laid down.
    afs::volume_header_t& header() { return header_; }
    volume& without_header() { return has_header_ = false, *this; }

    // Where it lies.
    eu_plan& eu(unsigned index) { return eus_.at(index); }
    log_plan log(unsigned index) { return {*this, eus_.at(index)}; }
    volume& swap(unsigned a, unsigned b); // everything but the place: kinds and contents change EUs
    volume& make_log(unsigned index);     // a blank log EU
    volume& make_data(unsigned index, unsigned group);
    volume& make_spare(unsigned index);
    // FAT pages stay off flash unless a log call places them.
    volume& without_auto_log() { return auto_log_ = false, *this; }
    // A byte as it lies in the image, over all else.
    volume& poke(std::uint32_t address, std::uint8_t value);

    std::vector<std::uint8_t> image() const;

    // Geometry.
    unsigned eus() const { return static_cast<unsigned>(eus_.size()); }
    unsigned files() const { return files_; }
    unsigned chunks() const { return chunks_; }
    std::uint32_t fat_size() const { return fat_size_; }
    std::uint32_t volume_size() const { return volume_size_; }
    unsigned fat_pages() const { return fat_size_ / ftl::page_bytes; }
    unsigned chunk_id(unsigned index) const { return files_ + index; }
    // The FAT page that holds an entry (a file number or a chunk id).
    static unsigned page_of(unsigned entry) { return afs::fat_entry_at(entry) / ftl::page_bytes; }
    // Address of a file's content in the virtual address space.
    std::uint32_t chunk_va(unsigned index) const { return fat_size_ + index * afs::chunk_bytes; }
    std::uint32_t eu_at(unsigned index) const { return index * ftl::eu_size; }

private:
    friend class log_plan;
    struct picture;
    void lay_header(const eu_plan& plan, std::uint8_t* at) const;
    void lay_log(const eu_plan& plan, const picture& contents, std::uint8_t* at) const;
    static void lay_data(const eu_plan& plan, std::uint8_t* at);
    void lay_files(picture& out, std::vector<eu_plan>& eus) const;
    void append_missing_pages(const picture& contents, std::vector<eu_plan>& eus) const;
    eu_plan* owner_of(std::vector<eu_plan>& eus, unsigned index) const;

    unsigned files_, chunks_, data_eus_;
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
