// Runs a fuzz target over the files of its corpus, without a fuzzer.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv)
{
    unsigned runs = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> raw{std::istreambuf_iterator<char>(file), {}};
            const std::vector<std::uint8_t> data(raw.begin(), raw.end());
            LLVMFuzzerTestOneInput(data.data(), data.size());
            ++runs;
        }
    }
    std::printf("%u inputs\n", runs);
    return runs != 0 ? 0 : 1;
}
