// EFS: a random history, one more operation, and a cut at every byte of it; of some cuts, what follows is cut again.
#include "torture/torture.h"

#include "tests/efs/rig.h"

namespace torture {

using namespace yfs::test;

namespace {

efs_operation any_operation(std::mt19937_64& random)
{
    const auto file = static_cast<unsigned>(random() % g_efs_files_num);
    if (random() % 6 == 0) return {efs_call::idle};
    if (random() % 8 == 0) return {efs_call::remove, file};
    return {efs_call::write, file, bytes(1 + random() % EFS_files[file].max_size, static_cast<unsigned>(random()))};
}

// Mounts, looks, writes, mounts and looks again. Empty, or what is wrong.
std::string go_on(blob& image, const efs_contents& before, const efs_contents& after)
{
    if (EFS_init_tools(image.data()) != 0) return "no mount";
    efs_contents files = read_mounted();
    if (files != before && files != after) return "neither old nor new";
    const efs_operation more{efs_call::write, 1, bytes(30, 8)};
    if (const auto status = run(more); status != 0) return "write: " + std::to_string(status);
    files[1] = more.data;
    if (EFS_init_tools(image.data()) != 0) return "no mount after a write";
    return read_mounted() == files ? "" : "lost by a write";
}

std::vector<chip_change> follow_up(blob image)
{
    efs_rig r(std::move(image));
    r.chip.violations_fail_test(false);
    r.chip.keep_journal(true);
    if (r.mount() != 0) return {};
    run({efs_call::write, 1, bytes(30, 8)});
    run({efs_call::idle});
    return r.chip.journal();
}

void check(blob& image, const blob& base, const chip_change& change, const efs_contents& before,
           const efs_contents& after, std::uint64_t seed, totals& all, const std::string& where)
{
    scratch run(image);
    use_efs_chip(&run.chip);
    std::string wrong = go_on(image, before, after);
    if (wrong.empty() && !run.chip.violations().empty()) wrong = run.chip.violations()[0];
    use_efs_chip(nullptr);
    if (!wrong.empty()) report_loss(all, seed, where + ": " + wrong);
    run.restore(base, change);
}

void cut_again(const blob& first, const efs_contents& before, const efs_contents& after, std::uint64_t seed,
               totals& all)
{
    const auto journal = follow_up(first);
    blob base = first, image = first;
    efs_contents with_more[] = {before, after};
    const bool is_new = EFS_init_tools(image.data()) == 0 && read_mounted() == after;
    efs_contents now = with_more[is_new ? 1 : 0], then = now;
    then[1] = bytes(30, 8);
    for (std::size_t n = 0; n < journal.size(); ++n) {
        for (const std::uint32_t done : places(journal[n], 61)) {
            ++all.pairs;
            replay_cut(image, journal[n], done, static_cast<std::uint8_t>(done * 37));
            check(image, base, journal[n], now, then, seed, all, "second cut, change " + std::to_string(n));
        }
        replay_cut(base, journal[n], journal[n].len);
        replay_cut(image, journal[n], journal[n].len);
    }
}

} // namespace

void cut_efs(std::uint64_t seed, totals& all)
{
    static constexpr yfs::efs::geometry shapes[] = {{2, 7, 3}, {3, 1, 1}, {2, 20, 5}, {6, 40, 12}};
    const auto& geo = shapes[seed % 4];
    std::mt19937_64 random(seed);
    efs_rig r(fresh_image(geo, usual_files(geo), 2 + static_cast<unsigned>(random() % 20)));
    r.chip.violations_fail_test(false);
    if (r.mount() != 0) return;
    const auto steps = 20 + random() % 300;
    for (std::uint64_t i = 0; i < steps; ++i) r.perform(any_operation(random));
    r.mount();
    const blob start = r.image;
    const efs_contents before = r.files;
    r.chip.keep_journal(true);
    while (r.chip.journal().empty()) r.perform(any_operation(random)); // what writes nothing can't be cut
    const efs_contents after = r.files;
    const auto journal = r.chip.journal();
    use_efs_chip(nullptr);
    ++all.operations;

    blob base = start, image = start;
    std::uint64_t dice = seed;
    for (std::size_t n = 0; n < journal.size(); ++n) {
        for (const std::uint32_t done : places(journal[n], 1)) {
            ++all.cuts;
            dice = dice * 6364136223846793005 + 1442695040888963407;
            replay_cut(image, journal[n], done, static_cast<std::uint8_t>(dice >> 33));
            if ((dice >> 40) % 509 == 0) cut_again(image, before, after, seed, all);
            check(image, base, journal[n], before, after, seed, all,
                  "change " + std::to_string(n) + ", byte " + std::to_string(done));
        }
        replay_cut(base, journal[n], journal[n].len);
        replay_cut(image, journal[n], journal[n].len);
    }
}

} // namespace torture
