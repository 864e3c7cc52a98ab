#include "fuzz/steps.h"

#include "yfs/dfs.h"
#include "yfs/status.h"

#include <cstdlib>
#include <set>

namespace fuzz {

void must(bool holds)
{
    if (!holds) std::abort();
}

bytes some_bytes(std::size_t count, unsigned seed)
{
    bytes out(count);
    for (std::uint8_t& byte : out) byte = static_cast<std::uint8_t>((seed = seed * 1664525U + 1013904223U) >> 24);
    return out;
}

std::optional<bytes> read_afs(std::uint32_t file, bool size_known)
{
    std::uint32_t size = 0;
    if (dfs_getsize(file, &size) != 0) return std::nullopt;
    bytes content(size);
    std::uint32_t length = size;
    if (dfs_read(file, 0, &length, content.data()) != 0) return std::nullopt;
    must(length == size || !size_known);
    content.resize(length);
    return content;
}

// Whether no group is claimed by two units. Where one is, a reclaim of either can change which of them is read.
static bool groups_are_distinct()
{
    if (dfs_context->ftl == nullptr) return true;
    std::set<unsigned> seen;
    for (unsigned eu = 0; eu < dfs_context->ftl->eu_count; ++eu) {
        const unsigned base_page = dfs_context->ftl->eu_table[eu].base_page;
        if (base_page != 0 && !seen.insert(base_page).second) return false;
    }
    return true;
}

// One write: one that is done reads back, and one that is refused for want of room leaves the old file.
static void write_afs(std::uint32_t file, std::uint32_t offset, std::uint32_t length, bool ends, unsigned seed)
{
    // Where chains meet, a change of one file shows in the other, whose size stays as the mount has counted it.
    const auto read_now = [file] { return read_afs(file, dfs_context->shared_map == nullptr); };
    const std::optional<bytes> before = read_now();
    const bytes content = some_bytes(length, seed);
    const bool sure = groups_are_distinct();
    const std::uint32_t status = dfs_write(file, offset, length, content.data(), ends ? 1 : 0);
    if (status == 0 && ends && offset == 0) must(read_now() == content || !sure);
    if (status == afs_status::no_space && before) must(read_now() == before || !sure);
}

// With flags that a host doesn't take: read only, without sizes, a fresh header, a fresh format, behind an offset.
static void mount_otherwise(input& in, bytes& image)
{
    constexpr std::uint32_t allowed = 0xC01B9; // all but 0x40, which forgets what the context owns
    const std::uint32_t flags = in.number(3) & allowed, base = in.number(1) % 4 * 4096;
    if (dfs_context == nullptr || image.size() < base) return;
    const std::uint32_t status = afs_init(dfs_context, image.data(), 64, in.number(1) % 40, 65 + in.number(1), base,
                                          static_cast<std::uint32_t>(image.size()) - base, flags | 0x20024, 0, 0);
    if (status != 0) dfs_init(image.data(), static_cast<std::uint32_t>(image.size())); // nothing is built by halves
}

void change_afs(input& in, bytes& image)
{
    for (int i = 0; i < 24 && !in.empty(); ++i) {
        const std::uint32_t what = in.number(1), file = what >= 0xF0 ? in.number(2) : in.number(1) % 66;
        switch (what % 16) {
        case 0:
            dfs_delete_file(file);
            break;
        case 1:
            dfs_mark_zombie_file(file);
            break;
        case 2:
            dfs_idle_reclaim();
            break;
        case 3:
            dfs_force_full_reclaim();
            break;
        case 4:
            dfs_force_dirty_erase();
            break;
        case 5:
            dfs_set_page_size(in.number(2));
            break;
        case 6:
            dfs_init(image.data(), static_cast<std::uint32_t>(image.size()));
            break;
        case 7:
            mount_otherwise(in, image);
            break;
        case 8:
            afs_free_file_size_table(dfs_context);
            break;
        case 9:
            write_afs(file, in.number(2) % 20000, in.number(2) % 1024, what / 16 % 2 != 0, what);
            break;
        case 10:
            write_afs(file, in.number(2), 0, what / 16 % 2 != 0, what);
            break;
        default:
            write_afs(file, 0, in.number(2) % 2048, what / 16 % 2 != 0, what);
            break;
        }
    }
}

void leave_afs()
{
    dfs_init(nullptr, 0);
}

} // namespace fuzz
