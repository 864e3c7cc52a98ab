// media_probe replaced | built-in: does the library work on the media and the memory that this process should have?
#include "tests/project/replacement.h"
#include "yfs/yfs.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

static int wrong = 0;

static void check(const char* what, uint32_t got, uint32_t want)
{
    if (got != want) wrong = std::fprintf(stderr, "%s: %u, not %u\n", what, got, want);
}

static void use_the_chip(replacement_state* own)
{
    std::vector<uint8_t> image(0x10000);
    check("yfs_make_volume", yfs_make_volume(image.data(), 0x10000, 100), 0);
    // The chip of the replacement inverts: this is the volume as that chip keeps it.
    if (own != nullptr) std::transform(image.begin(), image.end(), image.begin(), [](int b) { return ~b & 0xFF; });

    std::vector<uint8_t> content(5000, 0x5A), back(6000);
    uint32_t length = 6000;
    check("dfs_init", dfs_init(image.data(), 0x10000), 0);
    // Often enough that reclaims erase.
    for (int i = 0; i < 20; ++i) check("dfs_write", dfs_write(7, 0, 5000, content.data(), 1), 0);
    check("dfs_read", dfs_read(7, 0, &length, back.data()), 0);
    check("the length read", length, 5000);
    check("the content read", std::memcmp(content.data(), back.data(), 5000) == 0, 1);
    if (own == nullptr) return;

    check("calls of the chip", own->chip_calls > 0, 1);
    own->out_of_memory = 1;
    check("dfs_init without memory", dfs_init(image.data(), 0x10000), 0xFFFFFFFF);
    own->out_of_memory = 0;
}

static void use_the_efs_medium(replacement_state* own)
{
    std::vector<uint8_t> image(EFS_get_efs_size(), 0xFF);
    g_efs_autogen_data_loaded = 1;
    check("EFS_init_tools on a blank image", EFS_init_tools(image.data()), 41);
    if (own != nullptr) check("calls of the EFS medium", own->efs_calls > 0, 1);
}

int main(int argc, char** argv)
{
    const bool expected = argc > 1 && std::strcmp(argv[1], "replaced") == 0;
    auto* own = static_cast<replacement_state*>(dlsym(RTLD_DEFAULT, "replacement"));
    check("a replacement in the process", own != nullptr, expected ? 1 : 0);
    use_the_chip(own);
    use_the_efs_medium(own);
    return wrong != 0;
}
