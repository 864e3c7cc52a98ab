// A new EU structure: log EUs first, then the data EUs, the spare last.
#include "ftl/flash_io.h"
#include "ftl/ftl_internal.h"
#include "yfs/medium.h"

namespace yfs::ftl {

std::uint8_t header_crc(eu_header_t header)
{
    header.magic = eu_magic;
    return crc8(&header, header_crc_bytes);
}

eu_header_t format_header(std::uint32_t eu, std::uint16_t base_page, bool spare)
{
    eu_header_t header{};
    // The spare's CRC is taken with the magic in place: it fails as a header, but its erase count can be trusted.
    header.magic = spare ? eu_magic_given_up : eu_magic;
    header.seq = eu + 1;
    header.erase_count = 1;
    header.src_eu = low16(eu + 1);
    header.base_page = base_page;
    header.crc = header_crc(header);
    header.commit = committed;
    return header;
}

} // namespace yfs::ftl

uint32_t afs_physical_ftl_format(struct afs_context* ctx, uint8_t erase)
{
    using namespace yfs::ftl;
    const uint32_t eus = ctx->flash_size / eu_size;
    if (eus == 0) return afs_status::ok;
    const uint32_t data_eus = ctx->volume_size > ctx->fat_size ? (ctx->volume_size - ctx->fat_size) / group_bytes : 0;
    const uint32_t first_data = eus - 1 - data_eus;

    for (uint32_t eu = 0; eu < eus; ++eu) {
        // A failed erase doesn't stop the format: the verified writes below find out.
        if (erase != 0) static_cast<void>(erase_eu(eu_at(*ctx, eu)));

        uint16_t base_page = 0;
        if (eu >= first_data && eu + 1 < ctx->ftl->eu_count) {
            base_page = yfs::low16((ctx->fat_size + group_bytes * (eu - ctx->ftl->log_eu_count)) / page_bytes);
        }
        const eu_header_t header = format_header(eu, base_page, eu + 1 == eus);
        uint8_t check[header_write_bytes];
        if (!write_verified(eu_at(*ctx, eu), header_write_bytes, &header, check)) return afs_status::failed;
        const uint32_t commit_at = eu_at(*ctx, eu) + static_cast<uint32_t>(offsetof(eu_header_t, commit));
        if (!write_verified(commit_at, header.commit)) return afs_status::failed;
    }
    return afs_status::ok;
}
