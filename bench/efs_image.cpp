#include "bench/efs_image.h"

#include "yfs/efs.h"
#include "yfs/make_efs.h"

namespace bench {

static efs_file_t layout[] = {{0, 0, small_size, 1, 0}, {1, 0, long_size, 1, 0}};

efs_image::efs_image(std::uint32_t spares) : spares_(spares)
{
    set_geometry();
    start_.resize(EFS_get_efs_size());
    expect(yfs_make_efs(start_.data(), static_cast<std::uint32_t>(start_.size())) == 0, "yfs_make_efs");
    reset();
}

void efs_image::reset()
{
    set_geometry();
    image_ = start_;
    mount();
}

void efs_image::mount()
{
    expect(EFS_init_tools(image_.data()) == 0, "EFS_init_tools");
}

void efs_image::set_geometry() const
{
    EFS_files = layout;
    g_efs_files_num = 2;
    g_efs_bm_num = 2;
    g_efs_valid_block_num = 7;
    g_efs_non_valid_block_num = spares_;
    g_efs_wear_leveling_threshold = 100;
    g_efs_autogen_data_loaded = 1;
}

void put_efs(std::uint32_t file, const std::vector<std::uint8_t>& content)
{
    expect(EFS_write(file, 0, static_cast<std::uint32_t>(content.size()), content.data()) == 0, "EFS_write");
}

} // namespace bench
