// Operations on an EFS image.
#include "bench/efs_image.h"
#include "bench/scenario.h"

#include "yfs/efs.h"

#include <memory>

namespace bench {

namespace {

// An image in use: `file` was replaced often enough for switches of the block map and for wear levelling.
std::shared_ptr<efs_image> used_image(std::uint32_t spares, std::uint32_t file, std::uint32_t size)
{
    auto image = std::make_shared<efs_image>(spares);
    for (int i = 0; i < 2000; ++i) put_efs(file, dice(11).bytes(size));
    image->keep();
    return image;
}

scenario mount_image()
{
    const auto image = used_image(3, small_file, small_size);
    return {"EFS: mount", 1, 0, {20e-6, "20 us"}, false, [image] { image->reset(); }, [image] { image->mount(); }};
}

scenario read_file(const char* name, std::uint32_t spares, std::uint32_t file, std::uint32_t size)
{
    const auto image = used_image(spares, file, size);
    const auto buffer = std::make_shared<std::vector<std::uint8_t>>(size);
    return {name,
            1,
            size,
            {},
            false,
            [image] { image->reset(); },
            [buffer, file] {
                auto length = static_cast<std::uint32_t>(buffer->size());
                expect(EFS_read(file, 0, &length, buffer->data()) == 0, "EFS_read");
            }};
}

scenario replace_file(const char* name, std::uint32_t spares, std::uint32_t file, std::uint32_t size, mark limit)
{
    constexpr std::uint32_t times = 10000;
    const auto image = used_image(spares, file, size);
    const auto content = std::make_shared<std::vector<std::uint8_t>>(dice(12).bytes(size));
    return {name,
            times,
            std::uint64_t{times} * size,
            limit,
            true,
            [image] { image->reset(); },
            [content, file] {
                for (std::uint32_t i = 0; i < times; ++i) {
                    (*content)[i % content->size()] ^= 0xFFU;
                    put_efs(file, *content);
                }
            }};
}

} // namespace

std::vector<scenario> efs_scenarios()
{
    std::vector<scenario> list;
    list.push_back(mount_image());
    list.push_back(read_file("EFS: read 1 KiB", default_spares, small_file, small_size));
    list.push_back(read_file("EFS: read 12 KiB", many_spares, long_file, long_size));
    list.push_back(
        replace_file("EFS: replace 1 KiB", default_spares, small_file, small_size, {10000 * 40e-6, "40 us each"}));
    list.push_back(replace_file("EFS: replace 12 KiB, 8 spares", many_spares, long_file, long_size, {}));
    return list;
}

} // namespace bench
