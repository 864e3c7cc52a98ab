/* A program outside the tree, in C: makes a volume, writes a file, mounts again, reads it back. */
#include <yfs/yfs.h>

#include <stdio.h>
#include <string.h>

enum { image_bytes = 0x10000, file = 5, file_bytes = 300 };

static uint8_t image[image_bytes];

static int check(const char* what, uint32_t got, uint32_t want)
{
    if (got != want) fprintf(stderr, "%s: %u, not %u\n", what, (unsigned)got, (unsigned)want);
    return got != want;
}

int main(void)
{
    uint8_t content[file_bytes], back[file_bytes + 1];
    uint32_t length = sizeof back;
    int wrong = 0;
    for (int i = 0; i < file_bytes; ++i) content[i] = (uint8_t)(i * 7);

    wrong += check("yfs_make_volume", yfs_make_volume(image, image_bytes, 1024), 0);
    wrong += check("dfs_init", dfs_init(image, image_bytes), 0);
    wrong += check("dfs_write", dfs_write(file, 0, file_bytes, content, 1), 0);
    wrong += check("dfs_init again", dfs_init(image, image_bytes), 0);
    wrong += check("dfs_read", dfs_read(file, 0, &length, back), 0);
    wrong += check("the content read", length != file_bytes || memcmp(back, content, file_bytes) != 0, 0);
    wrong += check("yeYfsIsInitialized", yeYfsIsInitialized(), 0);
    return wrong != 0;
}
