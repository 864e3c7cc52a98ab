#include "tool/image_work.h"

#include "tool/error.h"
#include "tool/interrupt.h"
#include "yfs/dfs.h"
#include "yfs/efs.h"
#include "yfs/status.h"

#include <fmt/format.h>

namespace yfs::tool {

namespace {

// More than any image has units: a loop that goes on longer gains nothing any more.
constexpr int most_steps = 1000;

} // namespace

void expect(std::uint32_t status, const working_copy& image, std::string_view step)
{
    if (status == afs_status::ok) return;
    throw failure(fault::volume_damaged,
                  fmt::format("{}: {} failed (status {}); nothing was saved", image.name(), step, status),
                  fmt::format("'yfs check {}' tells what is wrong with it", image.name()));
}

void reclaim_all_units(const working_copy& image)
{
    std::uint32_t status = afs_status::call_again;
    for (int step = 0; step < most_steps && status == afs_status::call_again; ++step) status = dfs_force_full_reclaim();
    expect(status, image, "a reclaim");
}

void reclaim_worthwhile(const working_copy& image)
{
    constexpr std::uint32_t gained_nothing = 38807;
    for (int step = 0; step < most_steps && dfs_idle_reclaim_needed() != 0; ++step) {
        const std::uint32_t status = dfs_idle_reclaim();
        if (status == gained_nothing) return;
        expect(status, image, "a reclaim");
    }
}

void settle_efs(const working_copy& image)
{
    for (int step = 0; step < most_steps; ++step) {
        const bytes before = image.now;
        expect(EFS_idle_reclaim(), image, "a step of idle work");
        if (image.now == before) return;
    }
}

} // namespace yfs::tool
