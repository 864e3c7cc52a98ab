// The flash bytes of good flows are pinned: 1,000 seeded histories without cut or fault, each with the hash of all its
// statuses and of the image that it leaves, line by line in flows.txt. What makes the library faster or sturdier may
// change none of them. YFS_PRINT_FLOWS=1 prints the lines of this build.
#include "tests/support/efs_builder.h"
#include "yfs/dfs.h"
#include "yfs/efs.h"
#include "yfs/make_efs.h"
#include "yfs/make_volume.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <random>

namespace {

using bytes = std::vector<std::uint8_t>;

constexpr unsigned flows_each = 100;

// FNV-1a, 64 bits, over 8 bytes a step.
struct digest {
    std::uint64_t value = 0xCBF29CE484222325;
    void add(std::uint64_t word) { value = (value ^ word) * 0x100000001B3; }
    void add(const bytes& all)
    {
        for (std::size_t i = 0; i + 8 <= all.size(); i += 8) {
            std::uint64_t word = 0;
            for (unsigned b = 8; b-- > 0;) word = word << 8 | all[i + b];
            add(word);
        }
    }
};

struct flow {
    explicit flow(unsigned seed) : random(seed) {}
    std::mt19937 random;
    digest sum;
    bytes image;

    unsigned below(unsigned n) { return n != 0 ? static_cast<unsigned>(random() % n) : 0; }
    void status(std::uint32_t answer) { sum.add(answer); }
    bytes content(unsigned size)
    {
        bytes some(size);
        for (auto& byte : some) byte = static_cast<std::uint8_t>(random());
        return some;
    }
};

struct shape {
    const char* name;
    unsigned eus, files;                                  // of an AFS volume
    unsigned maps = 0, logical = 0, spares = 0, wear = 0; // of an EFS image
};

constexpr shape shapes[] = {
    {"afs-4", 4, 65},
    {"afs-6", 6, 1024},
    {"afs-8", 8, 100},
    {"afs-16", 16, 300},
    {"afs-64", 64, 500},
    {"afs-255", 255, 2048},
    {"efs-2-7-3", 0, 0, 2, 7, 3, 100},
    {"efs-3-1-1", 0, 0, 3, 1, 1, 5},
    {"efs-2-20-5", 0, 0, 2, 20, 5, 10},
    {"efs-6-60-20", 0, 0, 6, 60, 20, 2},
};

// Sizes stay below a quarter of the volume, so that neither a chain over all chunks nor a long release comes up. In
// half of the flows the volume is filled first.
void afs_flow(flow& f, const shape& s, bool full)
{
    f.image.resize(s.eus * 8192U);
    f.status(yfs_make_volume(f.image.data(), s.eus * 8192U, s.files));
    f.status(dfs_init(f.image.data(), s.eus * 8192U));
    const unsigned room = (s.eus - 1 - s.eus / 12) * 7808, largest = std::min(room / 4, 9000U);
    const auto write = [&](unsigned number, unsigned offset, unsigned size, unsigned ends) {
        const bytes data = f.content(size);
        const auto answer = dfs_write(number, offset, size, data.data(), ends);
        f.status(answer);
        return answer;
    };
    const unsigned heads = std::min(s.files, full ? s.files : 24);
    for (unsigned number = 0; full && number < heads && number * 2000 < room; ++number)
        write(number, 0, 1 + f.below(1900), 1);
    for (int step = 0; step < 70; ++step) {
        const unsigned number = f.below(heads), size = f.below(f.below(3) != 0 ? std::min(900U, largest) : largest);
        std::uint32_t held = 0;
        const bool there = dfs_getsize(number, &held) == 0;
        const unsigned way = f.below(16);
        if (way == 0) f.status(dfs_delete_file(number));
        if (way == 1) f.status(dfs_mark_zombie_file(number));
        if (way == 2) f.status(dfs_idle_reclaim());
        if (way == 3) f.status(dfs_force_full_reclaim());
        if (way == 4) f.status(dfs_init(f.image.data(), s.eus * 8192U));
        if (way == 5) write(number, there ? f.below(held + 1) / 2 : 0, 0, 1);
        if (way == 6 || way == 7) write(number, there ? f.below(held + 1) : 0, std::min(size, 700U), 0);
        if (way == 8) write(number, there ? std::min(held, largest) : 0, std::min(size, 300U), 1);
        if (way > 8) write(number, 0, size, 1);
    }
}

void efs_flow(flow& f, const shape& s)
{
    std::vector<efs_file_t> table;
    for (unsigned block = 0; block < s.logical && table.size() < 63; ++block) {
        const unsigned whole = std::min(s.logical - block, s.spares) * 4072 - 1600;
        table.push_back(yfs::test::efs_entry(block, 0, 1500));
        table.push_back(yfs::test::efs_entry(block, 1600, std::min(whole, 2400U)));
    }
    yfs::test::use_efs_table({s.maps, s.logical, s.spares}, table, g_efs_layout_id, s.wear);
    f.image.resize(EFS_get_efs_size());
    f.status(yfs_make_efs(f.image.data(), static_cast<std::uint32_t>(f.image.size())));
    f.status(EFS_init_tools(f.image.data()));
    for (int step = 0; step < 200; ++step) {
        const unsigned number = f.below(f.below(3) != 0 ? 2 : g_efs_files_num);
        const bytes data = f.content(1 + f.below(table[number].max_size));
        const unsigned way = f.below(12);
        if (way == 0) f.status(EFS_delete(number));
        if (way == 1 || way == 2) f.status(EFS_idle_reclaim());
        if (way == 3) f.status(EFS_init_tools(f.image.data()));
        if (way > 3) f.status(EFS_write(number, 0, static_cast<std::uint32_t>(data.size()), data.data()));
    }
}

std::string run(const shape& s, unsigned number)
{
    flow f(number * 7919 + s.eus * 31 + s.logical);
    if (s.eus != 0) {
        afs_flow(f, s, number % 2 != 0);
    } else {
        efs_flow(f, s);
    }
    f.sum.add(f.image);
    char line[64];
    std::snprintf(line, sizeof line, "%s %u %016llx", s.name, number, static_cast<unsigned long long>(f.sum.value));
    return line;
}

TEST(PinnedFlows, LeaveTheBytesThatTheyAlwaysLeft)
{
    const bool print = std::getenv("YFS_PRINT_FLOWS") != nullptr;
    std::ifstream pinned(YFS_PINNED_FLOWS);
    for (const shape& s : shapes) {
        for (unsigned number = 0; number < flows_each; ++number) {
            const std::string now = run(s, number);
            if (print) std::printf("%s\n", now.c_str());
            std::string then;
            std::getline(pinned, then);
            ASSERT_TRUE(print || now == then) << now << ", not " << then;
        }
    }
}

} // namespace
