// The images of the sample set. They have a past, so that a reader of them meets what a device leaves: chunks and
// blocks in disorder, dead contents, reclaimed erase units, switched block maps, levelled wear.
#include "tool/sample_images.h"

#include "tool/error.h"
#include "tool/file_table.h"
#include "tool/sample_content.h"
#include "yfs/dfs.h"
#include "yfs/efs.h"
#include "yfs/make_efs.h"
#include "yfs/make_volume.h"

#include <fmt/format.h>

#include <algorithm>

namespace yfs::tool {

namespace {

[[noreturn]] void give_up(std::string_view what, std::uint32_t status)
{
    throw failure(fault::library, fmt::format("the sample can't be made: {} answers {}", what, status));
}

// What an image holds of a file: its value and, with attribute bit 0, the tail behind it.
bytes stored_contents(const sample_file& file)
{
    bytes contents = file.live.make(file.fileno);
    if ((file.attributes & attribute_tail) != 0) {
        const sample_bytes tail{
            sample_bytes::kind::noise, {}, (file.attributes & attribute_long_tail) != 0 ? 56U : 40U};
        const bytes made = tail.make(~file.fileno);
        append(contents, made);
    }
    return contents;
}

void replace(std::uint32_t number, const bytes& contents)
{
    constexpr std::uint32_t ends_behind = 1;
    const auto size = static_cast<std::uint32_t>(contents.size());
    if (const auto status = dfs_write(number, 0, size, contents.data(), ends_behind)) give_up("dfs_write", status);
}

// One step of the volume's past: a file rewritten, changed in the middle, grown at its end, or removed.
void age(std::uint32_t number, std::uint32_t longest, sample_random& random)
{
    const std::uint32_t size = 1 + random.below(longest);
    const bytes contents = sample_bytes{sample_bytes::kind::noise, {}, size}.make(low32(random.next()));
    std::uint32_t held = 0;
    const bool exists = dfs_getsize(number, &held) == 0;
    const std::uint32_t step = exists ? random.below(8) : 0;
    if (step < 5) {
        replace(number, contents);
    } else if (step < 7) {
        const std::uint32_t offset = step == 5 ? random.below(held + 1) : held;
        const std::uint32_t length = std::min(size, longest - std::min(offset, longest - 1));
        if (const auto status = dfs_write(number, offset, length, contents.data(), 0)) give_up("dfs_write", status);
    } else if (const auto status = dfs_delete_file(number)) {
        give_up("dfs_delete_file", status);
    }
}

// A file rewritten or removed; only whole contents can be written on EFS.
void age_on_efs(const sample_file& file, sample_random& random)
{
    const std::uint32_t number = file.index[own_sku];
    std::uint32_t held = 0;
    if (EFS_get_file_size(number, &held) == 0 && random.below(8) == 0) {
        if (const auto status = EFS_delete(number)) give_up("EFS_delete", status);
        return;
    }
    const std::uint32_t size = 1 + random.below(file.limit);
    const bytes contents = sample_bytes{sample_bytes::kind::noise, {}, size}.make(low32(random.next()));
    if (const auto status = EFS_write(number, 0, size, contents.data())) give_up("EFS_write", status);
}

std::vector<const sample_file*> stored_files(bool on_efs)
{
    std::vector<const sample_file*> stored;
    for (const sample_file& file : sample_files()) {
        const bool there = file.index[own_sku] != not_in_sku && file.live.what != sample_bytes::kind::none;
        if (there && file.on_efs.has_value() == on_efs) stored.push_back(&file);
    }
    return stored;
}

} // namespace

bytes make_sample_volume()
{
    constexpr std::uint32_t volume_bytes = 0x20000, file_heads = 128, longest = 3000;
    constexpr int steps = 600;
    bytes image(volume_bytes);
    if (const auto status = yfs_make_volume(image.data(), volume_bytes, file_heads)) give_up("yfs_make_volume", status);
    if (const auto status = dfs_init(image.data(), volume_bytes)) give_up("dfs_init", status);

    const auto stored = stored_files(false);
    sample_random random(sample_skus[own_sku]);
    for (int i = 0; i < steps; ++i) age(stored[random.below(low32(stored.size()))]->index[own_sku], longest, random);
    for (const sample_file* file : stored) replace(file->index[own_sku], stored_contents(*file));
    return image;
}

bytes make_sample_efs(const bytes& ftbl)
{
    constexpr int steps = 500;
    if (const auto status = load_autogen_data(ftbl.data(), sample_skus[own_sku], low32(ftbl.size()))) {
        give_up("load_autogen_data", status);
    }
    bytes image(EFS_get_efs_size());
    if (const auto status = yfs_make_efs(image.data(), low32(image.size()))) give_up("yfs_make_efs", status);
    if (const auto status = EFS_init_tools(image.data())) give_up("EFS_init_tools", status);

    const auto stored = stored_files(true);
    sample_random random(sample_skus[own_sku] + 1);
    for (int i = 0; i < steps; ++i) age_on_efs(*stored[random.below(low32(stored.size()))], random);
    for (const sample_file* file : stored) {
        const bytes contents = stored_contents(*file);
        const auto status = EFS_write(file->index[own_sku], 0, low32(contents.size()), contents.data());
        if (status != 0) give_up("EFS_write", status);
    }
    return image;
}

} // namespace yfs::tool
