// Workloads on an AFS volume, through dispatch.
#include "bench/volume.h"
#include "bench/workload.h"

namespace bench {

namespace {

constexpr std::uint32_t long_bytes = 0x10000;
constexpr std::uint32_t replaces = 10000;

// Every file once, in an order without neighbours.
template <typename Visit>
void in_order(std::uint32_t count, Visit visit)
{
    for (std::uint32_t i = 0; i < count; ++i) visit(static_cast<std::uint32_t>(std::uint64_t{i} * 37 % count));
}

std::function<void()> mount_and_sizes()
{
    const auto vol = volume_of_many(many_files());
    vol->reset();
    return [vol] {
        vol->mount();
        in_order(many, [](std::uint32_t file) {
            std::uint32_t size = 0;
            expect(dfs_getsize(file, &size) == 0 && size != 0, "dfs_getsize");
        });
    };
}

std::function<void()> read_each()
{
    const auto vol = volume_of_many(many_files());
    vol->reset();
    const auto buffer = std::make_shared<bytes>(2048);
    return [vol, buffer] { in_order(many, [&](std::uint32_t file) { read_whole(file, *buffer); }); };
}

std::shared_ptr<volume> with_long_file()
{
    auto vol = volume_of_many(many_files());
    vol->put(many, dice(4).bytes(long_bytes));
    vol->keep();
    vol->reset();
    return vol;
}

std::function<void()> read_long()
{
    const auto vol = with_long_file();
    const auto buffer = std::make_shared<bytes>(long_bytes);
    return [vol, buffer] { read_whole(many, *buffer); };
}

std::function<void()> create_each()
{
    const auto files = std::make_shared<std::vector<bytes>>(many_files());
    const auto vol = std::make_shared<volume>(large_volume);
    return [vol, files] { in_order(many, [&](std::uint32_t file) { vol->put(file, (*files)[file]); }); };
}

std::function<void()> replace_one()
{
    constexpr std::uint32_t size = 1024, others = 60;
    const auto vol = std::make_shared<volume>(small_volume);
    dice random(7);
    for (std::uint32_t i = 0; i < others; ++i) vol->put(i, file_content(random));
    const auto content = std::make_shared<bytes>(random.bytes(size));
    vol->put(others, *content);
    return [vol, content] {
        for (std::uint32_t i = 0; i < replaces; ++i) {
            (*content)[i % size] ^= 0xFFU;
            vol->put(others, *content);
        }
    };
}

std::function<void()> overwrite_byte()
{
    const auto vol = with_long_file();
    return [vol] {
        for (std::uint32_t i = 0; i < 1000; ++i) {
            const auto byte = static_cast<std::uint8_t>(i & 0xFFU);
            expect(dfs_write(many, long_bytes / 2, 1, &byte, 0) == 0, "dfs_write");
        }
    };
}

std::function<void()> write_long()
{
    const auto vol = volume_of_many(many_files());
    vol->reset();
    const auto content = std::make_shared<bytes>(dice(3).bytes(long_bytes));
    return [vol, content] { vol->put(many, *content); };
}

std::function<void()> delete_each()
{
    const auto vol = volume_of_many(many_files());
    vol->reset();
    return [vol] { in_order(many, [](std::uint32_t file) { expect(dfs_delete_file(file) == 0, "dfs_delete_file"); }); };
}

// Files up to `percent` of what 64 erase units hold, then replaces of any of them by contents of the same size.
std::function<void()> random_replaces(std::uint32_t percent, std::uint32_t times)
{
    constexpr std::uint32_t data_chunks = 58 * 122; // 64 units: 58 of data, 5 of log, the spare
    const auto vol = std::make_shared<volume>(small_volume);
    const auto files = std::make_shared<std::vector<bytes>>();
    dice random(8);
    for (std::uint32_t used = 0;;) {
        bytes content = file_content(random);
        used += static_cast<std::uint32_t>((content.size() + 63) / 64);
        if (used * 100 > data_chunks * percent) break;
        files->push_back(std::move(content));
    }
    put_all(*vol, *files);
    return [vol, files, times] {
        dice which(9);
        for (std::uint32_t i = 0; i < times; ++i) {
            const std::uint32_t file = which.below(static_cast<std::uint32_t>(files->size()));
            bytes& content = (*files)[file];
            content[i % content.size()] ^= 0xFFU;
            vol->put(file, content);
        }
    };
}

std::function<void()> mount_sized(std::uint32_t units, std::uint32_t count)
{
    const auto vol = std::make_shared<volume>(units * 8192);
    dice random(1);
    for (std::uint32_t i = 0; i < count; ++i) vol->put(i, file_content(random));
    return [vol] { vol->mount(); };
}

} // namespace

std::vector<workload> volume_workloads()
{
    return {
        {"W1", "mount 255 EUs with 500 files, every size", 1, 1010, 500, mount_and_sizes},
        {"W2", "read one of the 500 files whole", many, 3.4, 0, read_each},
        {"W3", "read a 64 KiB file whole", 1, 170, 0, read_long},
        {"W4", "create one of the 500 files", many, 10.5, 6, create_each},
        {"W5", "replace a 1 KiB file, 64 EUs, 60 others", replaces, 13, 9, replace_one},
        {"W6", "overwrite 1 byte inside 64 KiB", 1000, 44, 12, overwrite_byte},
        {"W7", "write a 64 KiB file", 1, 540, 0, write_long},
        {"W8", "delete one of the 500 files", many, 3.0, 0, delete_each},
        {"W9", "replace any file, 64 EUs 90 % full", 5000, 23, 0, [] { return random_replaces(90, 5000); }},
    };
}

std::vector<workload> growth_workloads()
{
    std::vector<workload> all{
        {"M64", "mount 64 EUs, no file", 1, 0, 0, [] { return mount_sized(64, 0); }},
        {"M128", "mount 128 EUs, no file", 1, 0, 0, [] { return mount_sized(128, 0); }},
        {"M255", "mount 255 EUs, no file", 1, 0, 0, [] { return mount_sized(255, 0); }},
        {"F250", "mount 255 EUs, 250 files", 1, 0, 0, [] { return mount_sized(255, 250); }},
        {"F500", "mount 255 EUs, 500 files", 1, 0, 0, [] { return mount_sized(255, 500); }},
        {"F1000", "mount 255 EUs, 1,000 files", 1, 0, 0, [] { return mount_sized(255, 1000); }},
    };
    static const std::uint32_t fills[] = {10, 50, 80, 90, 95};
    static const char* const names[] = {"R10", "R50", "R80", "R90", "R95"};
    static const char* const texts[] = {"replace any file, 10 % full", "replace any file, 50 % full",
                                        "replace any file, 80 % full", "replace any file, 90 % full",
                                        "replace any file, 95 % full"};
    for (std::size_t i = 0; i < std::size(fills); ++i) {
        all.push_back({names[i], texts[i], 2000, 0, 0, [i] { return random_replaces(fills[i], 2000); }});
    }
    return all;
}

} // namespace bench
