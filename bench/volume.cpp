#include "bench/volume.h"

#include "yfs/make_volume.h"

namespace bench {

volume::volume(std::uint32_t size) : start(size)
{
    expect(yfs_make_volume(start.data(), size, file_heads) == 0, "yfs_make_volume");
    reset();
}

void volume::put(std::uint32_t file, const bytes& content) const
{
    expect(dfs_write(file, 0, static_cast<std::uint32_t>(content.size()), content.data(), ends_here) == 0, "dfs_write");
}

void volume::reset()
{
    image = start;
    mount();
}

void volume::mount()
{
    expect(dfs_init(image.data(), static_cast<std::uint32_t>(image.size())) == 0, "dfs_init");
}

bytes file_content(dice& random)
{
    return random.bytes(200 + random.below(2048 - 200 + 1));
}

std::vector<bytes> many_files()
{
    dice random(1);
    std::vector<bytes> files;
    for (std::uint32_t i = 0; i < many; ++i) files.push_back(file_content(random));
    return files;
}

void put_all(const volume& vol, const std::vector<bytes>& files)
{
    for (std::uint32_t i = 0; i < files.size(); ++i) vol.put(i, files[i]);
}

std::shared_ptr<volume> volume_of_many(const std::vector<bytes>& files)
{
    auto vol = std::make_shared<volume>(large_volume);
    put_all(*vol, files);
    vol->keep();
    return vol;
}

void read_whole(std::uint32_t file, bytes& buffer)
{
    auto length = static_cast<std::uint32_t>(buffer.size());
    expect(dfs_read(file, 0, &length, buffer.data()) == 0, "dfs_read");
}

} // namespace bench
