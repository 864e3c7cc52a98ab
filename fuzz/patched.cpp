#include "fuzz/patched.h"

#include "afs/volume_layout.h"
#include "efs/layout.h"
#include "ftl/flash_io.h"
#include "ftl/ftl_internal.h"
#include "tests/support/efs_builder.h"
#include "tests/support/table_builder.h"
#include "yfs/dfs.h"
#include "yfs/make_efs.h"
#include "yfs/make_volume.h"
#include "yfs/medium.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace fuzz {

using namespace yfs;

namespace {

void expect(bool fine)
{
    if (!fine) std::abort(); // a base that can't be made is a fault, too
}

bytes some_bytes(std::size_t count, unsigned seed)
{
    bytes out(count);
    for (std::uint8_t& byte : out) byte = static_cast<std::uint8_t>((seed = seed * 1664525U + 1013904223U) >> 24);
    return out;
}

// ---- AFS ----

struct base_volume {
    bytes image;
    std::vector<std::uint32_t> log_page; // by unit and slot: the page kept there, for its checksum; else none
};

void put(std::uint32_t file, const bytes& content)
{
    expect(dfs_write(file, 0, static_cast<std::uint32_t>(content.size()), content.data(), 1) == 0);
}

base_volume make_base_volume()
{
    constexpr std::uint32_t size = 8 * ftl::eu_size;
    base_volume base;
    base.image.resize(size);
    expect(yfs_make_volume(base.image.data(), size, 65) == 0 && dfs_init(base.image.data(), size) == 0);
    for (unsigned i = 0; i < 150; ++i) put(i % 12, some_bytes(40 * (i % 23), i));
    put(20, {});
    expect(dfs_mark_zombie_file(21) == 0);
    base.log_page.assign(std::size_t{8} * ftl::log_slots, ftl::none);
    const ftl_context& ftl = *dfs_context->ftl;
    for (std::uint32_t page = 0; page < ftl.page_entries; ++page) {
        const ftl_page_entry entry = ftl.page_map[page];
        if (entry.slot < ftl::log_slots) base.log_page[std::size_t{entry.eu} * ftl::log_slots + entry.slot] = page;
    }
    return base;
}

void repair_frame(std::uint8_t* frame, std::uint32_t page)
{
    store(frame + ftl::page_bytes, le16(ftl::page_crc(frame, page)));
}

void repair_volume(const base_volume& base, bytes& image, std::uint32_t at)
{
    const std::uint32_t unit = at / ftl::eu_size, offset = at % ftl::eu_size;
    std::uint8_t* const eu = image.data() + std::size_t{unit} * ftl::eu_size;
    auto header = load<ftl::eu_header_t>(eu);
    if (offset < sizeof header) {
        const le32 magic = std::exchange(header.magic, le32{ftl::eu_magic});
        header.crc = crc8(&header, ftl::header_crc_bytes);
        header.magic = magic;
        store(eu, header);
    } else if (header.base_page == 0 && offset >= ftl::log_frame_at(0)) {
        const std::uint32_t slot = (offset - ftl::log_frame_at(0)) / ftl::frame_size;
        if (slot >= ftl::log_slots) return;
        const std::uint32_t page = base.log_page[std::size_t{unit} * ftl::log_slots + slot];
        if (page != ftl::none) repair_frame(eu + ftl::log_frame_at(slot), page);
    } else if (header.base_page != 0 && offset >= ftl::data_frame_at(0)) {
        const std::uint32_t slot = (offset - ftl::data_frame_at(0)) / ftl::frame_size;
        repair_frame(eu + ftl::data_frame_at(slot), header.base_page + slot);
    }
}

// ---- EFS ----

constexpr efs::geometry efs_shape = {2, 7, 3};
const std::vector<efs_file_t>& efs_layout()
{
    static const std::vector<efs_file_t> files = {
        {0, 0, 300, 1, 0}, {0, 320, 64, 1, 0}, {1, 0, 9000, 1, 0}, {6, 2000, 900, 1, 0}};
    return files;
}

bytes make_base_efs()
{
    test::use_efs_table(efs_shape, efs_layout(), 0, 4);
    bytes image(EFS_get_efs_size());
    expect(yfs_make_efs(image.data(), EFS_get_efs_size()) == 0 && EFS_init_tools(image.data()) == 0);
    for (unsigned i = 0; i < 200; ++i) {
        const bytes content = some_bytes(1 + i * 37 % efs_layout()[i % 3].max_size, i);
        expect(EFS_write(i % 3, 0, static_cast<std::uint32_t>(content.size()), content.data()) == 0);
    }
    return image;
}

void repair_crc32(std::uint8_t* begin, std::uint32_t length)
{
    store(begin + length, le32(EFS_crc32(0, begin, length)));
}

void repair_efs(bytes& image, std::uint32_t at)
{
    const std::uint32_t block = at / efs::block_bytes, offset = at % efs::block_bytes;
    std::uint8_t* const start = image.data() + std::size_t{block} * efs::block_bytes;
    if (offset < 16) return repair_crc32(start, 12);
    const std::uint32_t slot_bytes = efs_shape.bme_bytes();
    if (block < efs_shape.bm_num) {
        const std::uint32_t slot = efs::first_slot_at + (offset - efs::first_slot_at) / slot_bytes * slot_bytes;
        if (slot + slot_bytes <= efs::block_bytes) repair_crc32(start + slot, slot_bytes - 4);
        return;
    }
    for (const efs_file_t& file : efs_layout()) { // as if the block held this file's first chunk
        std::uint8_t* const chunk = start + offsetof(efs::data_block_t, data_area) + file.offset;
        const auto header = load<efs::efs_chunk_header_t>(chunk);
        const std::uint32_t length =
            header.length == efs::no_file ? 0 : std::min<std::uint32_t>(header.length, efs::chunk_room - file.offset);
        if (offset % 3 != 0 || length > file.max_size) continue;
        std::uint16_t crc = EFS_crc16(file.first_block, chunk, 2);
        crc = EFS_crc16(crc, chunk + sizeof header, length);
        store(chunk + offsetof(efs::efs_chunk_header_t, crc), le16(crc));
    }
    store(start + offsetof(efs::data_block_t, footer),
          le32(EFS_crc32(0, start + offsetof(efs::data_block_t, data_area), efs::data_area_bytes)));
}

template <typename Repair>
void patch(bytes& image, input& in, Repair repair)
{
    for (std::uint32_t count = in.number(1) % 16; count != 0 && !in.empty(); --count) {
        const std::uint32_t place = in.number(3), how = in.number(1);
        const std::uint32_t at = static_cast<std::uint32_t>((place & 0x7FFFFFU) % image.size());
        const bytes change = in.bytes(how % 8 + 1);
        for (std::size_t i = 0; i < change.size() && at + i < image.size(); ++i) image[at + i] = change[i];
        if ((how & 0x80U) == 0) repair(at);
    }
}

} // namespace

bytes patched(bytes base, input& in)
{
    if (!base.empty()) patch(base, in, [](std::uint32_t) {});
    return base;
}

bytes patched_volume(input& in)
{
    static const base_volume base = make_base_volume();
    bytes image = base.image;
    patch(image, in, [&](std::uint32_t at) { repair_volume(base, image, at); });
    return image;
}

bytes patched_efs(input& in)
{
    static const bytes base = make_base_efs();
    bytes image = base;
    std::vector<efs_file_t> files = efs_layout();
    if (in.number(1) % 4 == 0) {
        efs_file_t& file = files[in.number(1) % files.size()];
        file = {static_cast<std::uint8_t>(in.number(1)), static_cast<std::uint16_t>(in.number(2)),
                static_cast<std::uint16_t>(in.number(2)), 1, 0};
    }
    test::use_efs_table(efs_shape, files, 0, 4);
    patch(image, in, [&](std::uint32_t at) { repair_efs(image, at); });
    return image;
}

const host_set& sound_set()
{
    static const host_set set = [] {
        host_set made;
        std::vector<test::table_file> files = {{"/home/qrd/deploy", 0x200, 0, 1}, {"/home/net/name", 0x201, 0, 2},
                                               {"/home/net/mac", 0x202, 0, 3},    {"/home/key", 0x203, 1, 4},
                                               {"/home/log", 0x204, 2, 5},        {"/home/cal", 0x205, 0, 0, 2, 300}};
        made.ftbl = test::make_file_table({{7, files}}, 2048);
        made.velor = test::make_cfg_table({{0x201, some_bytes(5, 1)},
                                           {0x202, some_bytes(6, 2)},
                                           {0x203, some_bytes(30, 3)},
                                           {0x204, {}},
                                           {0x205, some_bytes(20, 4)}});
        made.zonc = test::make_partition(test::make_cfg_table({{0x201, some_bytes(9, 5)}, {0x205, some_bytes(8, 6)}}));
        made.yfs.resize(8 * ftl::eu_size);
        expect(yfs_make_volume(made.yfs.data(), 8 * ftl::eu_size, 65) == 0 &&
               dfs_init(made.yfs.data(), 8 * ftl::eu_size) == 0);
        put(1, some_bytes(3, 7));
        put(2, some_bytes(9, 5));
        put(4, some_bytes(70, 3));
        return made;
    }();
    return set;
}

} // namespace fuzz
