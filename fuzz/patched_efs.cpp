// The changes that are made to an EFS image, its layout and its geometry.
#include "fuzz/patched.h"

#include "fuzz/sound.h"
#include "fuzz/steps.h"
#include "tests/support/efs_builder.h"
#include "yfs/make_efs.h"

namespace fuzz {

using namespace yfs;

const std::vector<efs_file_t>& efs_layout()
{
    static const std::vector<efs_file_t> files = {
        {0, 0, 300, 1, 0}, {0, 320, 64, 1, 0}, {1, 0, 9000, 1, 0}, {3, 2000, 900, 1, 0}};
    return files;
}

namespace {

constexpr std::uint32_t area_at = offsetof(efs::data_block_t, data_area);

struct base_efs {
    bytes image;
    std::uint32_t slots[2]; // entries written, by block map
    bytes valid_table;      // of the entry in force
};

base_efs make_base_efs()
{
    test::use_efs_table(efs_shape, efs_layout(), 0, efs_wear_threshold);
    base_efs base{bytes(EFS_get_efs_size()), {}, {}};
    must(yfs_make_efs(base.image.data(), EFS_get_efs_size()) == 0 && EFS_init_tools(base.image.data()) == 0);
    const auto write_some = [](unsigned from, unsigned to) {
        for (unsigned i = from; i < to; ++i) {
            const bytes content = some_bytes(1 + i * 37 % efs_layout()[i % 3].max_size, i);
            must(EFS_write(i % 3, 0, low32(content.size()), content.data()) == 0);
        }
    };
    // Twice through the maps, and then nearly to the end of one.
    const std::uint32_t slots = (efs::block_bytes - 1 - efs::first_slot_at) / efs_shape.bme_bytes();
    write_some(0, 2 * slots - 8);
    const auto entry_at = [](std::uint32_t bm, std::uint32_t slot) {
        return efs::geometry::bm_at(bm) + efs::first_slot_at + slot * efs_shape.bme_bytes();
    };
    for (std::uint32_t bm = 0; bm < efs_shape.bm_num; ++bm) {
        while (base.slots[bm] < slots && base.image[entry_at(bm, base.slots[bm])] != 0xFF) ++base.slots[bm];
    }
    const std::uint8_t* const valid = efs_ctx.current_bme.valid_table;
    base.valid_table.assign(valid, valid + efs_shape.valid_block_num);
    return base;
}

class changed_efs {
public:
    explicit changed_efs(const base_efs& base) : image(base.image), base_(base) {}

    void take(input& in)
    {
        const std::uint32_t what = in.number(1);
        fits_ = (what & 0x80U) == 0;
        switch (what % 8) {
        case 0:
            return any_bytes(in);
        case 1:
            return map_header(in);
        case 2:
            return map_entry(in);
        case 3:
            return block_header(in);
        case 4:
            return copy_part(image, in, efs::block_bytes);
        case 5:
            return fill_stretch(image, in, efs::block_bytes);
        default:
            return chunk(in);
        }
    }

    void lift_counters(std::uint32_t left, bool sequence, bool erase_count)
    {
        for (std::uint32_t number = 0; number < blocks(); ++number) {
            const bool map = number < efs_shape.bm_num;
            if (!(map ? sequence : erase_count)) continue;
            std::uint8_t* const at = block(number) + (map ? offsetof(efs::efs_bm_header_t, sequence) : 0);
            store(at, le32(UINT32_MAX - left - 200 + load<le32>(at)));
            seal(block(number), efs::header_crc_bytes);
        }
    }

    bytes image;

private:
    static std::uint32_t blocks() { return low32(efs_shape.image_bytes() / efs::block_bytes); }
    std::uint8_t* block(std::uint32_t number) { return image.data() + std::size_t{number} * efs::block_bytes; }
    std::uint8_t* data_block(std::uint32_t physical) { return block(efs_shape.bm_num + physical); }

    void seal(std::uint8_t* begin, std::uint32_t length) const
    {
        if (fits_) store(begin + length, le32(EFS_crc32(0, begin, length)));
    }

    void any_bytes(input& in)
    {
        const std::uint32_t at = in.number(2) % low32(image.size());
        overwrite(image, at, in.bytes(in.number(1) % 8 + 1));
        if (at / efs::block_bytes >= efs_shape.bm_num) {
            seal(block(at / efs::block_bytes) + area_at, efs::data_area_bytes);
        }
    }

    // A field of a block map's header.
    void map_header(input& in)
    {
        std::uint8_t* const map = block(in.number(1) % efs_shape.bm_num);
        const std::uint32_t at = in.number(1) % efs::header_crc_bytes;
        const bytes value = in.bytes(at == offsetof(efs::efs_bm_header_t, sequence) ? 4 : 1);
        std::copy(value.begin(), value.end(), map + at);
        seal(map, efs::header_crc_bytes);
    }

    // A byte of an entry, counted from the last one written.
    void map_entry(input& in)
    {
        const std::uint32_t bm = in.number(1) % efs_shape.bm_num, back = in.number(1);
        const std::uint32_t slot = base_.slots[bm] > back ? base_.slots[bm] - back : 0; // 0 back: behind the end
        const std::uint32_t at = efs::first_slot_at + slot * efs_shape.bme_bytes();
        const std::uint32_t covered = efs_shape.bme_bytes() - low32(sizeof(le32));
        if (at + efs_shape.bme_bytes() > efs::block_bytes) return;
        std::uint8_t* const entry = block(bm) + at;
        if (back == 0) std::copy_n(entry - efs_shape.bme_bytes(), efs_shape.bme_bytes(), entry);
        const std::uint32_t first = in.number(1) % covered, second = in.number(1) % covered;
        if (in.number(1) % 2 == 0) {
            std::swap(entry[first], entry[second]); // still names each block once
        } else {
            entry[first] = static_cast<std::uint8_t>(second);
        }
        seal(entry, covered);
    }

    void block_header(input& in)
    {
        std::uint8_t* const header = data_block(in.number(1) % low32(efs_shape.data_blocks()));
        store(header, le32(in.number(4)));
        seal(header, efs::header_crc_bytes);
    }

    // The length that the first chunk of a file tells, or a byte of its payload.
    void chunk(input& in)
    {
        const efs_file_t& file = efs_layout()[in.number(1) % efs_layout().size()];
        std::uint8_t* const block = data_block(base_.valid_table[file.first_block]);
        std::uint8_t* const at = block + area_at + file.offset;
        const std::uint32_t byte = in.number(1);
        store(at, le16(low16(in.number(2))));
        const std::uint32_t told = load<le16>(at), room = efs::chunk_room - file.offset;
        const std::uint32_t length = told == efs::no_file ? 0 : std::min(told, room);
        if (byte < length) at[sizeof(efs::efs_chunk_header_t) + byte] ^= 0xFFU;
        if (!fits_) return;
        std::uint16_t crc = EFS_crc16(file.first_block, at, 2);
        crc = EFS_crc16(crc, at + sizeof(efs::efs_chunk_header_t), length);
        store(at + offsetof(efs::efs_chunk_header_t, crc), le16(crc));
        seal(block + area_at, efs::data_area_bytes);
    }

    const base_efs& base_;
    bool fits_ = true;
};

const base_efs& base()
{
    static const base_efs made = make_base_efs();
    return made;
}

} // namespace

const bytes& efs_base_image()
{
    return base().image;
}

bytes patched_efs(input& in)
{
    changed_efs efs(base());
    std::vector<efs_file_t> files = efs_layout();
    const std::uint32_t how = in.number(1);
    for (std::uint32_t count = how / 16; count != 0 && !in.empty(); --count) efs.take(in);
    if ((how & 2U) != 0) {
        efs_file_t& file = files[in.number(1) % files.size()];
        file = {static_cast<std::uint8_t>(in.number(1)), static_cast<std::uint16_t>(in.number(2)),
                static_cast<std::uint16_t>(in.number(2)), 1, 0};
    }
    if ((how & 4U) != 0) {
        const std::uint32_t which = in.number(1);
        efs.lift_counters(in.number(1), (which & 1U) != 0, (which & 2U) != 0);
    }
    efs::geometry shape = efs_shape;
    if ((how & 8U) != 0) shape = {in.number(1) % 5, in.number(1) % 9, in.number(1) % 6};
    test::use_efs_table(shape, files, static_cast<std::uint8_t>((how & 1U) != 0 ? in.number(1) : 0),
                        efs_wear_threshold);
    // The host's buffer has the size that the geometry asks for.
    if (shape != efs_shape) set_length(efs.image, EFS_get_efs_size());
    return std::move(efs.image);
}

} // namespace fuzz
