#include "inspect/recognize.h"

#include "ftl/eu_layout.h"
#include "inspect/inspect_internal.h"

#include <algorithm>
#include <cstring>

namespace yfs::inspect {

namespace {

bool has_erase_unit(std::span<const std::uint8_t> image)
{
    for (std::size_t at = 0; at + ftl::eu_size <= image.size(); at += ftl::eu_size) {
        if (load<le32>(image.data() + at) == ftl::eu_magic) return true;
    }
    return false;
}

bool sound(const std::uint8_t* at)
{
    const auto header = load<efs::efs_bm_header_t>(at);
    return header.version == efs::bm_version && header.bm_num != 0 &&
           EFS_crc32(0, at, efs::header_crc_bytes) == header.crc;
}

efs::geometry geometry_of(const efs::efs_bm_header_t& header)
{
    efs::geometry geo{};
    geo.bm_num = header.bm_num;
    geo.valid_block_num = header.valid_block_num;
    geo.non_valid_block_num = header.non_valid_block_num;
    return geo;
}

} // namespace

std::optional<efs_plan> plan_of_image(std::span<const std::uint8_t> image)
{
    for (std::size_t block = 0; block < efs::max_count && (block + 1) * efs::block_bytes <= image.size(); ++block) {
        const std::uint8_t* const at = image.data() + block * efs::block_bytes;
        const auto header = load<efs::efs_bm_header_t>(at);
        const efs::geometry geo = geometry_of(header);
        if (!sound(at) || block >= header.bm_num || !geo.representable() || geo.image_bytes() > image.size()) continue;
        efs_plan plan;
        plan.geo = geo;
        plan.layout_id = header.layout_id;
        plan.wear_threshold = UINT32_MAX;
        return plan;
    }
    return {};
}

std::optional<image_kind> recognize(std::span<const std::uint8_t> image)
{
    if (has_erase_unit(image)) return image_kind::afs;
    const bool marked = image.size() >= efs::block_bytes &&
                        std::equal(std::begin(efs::rtfd_marker), std::end(efs::rtfd_marker), image.begin());
    if (marked || plan_of_image(image)) return image_kind::efs;
    return {};
}

} // namespace yfs::inspect
