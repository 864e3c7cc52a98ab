#include "tool/image.h"

#include "tool/error.h"
#include "tool/files.h"
#include "yfs/efs.h"

#include <fmt/format.h>

#include <charconv>

namespace yfs::tool {

namespace fs = std::filesystem;

namespace {

// A flash dump holds more than the partitions that the library takes.
constexpr std::uint64_t largest_dump = 1ULL << 30;

// Digits, or 0x and hex digits, and nothing else.
std::optional<std::uint64_t> parse_number(std::string_view text)
{
    const int base = text.starts_with("0x") ? 16 : 10;
    if (base == 16) text.remove_prefix(2);
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error != std::errc() || end != text.data() + text.size()) return {};
    return value;
}

} // namespace

image_ref parse_image(const std::string& text, const fs::path& folder)
{
    image_ref image;
    image.text = text;
    image.path = text == "-" ? fs::path(text) : folder / text;
    std::error_code ignored;
    const std::size_t at = text.rfind('@');
    if (at == std::string::npos || fs::exists(image.path, ignored)) return image;

    const std::string_view range = std::string_view(text).substr(at + 1);
    const std::size_t plus = range.find('+');
    const auto offset = parse_number(range.substr(0, plus));
    const auto size = plus == std::string_view::npos ? std::nullopt : parse_number(range.substr(plus + 1));
    if (!offset || !size || *size == 0 || *offset > largest_dump || *size > largest_dump) {
        throw failure(fault::usage, fmt::format("'{}' names no file, and no range of one", printable(text)),
                      "a partition inside a dump is FILE@OFFSET+SIZE, as in flash.bin@0x100000+0x80000");
    }
    image.path = folder / text.substr(0, at);
    image.offset = *offset;
    image.size = size;
    return image;
}

bytes read_image(const image_ref& image)
{
    bytes whole = read_file(image.path, image.size ? largest_dump : largest_file);
    if (!image.size) return whole;
    if (image.offset > whole.size() || *image.size > whole.size() - image.offset) {
        throw failure(fault::file_unreadable,
                      fmt::format("can't read {}: the file ends at byte {}", image.text, whole.size()),
                      "'yfs scan FILE' finds the partitions of a dump");
    }
    const auto first = whole.begin() + static_cast<std::ptrdiff_t>(image.offset);
    return {first, first + static_cast<std::ptrdiff_t>(*image.size)};
}

image_kind kind_of(const image_ref& image, std::span<const std::uint8_t> contents)
{
    if (const auto kind = inspect::recognize(contents)) return *kind;
    throw failure(fault::unknown_image,
                  fmt::format("{} ({}) is no image of AFS or EFS: no erase unit and no block map begins in it",
                              image.text, bytes_text(contents.size())),
                  "'yfs scan FILE' finds the partitions of a dump, wherever they begin");
}

std::string_view to_string(image_kind kind)
{
    return kind == image_kind::afs ? "afs" : "efs";
}

inspect::efs_plan plan_for(const image_ref& image, std::span<const std::uint8_t> contents)
{
    const auto told = inspect::plan_of_image(contents);
    if (g_efs_autogen_data_loaded != 0) {
        inspect::efs_plan loaded = inspect::loaded_efs_plan();
        if (!told || (told->geo == loaded.geo && told->layout_id == loaded.layout_id)) return loaded;
    }
    if (told) return *told;
    throw failure(fault::efs_damaged, fmt::format("{}: no block map tells the geometry of this image", image.text),
                  "name the file table that belongs to it: --ftbl FILE --sku N");
}

} // namespace yfs::tool
