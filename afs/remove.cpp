// The operations on a file number beside read and write: delete, and the zombie mark that the next mount clears.
#include "afs/chain_step.h"

namespace yfs::afs {

// Puts `value` into the file's head on flash. COMMIT: one FAT page; before its commit byte the old head stands.
static std::uint32_t commit_head(afs_context& ctx, std::uint16_t file, std::uint16_t value)
{
    if (const std::uint32_t status = write_fat_entry(ctx, file, value); status != afs_status::ok) return status;
    const std::uint32_t status = cache_flush(&ctx);
    if (status != afs_status::ok) cache_invalidate(&ctx);
    return status;
}

// Memory only: a mount finds the chunks of a deleted file unreachable and leaves them free.
static std::uint32_t release_chain(afs_context& ctx, std::uint16_t head)
{
    std::uint16_t cid = head;
    while (is_chunk(cid)) {
        cid = low16(cid + release_neighbours(ctx, cid, ctx.chunks));
        if (const std::uint32_t status = trim_chunk(ctx, cid); status != afs_status::ok) return status;
        std::uint16_t following = 0;
        if (const std::uint32_t status = step_chain(ctx, cid, following); status != afs_status::ok) {
            return status;
        }
        afs_trim_fat_page_if_needed(&ctx, low16(chunk_index(ctx, cid)));
        cid = following;
    }
    afs_trim_fat_page_if_needed(&ctx, ctx.chunks);
    return afs_status::ok;
}

} // namespace yfs::afs

uint32_t afs_deletefile(afs_context* ctx, int32_t file)
{
    using namespace yfs::afs;
    if (!is_file_number(ctx, file)) return afs_status::invalid;
    const auto number = static_cast<uint16_t>(file);
    uint16_t head = 0;
    uint32_t status = step_chain(*ctx, number, head);
    if (status != afs_status::ok) return status;
    if (head == no_file) return afs_status::not_found;

    status = commit_head(*ctx, number, no_file);
    if (status != afs_status::ok) return status;
    if (head < zombie) status = release_chain(*ctx, head);
    if (ctx->file_sizes != nullptr) ctx->file_sizes[number] = no_size;
    return status;
}

uint32_t afs_mark_zombie_file(afs_context* ctx, int32_t file)
{
    using namespace yfs::afs;
    if (!is_file_number(ctx, file)) return afs_status::invalid;
    const auto number = static_cast<uint16_t>(file);
    uint16_t head = 0;
    if (const uint32_t status = step_chain(*ctx, number, head); status != afs_status::ok) return status;
    if (head != no_file) return afs_status::bad_state;
    return commit_head(*ctx, number, zombie);
}
