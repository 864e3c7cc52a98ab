#include "tool/value_text.h"

#include "tool/error.h"
#include "tool/files.h"
#include "tool/output.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace yfs::tool {

namespace {

constexpr std::string_view utf8 = "utf8:";
constexpr std::string_view hex = "hex:";

} // namespace

bytes parse_value(const std::string& text, const std::filesystem::path& folder)
{
    if (text.starts_with(utf8)) return {text.begin() + utf8.size(), text.end()};
    if (!text.starts_with(hex)) {
        const std::filesystem::path file = text == "-" ? std::filesystem::path(text) : folder / text;
        std::error_code ignored;
        if (text == "-" || std::filesystem::exists(file, ignored)) return read_file(file);
        throw failure(fault::file_unreadable, fmt::format("there is no file {}", file.string()),
                      fmt::format("text itself is 'utf8:{}', bytes are hex:00ff", printable(text)));
    }
    if (auto value = parse_hex(std::string_view(text).substr(hex.size()))) return *std::move(value);
    throw failure(fault::usage, fmt::format("'{}' isn't hex", printable(text)),
                  "two digits a byte, as in hex:00ff10 or 'hex:00 ff 10'");
}

std::string value_text(std::span<const std::uint8_t> value)
{
    if (is_text(value)) return std::string(utf8) + std::string(value.begin(), value.end());
    return std::string(hex) + to_hex(value);
}

} // namespace yfs::tool
