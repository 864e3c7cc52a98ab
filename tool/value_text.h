// Values as a user writes them: "utf8:TEXT", "hex:BYTES", or the name of a file that holds one.
#pragma once

#include "tool/text.h"

#include <filesystem>
#include <string>

namespace yfs::tool {

// A relative name of a file counts from `folder`; "-" is standard input. Fails with usage, file_unreadable.
bytes parse_value(const std::string& text, const std::filesystem::path& folder = {});

// "utf8:..." where that says all of it, else "hex:...": what parse_value gives back as it was.
std::string value_text(std::span<const std::uint8_t> value);

} // namespace yfs::tool
