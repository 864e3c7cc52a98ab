#include "tool/flash_places.h"

#include <fmt/format.h>

#include <cstddef>

namespace yfs::tool {

namespace {

std::string log_part(std::uint32_t offset)
{
    if (offset < offsetof(ftl::log_eu_t, frame))
        return fmt::format("record {}", (offset - offsetof(ftl::log_eu_t, rec)) / 2);
    const std::size_t slot = (offset - offsetof(ftl::log_eu_t, frame)) / ftl::frame_size;
    return slot < ftl::log_slots ? fmt::format("slot {}: frame", slot) : std::string("unused");
}

std::string data_part(std::uint32_t offset)
{
    if (offset < offsetof(ftl::data_eu_t, frame))
        return fmt::format("slot {}: record", offset - offsetof(ftl::data_eu_t, rec));
    return fmt::format("slot {}: frame", (offset - offsetof(ftl::data_eu_t, frame)) / ftl::frame_size);
}

} // namespace

std::string place_text(const inspect::picture& volume, std::uint32_t address)
{
    const std::uint32_t eu = address / ftl::eu_size, offset = address % ftl::eu_size;
    if (eu >= volume.eus.size()) return "behind the erase units";
    const bool log = volume.eus[eu].role == inspect::eu_role::log;
    const std::string unit = fmt::format("{}EU {}", log ? "log " : "", eu);
    if (offset < offsetof(ftl::eu_header_t, commit)) return unit + ": header";
    if (offset == offsetof(ftl::eu_header_t, commit)) return unit + ": commit";
    return fmt::format("{}, {}", unit, log ? log_part(offset) : data_part(offset));
}

std::string place_text(const inspect::efs_picture& image, std::uint32_t address)
{
    const efs::geometry& geo = image.plan.geo;
    const std::uint32_t block = address / efs::block_bytes, offset = address % efs::block_bytes;
    if (block < geo.bm_num) {
        if (offset < efs::first_slot_at) return fmt::format("map {}: header", block);
        return fmt::format("map {}: entry {}", block, (offset - efs::first_slot_at) / geo.bme_bytes());
    }
    const char* const part = offset < offsetof(efs::data_block_t, data_area) ? "header"
                             : offset < offsetof(efs::data_block_t, footer)  ? "data area"
                                                                             : "footer";
    return fmt::format("block {}: {}", block - geo.bm_num, part);
}

} // namespace yfs::tool
