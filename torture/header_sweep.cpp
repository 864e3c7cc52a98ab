// The header of the unit that takes over, torn after each of its bytes, for every sequence number and several erase
// counts: its checksum has 8 bits, so now and then a part passes for the whole. The volume must mount, reclaim all its
// units, and mount again.
#include "torture/torture.h"

#include "tests/support/spi_chip.h"
#include "tests/support/volume_builder.h"
#include "yfs/dfs.h"
#include "yfs/medium.h"
#include "yfs/status.h"

#include <cstring>
#include <utility>

namespace torture {

using namespace yfs;

namespace {

std::vector<std::uint8_t> small_volume()
{
    test::volume v(4, 2, 65);
    v.file(1, test::bytes(500, 1)).in_chunks({0, 1, 2, 3, 4, 5, 6, 7});
    v.file(2, test::bytes(64, 2)).in_chunks({130});
    return v.image();
}

void shift_sequence(std::vector<std::uint8_t>& image, std::uint32_t by)
{
    for (std::size_t at = 0; at < image.size(); at += ftl::eu_size) {
        auto header = load<ftl::eu_header_t>(image.data() + at);
        const le32 magic = std::exchange(header.magic, le32{ftl::eu_magic});
        header.seq = header.seq + by;
        header.crc = crc8(&header, ftl::header_crc_bytes);
        header.magic = magic;
        store(image.data() + at, header);
    }
}

bool lives(std::vector<std::uint8_t>& image)
{
    test::nor_chip chip(image);
    chip.violations_fail_test(false);
    const test::spi_chip_guard guard(chip);
    const auto size = static_cast<std::uint32_t>(image.size());
    if (dfs_init(image.data(), size) != 0) return false;
    for (int turn = 0; turn < 3; ++turn) {
        while (dfs_force_full_reclaim() == afs_status::call_again) {
        }
    }
    std::uint32_t held = 0;
    return dfs_init(image.data(), size) == 0 && dfs_getsize(1, &held) == 0 && held == 500 && chip.violations().empty();
}

} // namespace

void sweep_headers(std::uint32_t first, std::uint32_t last, totals& all)
{
    const auto start = small_volume();
    const std::uint32_t spare = 3;
    for (std::uint32_t by = first; by < last; ++by) {
        auto shifted = start;
        shift_sequence(shifted, by);
        std::memset(shifted.data() + std::size_t{spare} * ftl::eu_size, 0xFF, ftl::eu_size);
        for (const std::uint32_t count : {1U, 0x100U, 0xFFU, 0xFFFFU, 0xFEFFFFFFU}) {
            ftl::eu_header_t header{};
            header.magic = ftl::eu_magic;
            header.seq = 3 + by + 1;
            header.erase_count = count;
            header.src_eu = 1;
            header.base_page = load<ftl::eu_header_t>(start.data() + ftl::eu_size).base_page;
            header.crc = crc8(&header, ftl::header_crc_bytes);
            for (std::uint32_t torn = 1; torn <= ftl::header_write_bytes; ++torn) {
                ++all.cuts;
                auto image = shifted;
                std::memcpy(image.data() + std::size_t{spare} * ftl::eu_size, &header, torn);
                if (!lives(image))
                    report_loss(all, by,
                                "header torn after " + std::to_string(torn) + " bytes, erase count " +
                                    std::to_string(count));
            }
        }
    }
}

} // namespace torture
