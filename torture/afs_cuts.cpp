// AFS: a random history, one more operation, and a cut at every byte of it. After each the volume is mounted, all files
// are read, one is written, and it is mounted again. Of some cuts, what follows them is itself cut short.
#include "torture/torture.h"

#include "tests/power_cut/rig.h"
#include "yfs/make_volume.h"

#include <optional>

namespace torture {

using namespace yfs::test;
using afs_status::ok;

namespace {

constexpr unsigned extra = 60; // written after a cut; no history touches it
using image_bytes = std::vector<std::uint8_t>;

operation any_operation(std::mt19937_64& random, const contents& files, unsigned room)
{
    const auto below = [&](unsigned n) { return static_cast<unsigned>(random() % n); };
    const unsigned file = below(24), largest = std::min(room / 5, below(4) == 0 ? 6000U : 700U);
    const unsigned held = files.contains(file) ? static_cast<unsigned>(files.at(file).size()) : 0;
    const auto some = [&](unsigned most) { return bytes(below(most) + 1, below(0xFFFF)); };
    switch (below(10)) {
    case 0:
        return {kind::remove, file};
    case 1:
        return {below(3) == 0 ? kind::mark_zombie : kind::idle_reclaim, 30 + below(20)};
    case 2:
        return {below(6) == 0 ? kind::dirty_erase : kind::full_reclaim};
    case 3:
        return cut_to(file, below(held + 1));
    case 4:
        return {kind::write, file, below(held + 1), some(200)};
    case 5:
        return {kind::write, file, held, some(300)};
    default:
        return replace(file, some(largest));
    }
}

std::uint32_t mount(image_bytes& image)
{
    return dfs_init(image.data(), static_cast<std::uint32_t>(image.size()));
}

// Which of the two states the mounted volume shows; nothing if neither.
std::optional<contents> state_of(const contents& before, const contents& after, unsigned touched)
{
    if (reads_as(after) && file_reads_as(after, touched)) return after;
    if (reads_as(before) && file_reads_as(before, touched)) return before;
    return std::nullopt;
}

// What a host does next with the volume in `image`. Empty, or what is wrong.
std::string go_on(image_bytes& image, const contents& before, const contents& after, unsigned touched)
{
    if (mount(image) != ok) return "no mount";
    auto files = state_of(before, after, touched);
    if (!files) return "neither old nor new";
    const operation more = replace(extra, bytes(130, 9));
    const std::uint32_t status = more.run();
    if (status == ok) more.apply(*files);
    if (status != ok && status != afs_status::no_space) return "write: " + std::to_string(status);
    if (mount(image) != ok) return "no mount after a write";
    if (!reads_as(*files)) return "lost by a write";
    return "";
}

struct job {
    std::uint64_t seed;
    totals& all;
    contents before, after;
    unsigned touched;
};

// The flash operations of what follows a cut: mount, a write, reclaims.
std::vector<chip_change> follow_up(image_bytes image)
{
    nor_chip chip(image);
    chip.keep_journal(true);
    chip.violations_fail_test(false);
    const spi_chip_guard guard(chip);
    if (mount(image) != ok) return {};
    replace(extra, bytes(130, 9)).run();
    operation{kind::idle_reclaim}.run();
    dfs_force_full_reclaim();
    return chip.journal();
}

// `base` as a first cut has left it; a second one at places of what follows.
void cut_again(job& work, const image_bytes& first, std::uint64_t& dice)
{
    const auto journal = follow_up(first);
    image_bytes base = first, image = first;
    contents with_extra = work.after;
    for (std::size_t n = 0; n < journal.size(); ++n) {
        for (const std::uint32_t done : places(journal[n], 23)) {
            ++work.all.pairs;
            replay_cut(image, journal[n], done, static_cast<std::uint8_t>(dice = dice * 25214903917 + 11));
            scratch run(image);
            const spi_chip_guard guard(run.chip);
            std::string wrong;
            if (mount(image) != ok) {
                wrong = "no mount";
            } else {
                // The further file may be there by now; the others are as the first cut left them.
                if (!state_of(work.before, work.after, work.touched)) wrong = "neither old nor new";
                if (wrong.empty() && replace(extra, bytes(70, 3)).run() == 5) wrong = "write: 5";
                if (wrong.empty() && (mount(image) != ok || !state_of(work.before, work.after, work.touched)))
                    wrong = "lost by a write";
            }
            if (wrong.empty() && !run.chip.violations().empty()) wrong = run.chip.violations()[0];
            if (!wrong.empty())
                report_loss(work.all, work.seed,
                            "second cut, change " + std::to_string(n) + ", byte " + std::to_string(done) + ": " +
                                wrong);
            run.restore(base, journal[n]);
        }
        replay_cut(base, journal[n], journal[n].len);
        replay_cut(image, journal[n], journal[n].len);
    }
}

} // namespace

void cut_afs(std::uint64_t seed, totals& all)
{
    static constexpr unsigned shapes[][2] = {{4, 65}, {6, 300}, {8, 100}, {16, 1024}, {64, 500}, {255, 2048}};
    const auto& [eus, heads] = shapes[seed % 6];
    std::mt19937_64 random(seed);
    image_bytes fresh(std::size_t{eus} * 8192);
    if (yfs_make_volume(fresh.data(), static_cast<std::uint32_t>(fresh.size()), heads) != ok) return;
    rig r(std::move(fresh));
    r.chip.violations_fail_test(false);
    if (r.mount() != ok) return;
    const unsigned room = (eus - 1 - eus / 12) * 7808;
    const unsigned steps = 40 + static_cast<unsigned>(random() % (eus > 20 ? 400 : 160));
    for (unsigned i = 0; i < steps; ++i) {
        const operation op = any_operation(random, r.files, room);
        if (op.what != kind::mark_zombie)
            r.perform(op); // zombies stay out of the history: their numbers are in use by it
    }
    r.mount();
    const image_bytes start = r.image;
    job work{seed, all, r.files, r.files, 0};
    operation op{kind::remove};
    r.chip.keep_journal(true);
    while (r.chip.journal().empty()) { // what writes nothing can't be cut
        op = any_operation(random, r.files, room);
        work.touched = op.file;
        if (r.perform(op) == ok) work.after = r.files;
    }
    const auto journal = r.chip.journal();
    ++all.operations;

    image_bytes base = start, image = start;
    std::uint64_t dice = seed;
    const std::uint64_t second_every = eus > 20 ? 4001 : 257;
    for (std::size_t n = 0; n < journal.size(); ++n) {
        for (const std::uint32_t done : places(journal[n], 1)) {
            ++all.cuts;
            dice = dice * 6364136223846793005 + 1442695040888963407;
            replay_cut(image, journal[n], done, static_cast<std::uint8_t>(dice >> 33));
            if ((dice >> 40) % second_every == 0) cut_again(work, image, dice);
            scratch run(image);
            const spi_chip_guard guard(run.chip);
            std::string wrong = go_on(image, work.before, work.after, work.touched);
            if (wrong.empty() && !run.chip.violations().empty()) wrong = run.chip.violations()[0];
            if (!wrong.empty())
                report_loss(all, seed,
                            op.text() + ", change " + std::to_string(n) + ", byte " + std::to_string(done) + ": " +
                                wrong);
            run.restore(base, journal[n]);
        }
        replay_cut(base, journal[n], journal[n].len);
        replay_cut(image, journal[n], journal[n].len);
    }
}

} // namespace torture
