// Operations on an AFS volume through dispatch.
#include "bench/scenario.h"
#include "bench/volume.h"

#include <algorithm>
#include <memory>

namespace bench {

namespace {

std::uint64_t total(const std::vector<bytes>& files)
{
    std::uint64_t sum = 0;
    for (const bytes& file : files) sum += file.size();
    return sum;
}

scenario mount_many()
{
    const auto files = many_files();
    const auto vol = volume_of_many(files);
    return {"mount, 500 files", 1, 0, {0.3e-3, "0.3 ms"}, false, [vol] { vol->reset(); }, [vol] { vol->mount(); }};
}

scenario read_many()
{
    const auto files = many_files();
    const auto vol = volume_of_many(files);
    const auto size = total(files);
    const auto buffer = std::make_shared<bytes>(2048);
    return {"read all 500",
            many,
            size,
            {static_cast<double>(size) / 300e6, "300 MB/s"},
            false,
            [vol] { vol->reset(); },
            [buffer] {
                for (std::uint32_t i = 0; i < many; ++i) read_whole(i, *buffer);
            }};
}

scenario create_many()
{
    const auto files = std::make_shared<std::vector<bytes>>(many_files());
    const auto vol = std::make_shared<volume>(large_volume);
    return {
        "create 500", many, total(*files), {}, true, [vol] { vol->reset(); }, [vol, files] {
                put_all(*vol, *files); }};
}

scenario delete_many()
{
    const auto vol = volume_of_many(many_files());
    return {"delete all 500",
            many,
            0,
            {},
            true,
            [vol] { vol->reset(); },
            [] {
                for (std::uint32_t i = 0; i < many; ++i) expect(dfs_delete_file(i) == 0, "dfs_delete_file");
            }};
}

scenario read_one(const char* name, std::uint32_t size)
{
    const auto vol = std::make_shared<volume>(large_volume);
    vol->put(many, dice(2).bytes(size));
    vol->keep();
    const auto buffer = std::make_shared<bytes>(size);
    return {name, 1, size, {}, false, [vol] { vol->reset(); }, [buffer] { read_whole(many, *buffer); }};
}

scenario write_one(const char* name, std::uint32_t size, mark limit)
{
    const auto vol = volume_of_many(many_files());
    const auto content = std::make_shared<bytes>(dice(3).bytes(size));
    return {name, 1, size, limit, true, [vol] { vol->reset(); }, [vol, content] { vol->put(many, *content); }};
}

scenario overwrite_byte()
{
    constexpr std::uint32_t size = 0x10000;
    const auto vol = volume_of_many(many_files());
    vol->put(many, dice(4).bytes(size));
    vol->keep();
    return {"overwrite 1 byte inside 64 KiB",
            1,
            1,
            {},
            true,
            [vol] { vol->reset(); },
            [] {
                const std::uint8_t byte = 0x5A;
                expect(dfs_write(many, size / 2, 1, &byte, 0) == 0, "dfs_write");
            }};
}

// A file of 1 KiB replaced `times` times beside `others`.
scenario replace(const char* name, std::uint32_t times, mark limit, const std::vector<bytes>& others)
{
    constexpr std::uint32_t size = 1024;
    const auto vol = std::make_shared<volume>(small_volume);
    const auto file = static_cast<std::uint32_t>(others.size());
    put_all(*vol, others);
    // No erased space left over from the format: the counts are those of a volume in use.
    for (int i = 0; i < 1000; ++i) vol->put(file, dice(5).bytes(size));
    vol->keep();
    const auto content = std::make_shared<bytes>(dice(6).bytes(size));
    return {name,
            times,
            std::uint64_t{times} * size,
            limit,
            true,
            [vol] { vol->reset(); },
            [vol, content, file, times] {
                for (std::uint32_t i = 0; i < times; ++i) {
                    (*content)[i % size] ^= 0xFFU;
                    vol->put(file, *content);
                }
            }};
}

scenario replace_often()
{
    dice random(7);
    std::vector<bytes> others;
    others.reserve(60);
    for (int i = 0; i < 60; ++i) others.push_back(random.bytes(200 + random.below(2048 - 200 + 1)));
    return replace("replace 1 KiB, 60 other files", 10000, {10000 * 10e-6, "10 us each"}, others);
}

scenario replace_when_full()
{
    constexpr std::uint32_t data_bytes = 58 * 7808; // 64 units: 58 of data, 5 of log, the spare
    dice random(8);
    std::vector<bytes> others;
    for (std::uint32_t used = 1024; used < data_bytes / 10 * 9; used += 64 * 25) others.push_back(random.bytes(1600));
    return replace("replace 1 KiB at 90 % full", 1000, {}, others);
}

} // namespace

std::vector<scenario> volume_scenarios()
{
    std::vector<scenario> list;
    list.push_back(mount_many());
    list.push_back(read_many());
    list.push_back(read_one("read one of 64 KiB", 0x10000));
    list.push_back(read_one("read one of 256 KiB", 0x40000));
    list.push_back(create_many());
    list.push_back(replace_often());
    list.push_back(replace_when_full());
    list.push_back(overwrite_byte());
    list.push_back(write_one("write 64 KiB", 0x10000, {0.35e-3, "0.35 ms"}));
    list.push_back(write_one("write 256 KiB", 0x40000, {}));
    list.push_back(delete_many());
    return list;
}

} // namespace bench
