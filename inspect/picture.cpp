#include "inspect/inspect_internal.h"

#include "yfs/medium.h"

#include <algorithm>

namespace yfs::inspect {

bool frame_matches(const std::uint8_t* frame, std::uint32_t page)
{
    const auto record = load<ftl::page_frame_t>(frame);
    const le16 key = low16(page);
    return crc16(record.data, sizeof record.data, key.byte) == record.crc;
}

bool all_blank(std::span<const std::uint8_t> bytes)
{
    // Blocks of a fixed size let the compiler compare many bytes at once.
    while (bytes.size() >= 64) {
        std::uint8_t sum = 0xFF;
        for (const std::uint8_t b : bytes.first<64>()) sum &= b;
        if (sum != 0xFF) return false;
        bytes = bytes.subspan(64);
    }
    return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t b) { return b == 0xFF; });
}

bool picture::has(finding_id id) const
{
    return std::any_of(findings.begin(), findings.end(), [id](const finding& f) { return f.id == id; });
}

severity picture::worst() const
{
    severity out = severity::info;
    for (const finding& f : findings) out = std::max(out, severity_of(f));
    return out;
}

std::span<const std::uint16_t> picture::chunks_of(std::uint32_t file_number) const
{
    if (file_number >= file.size()) return {};
    return std::span(chain).subspan(file[file_number].first, file[file_number].count);
}

std::uint16_t picture::entry(std::uint32_t index) const
{
    const std::size_t at = std::size_t{afs::fat_at} + 2 * std::size_t{index};
    return at + 2 > fat.size() ? std::uint16_t{0} : std::uint16_t{load<le16>(fat.data() + at)};
}

std::uint32_t picture::frame_address(std::uint32_t chunk_id) const
{
    if (chunk_id < files || chunk_id - files >= chunks) return none;
    const std::uint32_t index = chunk_id - files;
    const std::uint32_t owner = group_owner[index / ftl::data_slots];
    return owner == none ? none : eu_at(owner) + ftl::data_frame_at(index % ftl::data_slots);
}

picture inspect_image(std::span<const std::uint8_t> image)
{
    picture p;
    p.image = image;
    const auto too_small = image.size() < afs::min_flash_size;
    if (too_small || image.size() / ftl::eu_size >= afs::max_flash_size / ftl::eu_size)
        p.findings.push_back({.id = finding_id::image_size, .value = low32(image.size())});

    read_erase_units(p);
    std::vector<page_place> places;
    walk_logs(p, places);
    if (!read_volume(p, places)) return p;
    read_fat(p, std::move(places));
    assign_groups(p);
    follow_chains(p);
    check_data(p);
    return p;
}

std::optional<std::vector<std::uint8_t>> read_file(const picture& from, std::uint32_t file_number)
{
    if (file_number >= from.file.size()) return std::nullopt;
    const file_view& file = from.file[file_number];
    if (file.state != file_state::empty && file.state != file_state::present) return std::nullopt;
    std::vector<std::uint8_t> out(file.size);
    std::size_t done = 0;
    for (const std::uint16_t chunk : from.chunks_of(file_number)) {
        const std::size_t part = std::min<std::size_t>(afs::chunk_bytes, out.size() - done);
        const std::uint32_t at = from.frame_address(chunk);
        if (at != none) std::copy_n(from.image.begin() + at, part, out.begin() + static_cast<std::ptrdiff_t>(done));
        done += part;
    }
    return out;
}

} // namespace yfs::inspect
