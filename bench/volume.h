// A volume to measure on, and the files that most of the measurements put there.
#pragma once

#include "bench/scenario.h"

#include "yfs/dfs.h"

#include <memory>

namespace bench {

using bytes = std::vector<std::uint8_t>;

inline constexpr std::uint32_t large_volume = 0x1FE000; // 255 erase units
inline constexpr std::uint32_t small_volume = 0x80000;  // 64
inline constexpr std::uint32_t file_heads = 1024;
inline constexpr std::uint32_t ends_here = 1; // dfs_write: the file ends behind what is written
inline constexpr std::uint32_t many = 500;    // files of a volume that is used like a real one

// A volume in the state from which a run starts, and the buffer in which it runs.
class volume {
public:
    explicit volume(std::uint32_t size);

    void put(std::uint32_t file, const bytes& content) const;
    void keep() { start = image; } // what the buffer holds now is where every run starts
    const bytes& contents() const { return image; }
    void reset();
    void mount();

private:
    bytes start;
    bytes image;
};

// Files of 200 to 2,048 bytes.
bytes file_content(dice& random);
std::vector<bytes> many_files();

// File i of the list becomes file number i.
void put_all(const volume& vol, const std::vector<bytes>& files);
std::shared_ptr<volume> volume_of_many(const std::vector<bytes>& files);

void read_whole(std::uint32_t file, bytes& buffer);

} // namespace bench
