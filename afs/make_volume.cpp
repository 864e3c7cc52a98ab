// A formatted, empty volume in a caller's buffer: EU headers as the format lays them, and the one page that holds the
// volume header. Written straight into the buffer, so that no mounted volume and no medium is touched.
#include "yfs/make_volume.h"

#include "afs/afs_internal.h"
#include "ftl/flash_io.h"
#include "ftl/ftl_internal.h"

namespace yfs::afs {

namespace {

struct volume_plan {
    std::uint32_t eus;
    std::uint32_t data_eus;
    std::uint32_t files;

    std::uint32_t fat_size() const { return low32(fat_size_of(files, std::uint64_t{ftl::data_slots} * data_eus)); }
    std::uint32_t volume_size() const { return fat_size() + ftl::group_bytes * data_eus; }
    std::uint32_t log_eus() const { return eus - 1 - data_eus; }
    // The log holds every FAT page with one EU to spare.
    bool log_has_room() const
    {
        const std::uint32_t pages = fat_size() / ftl::page_bytes;
        return log_eus() >= (pages + ftl::log_slots - 1) / ftl::log_slots + 1;
    }
};

constexpr std::uint32_t max_eus = 255; // the counts of a mount are 8 bits wide

bool plan_volume(std::uint32_t size, std::uint32_t files, volume_plan& plan)
{
    if (size < min_flash_size || size > max_eus * ftl::eu_size || files < min_files || files > max_files) return false;
    const std::uint32_t eus = size / ftl::eu_size;
    plan = {eus, eus - 1 - eus / 12, files};
    while (plan.data_eus > 0 && !plan.log_has_room()) --plan.data_eus;
    return plan.data_eus > 0;
}

void put_page0(const volume_plan& plan, std::uint8_t* log_eu)
{
    volume_header_t header{};
    header.magic = volume_magic;
    header.volume_size = plan.volume_size();
    header.files = low16(plan.files);
    std::uint8_t page[ftl::page_bytes] = {};
    store(page, header);

    const le16 record = ftl::log_record(0, 0);
    store(log_eu + ftl::log_record_at(0), record);
    store(log_eu + ftl::log_frame_at(0), ftl::frame_with(page, ftl::page_crc(page, 0)));
    log_eu[ftl::log_commit_at(0)] = ftl::log_commit_byte;
}

} // namespace

} // namespace yfs::afs

uint32_t yfs_make_volume(void* image, uint32_t size, uint32_t files)
{
    using namespace yfs::afs;
    volume_plan plan{};
    if (image == nullptr || !plan_volume(size, files, plan)) return afs_status::invalid;

    auto* bytes = static_cast<uint8_t*>(image);
    std::memset(bytes, 0xFF, size);
    for (uint32_t eu = 0; eu < plan.eus; ++eu) {
        const bool spare = eu + 1 == plan.eus;
        uint32_t base_page = 0;
        if (eu >= plan.log_eus() && !spare) {
            base_page = plan.fat_size() / yfs::ftl::page_bytes + yfs::ftl::data_slots * (eu - plan.log_eus());
        }
        yfs::store(bytes + size_t{eu} * yfs::ftl::eu_size, yfs::ftl::format_header(eu, yfs::low16(base_page), spare));
    }
    put_page0(plan, bytes);
    return afs_status::ok;
}
