#include "bench/host_set.h"

#include "bench/volume.h"

namespace bench {

namespace {

constexpr std::uint32_t sku = 3;
constexpr std::uint32_t first_index = 1; // the number 0 is none to the rebuild
constexpr std::uint32_t first_fileno = 0x10000;
constexpr std::uint32_t max_size = 4096;

// The numbers stand in the order of the paths' entries; the last one is the deploy file, which isn't empty.
std::vector<std::uint8_t> deployed_volume(const std::vector<yfs::test::cfg_file>& values)
{
    const volume vol(large_volume);
    std::uint32_t index = first_index;
    for (const auto& value : values) vol.put(index++, value.payload);
    vol.put(index, {1});
    return vol.contents();
}

} // namespace

std::string path_of(std::uint32_t i)
{
    return "/home/qrd/group" + std::to_string(i % 20) + "/value_" + std::to_string(i);
}

host_set::host_set(const host_set_shape& shape)
{
    yfs::test::table_sku entries{sku, {}};
    std::vector<yfs::test::cfg_file> defaults, overrides;
    dice random(9);
    for (std::uint32_t i = 0; i <= shape.count; ++i) {
        const bool deploy = i == shape.count;
        yfs::test::table_file file{deploy ? "/home/qrd/deploy" : path_of(i), first_fileno + i};
        file.file_index = static_cast<std::uint16_t>(first_index + i);
        file.max_size = max_size;
        entries.files.push_back(file);
        if (deploy) break;
        defaults.push_back({first_fileno + i, random.bytes(4 + random.below(120))});
        if (i % shape.override_every == 0) overrides.push_back({first_fileno + i, random.bytes(4 + random.below(120))});
    }
    ftbl = yfs::test::make_file_table({entries});
    velor = yfs::test::make_cfg_table(defaults);
    zonc = yfs::test::make_partition(yfs::test::make_cfg_table(overrides));
    if (shape.deployed) yfs = deployed_volume(defaults);
}

YZonInitParams host_set::params()
{
    const auto table = [](yfs::test::blob& of) {
        return _commonYZonTable{of.data(), static_cast<std::uint32_t>(of.size())};
    };
    return {table(velor), table(zonc), table(yfs), table(ftbl), sku, {nullptr, 0}};
}

} // namespace bench
