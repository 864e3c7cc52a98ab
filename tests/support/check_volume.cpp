#include "tests/support/check_volume.h"

#include "yfs/dfs.h"
#include "yfs/status.h"

#include <algorithm>

namespace yfs::test {

testing::AssertionResult clean(const inspect::picture& picture, finding_ids but_for)
{
    std::string found;
    for (const inspect::finding& f : picture.findings)
        if (std::ranges::find(but_for, f.id) == but_for.end() && severity_of(f) != inspect::severity::info)
            found += "\n  " + describe(f);
    return testing::AssertionResult(found.empty()) << found;
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
    testing::AssertionResult result(found == expected);
    for (unsigned i = 0; i < picture.file.size() && !result; ++i)
        if (found.contains(i) != expected.contains(i) || (found.contains(i) && found.at(i) != expected.at(i)))
            result << "\n  file " << i << " isn't as it must be";
    return result;
}

bool file_reads_as(const contents& files, unsigned number)
{
    const auto expected = files.find(number);
    std::uint32_t size = 0;
    const std::uint32_t status = dfs_getsize(number, &size);
    if (expected == files.end()) return status == afs_status::not_found;
    std::uint32_t len = size + 1;
    std::vector<std::uint8_t> got(len);
    const bool reads = status == afs_status::ok && dfs_read(number, 0, &len, got.data()) == afs_status::ok;
    got.resize(size);
    return reads && len == size && got == expected->second;
}

testing::AssertionResult reads_as(const contents& files)
{
    for (const auto& [number, content] : files)
        if (!file_reads_as(files, number)) return testing::AssertionFailure() << "file " << number << " reads wrong";
    return testing::AssertionSuccess();
}

} // namespace yfs::test
