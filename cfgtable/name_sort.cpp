#include "cfgtable/name_sort.h"

#include <algorithm>

namespace yfs::cfgtable {

namespace {

constexpr std::size_t number_bytes = sizeof(std::uint64_t);

struct sort_key {
    std::uint64_t first, second; // most significant byte first; behind the end of the name zeros
    std::uint32_t file;
};

std::size_t shared_beginning(const std::vector<found_file>& files)
{
    std::string_view shared = files.front().name;
    for (const found_file& file : files) {
        if (file.name.starts_with(shared)) continue;
        const auto differing = std::ranges::mismatch(shared, file.name).in1;
        shared = {shared.begin(), differing};
    }
    return shared.size();
}

std::uint64_t number_at(const unsigned char* bytes)
{
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < number_bytes; ++i) number = number << 8 | bytes[i];
    return number;
}

sort_key key_of(const found_file& file, std::size_t skip, std::uint32_t place)
{
    unsigned char bytes[2 * number_bytes] = {};
    std::ranges::copy(file.name.substr(skip, sizeof bytes), bytes);
    return {number_at(bytes), number_at(bytes + number_bytes), place};
}

} // namespace

void sort_by_name(std::vector<found_file>& files)
{
    if (files.empty()) return;
    const std::size_t skip = shared_beginning(files);
    std::vector<sort_key> keys;
    keys.reserve(files.size());
    for (const found_file& file : files) keys.push_back(key_of(file, skip, static_cast<std::uint32_t>(keys.size())));

    std::ranges::sort(keys, [&files](const sort_key& a, const sort_key& b) {
        if (a.first != b.first) return a.first < b.first;
        if (a.second != b.second) return a.second < b.second;
        const int order = files[a.file].name.compare(files[b.file].name);
        return order != 0 ? order < 0 : files[a.file].record < files[b.file].record;
    });

    std::vector<found_file> sorted;
    sorted.reserve(files.size());
    for (const sort_key& key : keys) sorted.push_back(files[key.file]);
    files.swap(sorted);
}

} // namespace yfs::cfgtable
