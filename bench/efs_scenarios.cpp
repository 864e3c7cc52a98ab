// Operations on an EFS image.
#include "bench/scenario.h"

#include "yfs/efs.h"
#include "yfs/make_efs.h"

#include <memory>

namespace bench {

namespace {

using bytes = std::vector<std::uint8_t>;

// A small file in a block that it shares with nothing, and a long one on the blocks behind it.
constexpr std::uint32_t small_file = 0, long_file = 1;
constexpr std::uint32_t small_size = 1024, long_size = 12 * 1024;
efs_file_t layout[] = {{0, 0, small_size, 1, 0}, {1, 0, long_size, 1, 0}};

// A formatted image of the default geometry but for its spare blocks, the state from which a run starts and the buffer
// in which it runs. The geometry is the library's global one, so each run sets it anew.
class efs_image {
public:
    explicit efs_image(std::uint32_t spares) : spares_(spares)
    {
        set_geometry();
        start_.resize(EFS_get_efs_size());
        expect(yfs_make_efs(start_.data(), static_cast<std::uint32_t>(start_.size())) == 0, "yfs_make_efs");
        reset();
    }

    void reset()
    {
        set_geometry();
        image_ = start_;
        mount();
    }
    void keep() { start_ = image_; }
    void mount() { expect(EFS_init_tools(image_.data()) == 0, "EFS_init_tools"); }

private:
    void set_geometry() const
    {
        EFS_files = layout;
        g_efs_files_num = 2;
        g_efs_bm_num = 2;
        g_efs_valid_block_num = 7;
        g_efs_non_valid_block_num = spares_;
        g_efs_wear_leveling_threshold = 100;
        g_efs_autogen_data_loaded = 1;
    }

    std::uint32_t spares_;
    bytes start_;
    bytes image_;
};

void put(std::uint32_t file, const bytes& content)
{
    expect(EFS_write(file, 0, static_cast<std::uint32_t>(content.size()), content.data()) == 0, "EFS_write");
}

// An image in use: `file` was replaced often enough for switches of the block map and for wear levelling.
std::shared_ptr<efs_image> used_image(std::uint32_t spares, std::uint32_t file, std::uint32_t size)
{
    auto image = std::make_shared<efs_image>(spares);
    for (int i = 0; i < 2000; ++i) put(file, dice(11).bytes(size));
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
    const auto buffer = std::make_shared<bytes>(size);
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
    const auto content = std::make_shared<bytes>(dice(12).bytes(size));
    return {name,
            times,
            std::uint64_t{times} * size,
            limit,
            true,
            [image] { image->reset(); },
            [content, file] {
                for (std::uint32_t i = 0; i < times; ++i) {
                    (*content)[i % content->size()] ^= 0xFFU;
                    put(file, *content);
                }
            }};
}

} // namespace

std::vector<scenario> efs_scenarios()
{
    constexpr std::uint32_t default_spares = 3, many_spares = 8;
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
