// Bytes and columns as text for people.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace yfs::tool {

using bytes = std::vector<std::uint8_t>;

void append(bytes& to, std::span<const std::uint8_t> more);

std::string to_hex(std::span<const std::uint8_t> data);

// Digits in pairs, upper or lower case, blanks and colons between pairs; empty if it is anything else.
std::optional<bytes> parse_hex(std::string_view digits);

// True if the whole of `data` is UTF-8 text without control characters but tab, carriage return and line feed.
bool is_text(std::span<const std::uint8_t> data);

// A name out of a table, safe to print: what isn't a printable character becomes \xNN.
std::string printable(std::string_view name);

// A value on one line of at most `width` columns: "text" in quotes, or hex, shortened with "..." at the end.
std::string preview(std::span<const std::uint8_t> data, std::size_t width);

// "64 bytes", "1 byte".
std::string count_of(std::uint64_t count, std::string_view thing);
std::string bytes_text(std::uint64_t count);

// Rows of cells, printed with columns as wide as their widest cell.
class text_table {
public:
    enum class align : std::uint8_t { left, right };

    explicit text_table(std::vector<align> columns) : columns_(std::move(columns)) {}
    void row(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
    std::string text() const; // no blanks at the ends of lines

private:
    std::vector<align> columns_;
    std::vector<std::vector<std::string>> rows_;
};

} // namespace yfs::tool
