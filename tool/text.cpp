#include "tool/text.h"

#include <fmt/format.h>

#include <algorithm>

namespace yfs::tool {

namespace {

int hex_digit(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Bytes of the printable UTF-8 character at the start of `data`; 0 if there is none. Control characters, C1 included,
// overlong forms and surrogates don't count: none of them may reach a terminal out of a table.
std::size_t character_at(std::span<const std::uint8_t> data)
{
    if (data.empty()) return 0;
    const std::uint32_t lead = data[0];
    if (lead < 0x80) return lead >= 0x20 && lead != 0x7F ? 1 : 0;

    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || data.size() < length) return 0;
    std::uint32_t code = lead & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((data[i] & 0xC0U) != 0x80) return 0;
        code = (code << 6) | (data[i] & 0x3FU);
    }
    constexpr std::uint32_t smallest[] = {0, 0, 0xA0, 0x800, 0x10000};
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    return code >= smallest[length] && code <= 0x10FFFF && !surrogate ? length : 0;
}

std::span<const std::uint8_t> as_bytes(std::string_view text)
{
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// Columns that a string takes: its characters, each counted as one.
std::size_t columns_of(std::string_view text)
{
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

// One character of a text, its line ends and tabs written out.
std::string escaped(std::span<const std::uint8_t> character)
{
    switch (character[0]) {
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    default:
        return {character.begin(), character.end()};
    }
}

} // namespace

void append(bytes& to, std::span<const std::uint8_t> more)
{
    const std::size_t held = to.size();
    to.resize(held + more.size());
    std::copy(more.begin(), more.end(), to.data() + held);
}

std::string to_hex(std::span<const std::uint8_t> data)
{
    constexpr std::string_view digits = "0123456789abcdef";
    std::string out;
    out.reserve(2 * data.size());
    for (const std::uint8_t byte : data) {
        out += digits[byte >> 4];
        out += digits[byte & 15U];
    }
    return out;
}

std::optional<bytes> parse_hex(std::string_view digits)
{
    bytes out;
    for (std::size_t i = 0; i < digits.size();) {
        if (digits[i] == ' ' || digits[i] == ':') {
            ++i;
            continue;
        }
        if (i + 1 == digits.size()) return {};
        const int high = hex_digit(digits[i]);
        const int low = hex_digit(digits[i + 1]);
        if (high < 0 || low < 0) return {};
        out.push_back(static_cast<std::uint8_t>(high << 4 | low));
        i += 2;
    }
    return out;
}

bool is_text(std::span<const std::uint8_t> data)
{
    while (!data.empty()) {
        const std::uint8_t c = data[0];
        const std::size_t length = c == '\t' || c == '\n' || c == '\r' ? 1 : character_at(data);
        if (length == 0) return false;
        data = data.subspan(length);
    }
    return true;
}

std::string printable(std::string_view name)
{
    std::string out;
    while (!name.empty()) {
        const std::size_t length = character_at(as_bytes(name));
        if (length == 0) {
            out += fmt::format("\\x{:02x}", static_cast<std::uint8_t>(name[0]));
            name.remove_prefix(1);
            continue;
        }
        out += name.substr(0, length);
        name.remove_prefix(length);
    }
    return out;
}

std::string preview(std::span<const std::uint8_t> data, std::size_t width)
{
    constexpr std::string_view more = "...";
    if (!is_text(data)) {
        if (2 * data.size() <= width) return to_hex(data);
        return to_hex(data.first((width - more.size()) / 2)) + std::string(more);
    }
    std::string text = "\"";
    std::size_t fits = 1; // bytes of `text` that leave room for the closing quote and the dots
    while (!data.empty()) {
        const std::size_t length = std::max<std::size_t>(character_at(data), 1);
        text += escaped(data.first(length));
        data = data.subspan(length);
        if (columns_of(text) + 1 + more.size() <= width) fits = text.size();
        if (columns_of(text) + 1 > width) return text.substr(0, fits) + "\"" + std::string(more);
    }
    return text + "\"";
}

std::string count_of(std::uint64_t count, std::string_view thing)
{
    return fmt::format("{} {}{}", count, thing, count == 1 ? "" : "s");
}

std::string bytes_text(std::uint64_t count)
{
    return count_of(count, "byte");
}

std::string text_table::text() const
{
    std::vector<std::size_t> width(columns_.size(), 0);
    for (const auto& cells : rows_) {
        for (std::size_t i = 0; i < cells.size(); ++i) width[i] = std::max(width[i], columns_of(cells[i]));
    }
    std::string out;
    for (const auto& cells : rows_) {
        std::string line;
        for (std::size_t i = 0; i < cells.size(); ++i) {
            const std::string pad(width[i] - columns_of(cells[i]), ' ');
            if (i > 0) line += "  ";
            line += columns_[i] == align::right ? pad + cells[i] : cells[i] + pad;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out += line + "\n";
    }
    return out;
}

} // namespace yfs::tool
