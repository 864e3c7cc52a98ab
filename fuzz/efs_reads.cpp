// An EFS image with changed places and perhaps another layout, read: by the second reader, by a mount, and file by
// file. Both see the same bytes, and nothing of this writes.
#include "fuzz/steps.h"
#include "inspect/efs_picture.h"
#include "yfs/efs.h"

static void read_somewhere(fuzz::input& in)
{
    const std::uint32_t file = in.number(1) % 5, offset = in.number(2), wanted = in.number(2);
    fuzz::bytes part(std::max(wanted, 1U));
    const std::optional<fuzz::bytes> whole = fuzz::read_efs(file);
    std::uint32_t length = wanted;
    if (EFS_read(file, offset, &length, part.data()) != 0 || !whole) return;
    const std::size_t from = std::min<std::size_t>(offset, whole->size()); // an empty file can be read anywhere
    fuzz::must(length == std::min<std::size_t>(wanted, whole->size() - from) && (from == offset || whole->empty()) &&
               std::equal(part.begin(), part.begin() + length, whole->begin() + static_cast<std::ptrdiff_t>(from)));
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::input in(data, size);
    const fuzz::bytes given = fuzz::patched_efs(in);
    const auto picture = yfs::inspect::inspect_efs(given, yfs::inspect::loaded_efs_plan());
    static_cast<void>(yfs::inspect::inspect_efs(std::span(given).first(given.size() * in.number(1) / 256),
                                                yfs::inspect::loaded_efs_plan()));
    fuzz::bytes image = given;
    image.reserve(1); // an image of no bytes has an address all the same
    EFS_init_tools(image.data());

    for (std::uint32_t file = 0; file < 5; ++file) {
        const auto content = fuzz::read_efs(file);
        if (!content || file >= picture.files.size()) continue;
        if (picture.files[file].state != yfs::inspect::efs_file_state::present) continue;
        fuzz::must(content == yfs::inspect::read_file(picture, file));
    }
    for (int i = 0; i < 8 && !in.empty(); ++i) {
        if (in.number(1) % 4 == 0) EFS_read_and_verify_data_block_header_and_footer(in.number(1));
        read_somewhere(in);
    }
    fuzz::must(image == given);
    fuzz::leave_efs();
    return 0;
}
