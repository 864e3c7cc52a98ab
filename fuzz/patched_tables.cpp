// Tables with plain changes, and the sound set of buffers of a run.
#include "fuzz/patched.h"

#include "efs/layout.h"
#include "fuzz/sound.h"
#include "tests/support/table_builder.h"

namespace fuzz {

using namespace yfs;

namespace {

template <flash_record R>
void append(bytes& to, const R& record)
{
    to.resize(to.size() + sizeof record);
    store(to.data() + to.size() - sizeof record, record);
}

// The record of EFS for one SKU, to stand at `at` of a file table.
bytes make_efst(std::uint32_t sku, std::size_t at)
{
    const auto& files = efs_layout();
    bytes efst;
    efs::efst_header_t header{};
    header.magic = efs::efst_magic;
    header.record_count = 1;
    append(efst, header);
    efs::efst_sku_record_t record{};
    record.sku_id = sku;
    record.files_offset = low32(at + sizeof header + sizeof record);
    record.files_count = record.files_num = low32(files.size());
    record.files_size = low32(files.size() * sizeof(efs::efst_file_record_t));
    record.bm_num = efs_shape.bm_num;
    record.valid_block_num = efs_shape.valid_block_num;
    record.non_valid_block_num = efs_shape.non_valid_block_num;
    record.wear_leveling_threshold = efs_wear_threshold;
    append(efst, record);
    for (std::size_t i = 0; i < files.size(); ++i) {
        efs::efst_file_record_t file{};
        file.file_index = low16(i);
        file.first_block = files[i].first_block;
        file.offset = files[i].offset;
        file.max_size = files[i].max_size;
        append(efst, file);
    }
    return efst;
}

// Two SKUs, and EFST where it has to stand: behind their rows.
bytes make_table_with_efst(const std::vector<test::table_file>& files)
{
    constexpr std::uint32_t skus = 2;
    bytes table = test::make_file_table({{7, files}, {9, {files[1]}}}, 1536);
    const std::size_t efst_at = (skus + 1) * sizeof(ftbl_sku_entry_t);
    const bytes efst = make_efst(7, efst_at);
    table.insert(table.begin() + efst_at, efst.begin(), efst.end());
    for (std::uint32_t row = 0; row < skus; ++row) {
        std::uint8_t* const at = table.data() + sizeof(ftbl_header_t) + row * sizeof(ftbl_sku_entry_t);
        auto entry = load<ftbl_sku_entry_t>(at);
        entry.table_offset = entry.table_offset + low32(efst.size());
        store(at, entry);
    }
    return table;
}

host_set make_sound_set()
{
    host_set made;
    made.ftbl = make_table_with_efst({{"/home/qrd/deploy", 0x200, 0, 1},
                                      {"/home/net/name", 0x201, 0, 2, 1, 2000},
                                      {"/home/net/mac", 0x202, 2, 3},
                                      {"/home/key", 0x203, 1, 4},
                                      {"/home/log", 0x204, 0, 5},
                                      {"/home/cal", 0x205, 0, 0, 2, 300}});
    made.velor = test::make_cfg_table({{0x201, some_bytes(5, 1)},
                                       {0x202, some_bytes(6, 2)},
                                       {0x203, some_bytes(30, 3)},
                                       {0x204, {}},
                                       {0x205, some_bytes(20, 4)}});
    made.zonc = test::make_partition(test::make_cfg_table({{0x201, some_bytes(9, 5)}, {0x205, some_bytes(8, 6)}}));
    made.yfs = host_volume_image();
    made.efs = efs_base_image();
    return made;
}

} // namespace

void fill_stretch(bytes& of, input& in, std::uint32_t most)
{
    const std::uint32_t at = in.number(2) % low32(of.size()), count = in.number(2) % (most + 1);
    const std::uint8_t value = in.number(1) % 2 == 0 ? 0xFF : 0;
    std::fill_n(of.begin() + at, std::min<std::size_t>(count, of.size() - at), value);
}

void copy_part(bytes& of, input& in, std::uint32_t size)
{
    const std::uint32_t parts = low32(of.size() / size), from = in.number(1) % parts, to = in.number(1) % parts;
    if (from != to) std::copy_n(of.begin() + std::ptrdiff_t{from} * size, size, of.begin() + std::ptrdiff_t{to} * size);
}

bytes patched(bytes base, input& in)
{
    const std::uint32_t how = in.number(1);
    for (std::uint32_t count = how % 16; count != 0 && !in.empty() && !base.empty(); --count) {
        const std::size_t at = in.number(2) % base.size();
        overwrite(base, at, in.bytes(in.number(1) % 8 + 1));
    }
    if ((how & 0x80U) != 0) set_length(base, in.number(2) % (base.size() + 100));
    return base;
}

const host_set& sound_set()
{
    static const host_set set = make_sound_set();
    return set;
}

} // namespace fuzz
