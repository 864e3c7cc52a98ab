// A volume with changed places, read: by the second reader, by a mount, and file by file. Both see the same bytes, and
// a mount that fails changes none.
#include "fuzz/steps.h"
#include "inspect/picture.h"
#include "yfs/dfs.h"

static void read_somewhere(fuzz::input& in)
{
    const std::uint32_t file = in.number(2), offset = in.number(2), wanted = in.number(2);
    fuzz::bytes part(wanted);
    const std::optional<fuzz::bytes> whole = fuzz::read_afs(file);
    std::uint32_t length = wanted;
    if (dfs_read(file, offset, &length, part.data()) != 0 || !whole) return;
    const std::size_t from = std::min<std::size_t>(offset, whole->size());
    fuzz::must(length == std::min<std::size_t>(wanted, whole->size() - from) &&
               std::equal(part.begin(), part.begin() + length, whole->begin() + static_cast<std::ptrdiff_t>(from)));
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::input in(data, size);
    const fuzz::bytes given = fuzz::patched_volume(in);
    const auto picture = yfs::inspect::inspect_image(given);
    fuzz::bytes image = given;
    if (dfs_init(image.data(), static_cast<std::uint32_t>(image.size())) != 0) fuzz::must(image == given);

    for (std::uint32_t file = 0; file < 66; ++file) {
        const auto content = fuzz::read_afs(file);
        if (!content || file >= picture.file.size() || picture.file[file].damaged) continue;
        fuzz::must(content == yfs::inspect::read_file(picture, file));
    }
    dfs_idle_reclaim_needed();
    for (int i = 0; i < 8 && !in.empty(); ++i) read_somewhere(in);
    fuzz::leave_afs();
    return 0;
}
