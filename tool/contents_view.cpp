#include "tool/contents_view.h"

#include "inspect/efs_picture.h"
#include "inspect/picture.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace yfs::tool {

namespace {

bool is_damaged(const inspect::picture& picture, std::uint32_t file)
{
    return picture.file[file].damaged;
}

bool is_damaged(const inspect::efs_picture& picture, std::uint32_t file)
{
    return picture.files[file].state == inspect::efs_file_state::damaged;
}

template <typename Picture>
contents_view view_of(const Picture& picture, std::size_t files)
{
    contents_view view;
    std::copy_if(picture.findings.begin(), picture.findings.end(), std::back_inserter(view.faults),
                 [](const inspect::finding& f) { return severity_of(f) == inspect::severity::fault; });
    for (std::uint32_t file = 0; file < files; ++file) {
        if (auto contents = inspect::read_file(picture, file)) view.files.emplace(file, *std::move(contents));
        if (is_damaged(picture, file)) view.damaged.insert(file);
    }
    return view;
}

} // namespace

contents_view view_contents(const image_ref& ref, std::span<const std::uint8_t> image, image_kind kind)
{
    if (kind == image_kind::afs) {
        const inspect::picture picture = inspect::inspect_image(image);
        return view_of(picture, picture.file.size());
    }
    const inspect::efs_picture picture = inspect::inspect_efs(image, plan_for(ref, image));
    return view_of(picture, picture.files.size());
}

} // namespace yfs::tool
