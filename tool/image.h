// Images as the command line names them: a file, "-" for standard input, or FILE@OFFSET+SIZE for a partition inside a
// flash dump. Of such a partition only that range is ever changed.
#pragma once

#include "inspect/recognize.h"
#include "tool/text.h"

#include <filesystem>
#include <optional>
#include <string>

namespace yfs::tool {

using inspect::image_kind;

struct image_ref {
    std::string text; // as it was given, for messages
    std::filesystem::path path;
    std::uint64_t offset = 0;
    std::optional<std::uint64_t> size; // of a range; nothing for a whole file

    bool is_stream() const { return path == "-"; }
};

// Offset and size are decimal or 0x...; a file that really has such a name is taken as it is. A relative path counts
// from `folder`. Fails with usage on a range that isn't one.
image_ref parse_image(const std::string& text, const std::filesystem::path& folder = {});

// The bytes of the image. Fails with file_unreadable, also where the file ends before the range does.
bytes read_image(const image_ref& image);

// What `contents` is an image of. Fails with unknown_image.
image_kind kind_of(const image_ref& image, std::span<const std::uint8_t> contents);
std::string_view to_string(image_kind kind);

// What an EFS image is read by: the loaded layout if the image was made for it, else the geometry that the image tells,
// which knows no files. Fails with efs_damaged if there is neither.
inspect::efs_plan plan_for(const image_ref& image, std::span<const std::uint8_t> contents);

} // namespace yfs::tool
