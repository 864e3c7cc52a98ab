// Workloads on an EFS image of the default geometry.
#include "bench/efs_image.h"
#include "bench/workload.h"

#include "yfs/efs.h"

#include <memory>

namespace bench {

namespace {

constexpr std::uint32_t times = 10000;

struct small_file_image {
    efs_image image{default_spares};
    std::vector<std::uint8_t> content = dice(12).bytes(small_size);
};

std::function<void()> replace()
{
    const auto file = std::make_shared<small_file_image>();
    put_efs(small_file, file->content);
    return [file] {
        for (std::uint32_t i = 0; i < times; ++i) {
            file->content[i % small_size] ^= 0xFFU;
            put_efs(small_file, file->content);
        }
    };
}

std::function<void()> read()
{
    const auto file = std::make_shared<small_file_image>();
    put_efs(small_file, file->content);
    return [file] {
        for (std::uint32_t i = 0; i < times; ++i) {
            std::uint32_t length = small_size;
            expect(EFS_read(small_file, 0, &length, file->content.data()) == 0, "EFS_read");
        }
    };
}

} // namespace

std::vector<workload> efs_workloads()
{
    return {
        {"E1", "EFS: replace a 1 KiB file", times, 12, 0, replace},
        {"E2", "EFS: read a 1 KiB file", times, 1.2, 0, read},
    };
}

} // namespace bench
