#include "tests/support/check_volume.h"

#include <algorithm>

namespace yfs::test {

testing::AssertionResult clean(const inspect::picture& picture, inspect::finding_id but_for)
{
    auto result = testing::AssertionSuccess();
    for (const inspect::finding& f : picture.findings) {
        if (f.id == but_for || severity_of(f) == inspect::severity::info) continue;
        if (result) result = testing::AssertionFailure();
        result << "\n  " << to_string(severity_of(f)) << " " << describe(f);
    }
    return result;
}

testing::AssertionResult clean(std::span<const std::uint8_t> image, inspect::finding_id but_for)
{
    return clean(inspect::inspect_image(image), but_for);
}

contents contents_of(const inspect::picture& picture)
{
    contents out;
    for (unsigned i = 0; i < picture.file.size(); ++i)
        if (auto content = read_file(picture, i)) out.emplace(i, *std::move(content));
    return out;
}

testing::AssertionResult holds(const inspect::picture& picture, const contents& expected)
{
    const contents found = contents_of(picture);
    if (found == expected) return testing::AssertionSuccess();
    auto result = testing::AssertionFailure();
    for (const auto& [number, content] : found)
        if (!expected.contains(number))
            result << "\n  file " << number << " isn't expected, " << content.size() << " bytes";
    for (const auto& [number, content] : expected) {
        const auto it = found.find(number);
        if (it == found.end()) {
            result << "\n  file " << number << " is missing";
            continue;
        }
        if (it->second == content) continue;
        const auto [a, b] = std::mismatch(content.begin(), content.end(), it->second.begin(), it->second.end());
        result << "\n  file " << number << " has " << it->second.size() << " bytes, expected " << content.size()
               << "; they differ from byte " << a - content.begin();
    }
    return result;
}

testing::AssertionResult holds(std::span<const std::uint8_t> image, const contents& expected)
{
    return holds(inspect::inspect_image(image), expected);
}

} // namespace yfs::test
