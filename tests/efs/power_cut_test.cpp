// Power goes after the programmed bytes of every kind of change of an EFS image, and inside every erase. Each change is
// run once with the chip's journal on; then the prefixes of the journal are laid over the image as it was. After each
// cut a fresh mount must find every other file intact and the touched one wholly old or wholly new, the second reader
// must have no complaint, and the image must take a further write; and that write, which repairs what the cut left, is
// cut short itself in the same way.
#include "tests/efs/rig.h"

#include <algorithm>
#include <iostream>
#include <set>

namespace yfs::test::efs_power_cut {

// Headers, entries and footers are cut after every byte, long writes after every `stride`-th, and every fourth of these
// in a wide image. A build for finding bugs is slow; it takes fewer places.
#ifdef NDEBUG
constexpr std::uint32_t stride = 1, second_stride = 499, repair_stride = 1201;
#else
constexpr std::uint32_t stride = 311, second_stride = 4001, repair_stride = 4001;
#endif

std::vector<std::uint32_t> places(const chip_change& change, std::uint32_t step)
{
    if (change.kind == chip_call::erase) return {0, 1, 4, 12, 15, 16, 17, 100, 2048, 4091, 4095};
    std::vector<std::uint32_t> out;
    for (std::uint32_t at = 0; at < change.len; at += change.len <= 300 ? 1 : step) out.push_back(at);
    return out;
}

struct scenario { // NOLINT(clang-analyzer-optin.performance.Padding): in the order of the rows
    const char* name;
    efs::geometry geo;
    std::uint32_t threshold;
    unsigned history; // writes before the operation
    efs_operation op;
    bool switches = false; // whether the operation goes on to another BM, so the cut falls there too
    bool moves = false;    // whether wear levelling moves a block
    friend void PrintTo(const scenario& s, std::ostream* out) { *out << s.name; }
};

void prepare(efs_rig& r, const scenario& s)
{
    ASSERT_EQ(r.mount(), 0U);
    for (const unsigned i : {0U, 1U, 2U, 4U})
        ASSERT_TRUE(i >= g_efs_files_num ||
                    r.perform({efs_call::write, i, bytes(EFS_files[i].max_size - 3U * i, i)}) == 0);
    for (unsigned i = 0; i < s.history; ++i) ASSERT_EQ(r.perform({efs_call::write, 0, bytes(100 + i % 150, i)}), 0U);
    while (s.switches && s.geo.slot_fits(efs_ctx.bme_offset + s.geo.bme_bytes())) // up to the last slot of the BM
        ASSERT_EQ(r.perform({efs_call::write, 0, bytes(7, efs_ctx.bme_offset)}), 0U);
    ASSERT_EQ(r.mount(), 0U);
    r.chip.keep_journal(true);
}

class EfsPowerCut : public testing::TestWithParam<scenario> {
protected:
    static void TearDownTestSuite()
    {
        std::cout << "EFS power cuts: " << s_cuts << ", second cuts: " << s_second_cuts << ", lost: " << s_lost
                  << "\n  " << s_built_in
                  << " with the medium replaced and built in; after the first cut the old state " << s_old
                  << " times, the new one " << s_new << " times\n";
    }

    // Empty if all is in order after a cut that left `image`, else what isn't.
    static std::string judge(const blob& image, const efs_contents& before, const efs_contents& after, bool first,
                             bool again)
    {
        efs_rig r(image, before);
        r.chip.violations_fail_test(false);
        if (const auto status = r.mount(); status != 0) return "mount: " + std::to_string(status);
        const bool is_new = read_mounted() == after;
        if (is_new) r.files = after;
        if (auto trouble = r.trouble(); !trouble.empty()) return trouble;
        if (first) ++(is_new ? s_new : s_old);

        const efs_contents found = r.files;
        r.chip.keep_journal(true);
        const auto status = r.perform({efs_call::write, 1, bytes(50, 200)});
        if (status != 0) return "a further write: " + std::to_string(status);
        if (const auto trouble = r.trouble(); !trouble.empty()) return "after a further write: " + trouble;
        if (!r.chip.violations().empty()) return "the chip: " + r.chip.violations()[0];
        blob base = image;
        for (const chip_change& change : again ? r.chip.journal() : std::vector<chip_change>()) {
            for (const std::uint32_t at : places(change, repair_stride)) {
                ++s_second_cuts;
                blob torn = base;
                replay_cut(torn, change, at, 0x3C);
                const auto trouble = judge(torn, found, r.files, false, false);
                if (!trouble.empty()) return "and a second cut: " + trouble;
            }
            replay_cut(base, change, change.len);
        }
        return {};
    }
    static inline std::uint64_t s_cuts = 0, s_built_in = 0, s_second_cuts = 0, s_lost = 0, s_old = 0, s_new = 0;
};

TEST_P(EfsPowerCut, LeavesTheOldOrTheNewState)
{
    const scenario& s = GetParam();
    efs_rig r(fresh_image(s.geo, usual_files(s.geo), s.threshold));
    prepare(r, s);
    if (HasFatalFailure()) return;
    blob base = r.image;
    const efs_contents before = r.files;
    const std::uint32_t sequence = efs_ctx.bm_sequence;
    ASSERT_EQ(r.perform(s.op), 0U);
    const std::vector<chip_change>& journal = r.chip.journal();
    EXPECT_EQ(efs_ctx.bm_sequence - sequence, s.switches ? 1U : 0U);
    EXPECT_EQ(std::ranges::count(journal, 4080U, &chip_change::len), s.moves ? 1 : 0);
    ASSERT_EQ(r.trouble(), "");

    unsigned lost = 0;
    const auto cut = [&](const chip_change& change, std::uint32_t at, const efs_contents& old) {
        ++s_cuts;
        blob image = base;
        replay_cut(image, change, at, at % 3 == 0 ? 0xFF : 0x5A);
        auto trouble = judge(image, old, r.files, true, at % second_stride == 0 || change.len <= 32);
        if (trouble.empty() && s_cuts % 4 == 0) { // once more, with the medium looked at in place
            ++s_built_in;
            const as_built_in_efs medium;
            trouble = judge(image, old, r.files, false, false);
        }
        if (trouble.empty()) return;
        ++s_lost;
        if (++lost > 10) return; // told often enough
        ADD_FAILURE() << s.op << ", cut in the " << (change.kind == chip_call::erase ? "erase" : "write") << " of "
                      << change.len << " bytes at " << change.addr << " after " << at << " bytes: " << trouble;
    };
    for (const chip_change& change : journal) {
        for (const std::uint32_t at : places(change, s.geo.bm_num > 2 ? 4 * stride : stride)) cut(change, at, before);
        replay_cut(base, change, change.len);
    }
    cut(journal.back(), journal.back().len, r.files);
}

constexpr efs::geometry usual = {2, 7, 3}, wide = {3, 20, 8}, tight = {2, 1, 1};
constexpr std::uint32_t never = 1000000;

const scenario scenarios[] = {
    {"write into a shared block", usual, never, 3, {efs_call::write, 2, bytes(150, 60)}},
    {"write with a dirty spare to erase", usual, never, 9, {efs_call::write, 2, bytes(150, 61)}},
    {"write of nothing", usual, never, 4, {efs_call::write, 2, {}}},
    {"first write of a file", usual, never, 5, {efs_call::write, 3, bytes(800, 62)}},
    {"write over four blocks", wide, never, 6, {efs_call::write, 4, bytes(8500, 63)}},
    {"write that gets shorter by blocks", wide, never, 6, {efs_call::write, 4, bytes(10, 64)}},
    {"delete", usual, never, 4, {efs_call::remove, 2}},
    {"delete of a long file", wide, never, 4, {efs_call::remove, 4}},
    {"write with one spare", tight, never, 5, {efs_call::write, 2, bytes(90, 65)}},
    {"switch of the map", usual, never, 0, {efs_call::write, 2, bytes(150, 66)}, true},
    {"switch back onto a used map", usual, never, 200, {efs_call::write, 2, bytes(150, 67)}, true},
    {"switch among three maps", wide, never, 400, {efs_call::write, 2, bytes(150, 68)}, true},
    {"wear levelling before a write", usual, 4, 14, {efs_call::write, 2, bytes(150, 69)}, false, true},
    {"wear levelling before a delete", usual, 4, 14, {efs_call::remove, 2}, false, true},
    {"idle erase of a dirty spare", usual, never, 7, {efs_call::idle}},
    {"idle erase of the next map", usual, never, 320, {efs_call::idle}},
    {"idle wear levelling", usual, 4, 14, {efs_call::idle}, false, true},
};
INSTANTIATE_TEST_SUITE_P(AllChanges, EfsPowerCut, testing::ValuesIn(scenarios));

// What a change is for, by where it falls.
std::string purpose(const chip_change& change, std::uint32_t bm_num)
{
    const bool map = change.addr / efs::block_bytes < bm_num;
    const std::uint32_t at = change.addr % efs::block_bytes;
    if (change.kind == chip_call::erase) return map ? "erase map" : "erase block";
    if (at == offsetof(efs::efs_block_header_t, crc)) return map ? "void map header" : "void block header";
    if (at == 0) return !map ? "block header" : change.bytes[0] == 0 ? "retire map" : "map header";
    if (map) return "entry";
    return at == offsetof(efs::data_block_t, footer) ? "footer"
           : change.len == efs::data_area_bytes      ? "contents"
                                                     : "whole block";
}

// The order of two neighbours decides, or either order holds: if one of these could be turned round without a loss, the
// cuts above would prove little.
TEST_F(EfsPowerCut, TheDecidingPairsLoseTurnedRound)
{
    using pairs = std::set<std::pair<std::string, std::string>>;
    pairs losing;
    for (const scenario& s : scenarios) {
        efs_rig r(fresh_image(s.geo, usual_files(s.geo), s.threshold));
        prepare(r, s);
        const blob start = r.image;
        const efs_contents before = r.files;
        ASSERT_EQ(r.perform(s.op), 0U);
        for (std::size_t i = 0; i + 1 < r.chip.journal().size(); ++i) {
            std::vector<chip_change> order = r.chip.journal();
            std::swap(order[i], order[i + 1]);
            blob now = start;
            bool lost = false;
            for (std::size_t k = 0; !lost && k < order.size(); ++k) {
                replay_cut(now, order[k], order[k].len);
                if (k >= i) lost = !judge(now, k + 1 == order.size() ? r.files : before, r.files, false, false).empty();
            }
            if (lost) losing.emplace(purpose(order[i + 1], s.geo.bm_num), purpose(order[i], s.geo.bm_num));
        }
    }
    EXPECT_EQ(losing, (pairs{{"block header", "void block header"},
                             {"entry", "map header"},
                             {"entry", "void block header"},
                             {"erase block", "block header"},
                             {"erase map", "entry"},
                             {"footer", "entry"},
                             {"map header", "retire map"},
                             {"void block header", "erase block"},
                             {"void map header", "erase map"},
                             {"whole block", "entry"}}));
}

} // namespace yfs::test::efs_power_cut
