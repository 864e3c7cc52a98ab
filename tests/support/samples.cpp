#include "tests/support/samples.h"

#include <fstream>
#include <iterator>

namespace yfs::test {

std::filesystem::path sample_set(const std::string& name)
{
    std::filesystem::path folder = std::filesystem::path(YFS_SHARED_SAMPLES) / name;
    return std::filesystem::is_directory(folder) ? folder : std::filesystem::path();
}

std::vector<unsigned char> read_file(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

} // namespace yfs::test
