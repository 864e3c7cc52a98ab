// Power goes after every programmed byte of every kind of change of an EFS image, and inside every erase. Each change
// is run once with the chip's journal on; then every prefix of the journal is laid over the image as it was. After each
// cut a fresh mount must find every other file intact and the touched one wholly old or wholly new, the second reader
// must have no complaint, and the image must take a further write; and that write, which repairs what the cut left, is
// cut short itself in the same way.
#include "tests/efs/rig.h"
#include "tests/support/volume_builder.h"
#include "yfs/status.h"

#include <algorithm>
#include <iostream>

namespace yfs::test {
namespace {

using kind = efs_operation::kind;

// A build for finding bugs is slow; it takes fewer places of the long writes.
#ifdef NDEBUG
constexpr std::uint32_t stride = 1, second_stride = 499, repair_stride = 1201;
#else
constexpr std::uint32_t stride = 311, second_stride = 4001, repair_stride = 4001;
#endif

struct tally {
    std::uint64_t cuts = 0, second_cuts = 0, lost = 0, old_state = 0, new_state = 0;
};
tally& counted()
{
    static tally t;
    return t;
}

class report : public testing::Environment {
public:
    void TearDown() override
    {
        const tally& t = counted();
        std::cout << "EFS power cuts: " << t.cuts << ", second cuts: " << t.second_cuts << ", lost: " << t.lost
                  << "\n  after the first cut the old state " << t.old_state << " times, the new one " << t.new_state
                  << " times\n";
    }
};
const auto* const s_report = testing::AddGlobalTestEnvironment(new report);

// The places of a change at which it is cut.
std::vector<std::uint32_t> places(const chip_change& change, std::uint32_t step)
{
    std::vector<std::uint32_t> out;
    if (change.kind == chip_call::erase) return {0, 1, 4, 12, 15, 16, 17, 100, 2048, 4091, 4095};
    if (change.len <= 300) step = 1; // headers, entries, footers
    for (std::uint32_t at = 0; at < change.len; at += step) out.push_back(at);
    return out;
}

// What a fresh mount finds in an image after a cut. Empty if all is in order, else what isn't; `found` is what it
// holds.
std::string judge(std::vector<std::uint8_t>& image, const efs_contents& before, const efs_contents& after,
                  unsigned touched, bool is_done, efs_contents& found)
{
    if (const auto is_clean = efs_clean(image); !is_clean) return std::string("not clean:") + is_clean.message();
    if (const auto status = EFS_init_tools(image.data()); status != 0) return "mount: " + std::to_string(status);
    const bool is_new = efs_file_reads_as(after, touched);
    if (!is_new && (is_done || !efs_file_reads_as(before, touched))) return "the touched file is neither old nor new";
    found = is_new ? after : before;
    unsigned file = 0;
    if (!efs_reads_as(found, file)) return "file " + std::to_string(file) + " is damaged";
    return {};
}

// One operation, run once and then cut short at will.
class cut_run {
public:
    cut_run(efs_rig& r, efs_operation op) : op_(std::move(op)), base_(r.image), old_(r.files)
    {
        r.chip.keep_journal(true);
        r.chip.clear_journal();
        EXPECT_EQ(r.mount(), 0U);
        EXPECT_EQ(r.perform(op_), 0U) << to_string(op_);
        new_ = r.files;
        journal_ = r.chip.journal();
        r.chip.keep_journal(false);
        EXPECT_TRUE(efs_clean(r.image));
    }

    const std::vector<chip_change>& journal() const { return journal_; }

    void cut_everywhere()
    {
        for (const chip_change& change : journal_) {
            const auto wanted = places(change, stride);
            for (std::size_t i = 0; i < wanted.size(); ++i) {
                const std::uint8_t unfinished = i % 3 == 0 ? 0xFF : 0x5A;
                cut(change, wanted[i], unfinished, wanted[i] % second_stride == 0 || change.len <= 32);
            }
            replay_cut(base_, change, change.len);
        }
        done_ = true;
        if (!journal_.empty()) cut(journal_.back(), journal_.back().len, 0xFF, true);
    }

private:
    void fail(const chip_change& change, std::uint32_t at, const std::string& trouble)
    {
        if (++counted().lost > 10) return;
        ADD_FAILURE() << to_string(op_) << ", cut in the " << (change.kind == chip_call::erase ? "erase" : "write")
                      << " of " << change.len << " bytes at " << change.addr << " after " << at
                      << " bytes: " << trouble;
    }

    void cut(const chip_change& change, std::uint32_t at, std::uint8_t unfinished, bool again)
    {
        ++counted().cuts;
        std::vector<std::uint8_t> image = base_;
        replay_cut(image, change, at, unfinished);
        const std::vector<std::uint8_t> as_cut = image;
        nor_chip chip(image);
        chip.violations_fail_test(false);
        const efs_chip_guard guard(chip);

        efs_contents found;
        std::string trouble = judge(image, old_, new_, op_.file, done_, found);
        if (trouble.empty()) ++(found == new_ ? counted().new_state : counted().old_state);

        const efs_operation repair{kind::write, 1, bytes(50, 200)};
        efs_contents further = found;
        apply(further, repair);
        if (trouble.empty()) {
            chip.keep_journal(true);
            if (const auto status = run(repair); status != 0) trouble = "a further write: " + std::to_string(status);
        }
        if (trouble.empty()) {
            if (const auto is_clean = efs_clean(image); !is_clean) trouble = is_clean.message();
            if (const auto same = efs_holds(image, further); !same) trouble = same.message();
        }
        if (!chip.violations().empty()) trouble += " the chip: " + to_string(chip.violations()[0]);
        if (!trouble.empty()) return fail(change, at, trouble);
        if (again) trouble = cut_repair(as_cut, chip.journal(), found, further, repair);
        if (!trouble.empty()) fail(change, at, "and a second cut: " + trouble);
    }

    // Cuts the further write too, then mounts and writes once more.
    static std::string cut_repair(std::vector<std::uint8_t> base, const std::vector<chip_change>& journal,
                                  const efs_contents& before, const efs_contents& after, const efs_operation& repair)
    {
        for (const chip_change& change : journal) {
            for (const std::uint32_t at : places(change, repair_stride)) {
                ++counted().second_cuts;
                std::vector<std::uint8_t> image = base;
                replay_cut(image, change, at, 0x3C);
                nor_chip chip(image);
                chip.violations_fail_test(false);
                const efs_chip_guard guard(chip);
                efs_contents found;
                std::string trouble = judge(image, before, after, repair.file, false, found);
                if (trouble.empty() && run(repair) != 0) trouble = "the write after it failed";
                apply(found, repair);
                if (trouble.empty()) trouble = efs_holds(image, found).message();
                if (!chip.violations().empty()) trouble += " the chip: " + to_string(chip.violations()[0]);
                if (!trouble.empty()) return trouble;
            }
            replay_cut(base, change, change.len);
        }
        return {};
    }

    efs_operation op_;
    std::vector<std::uint8_t> base_; // before the next change of the journal
    std::vector<chip_change> journal_;
    efs_contents old_, new_;
    bool done_ = false;
};

struct scenario {
    const char* name;
    efs::geometry geo;
    std::uint32_t threshold;
    unsigned history; // writes before the operation
    efs_operation op;
    bool switches = false; // whether the operation goes on to another BM, so the cut falls there too
    bool moves = false;    // whether wear levelling moves a block
    friend void PrintTo(const scenario& s, std::ostream* out) { *out << s.name; }
};

class EfsPowerCut : public testing::TestWithParam<scenario> {};

unsigned header_writes(const std::vector<chip_change>& journal, const efs::geometry& geo)
{
    unsigned count = 0;
    for (const chip_change& change : journal)
        count += change.kind == chip_call::write && change.len == 16 && change.bytes[8] == geo.bm_num &&
                 change.addr < geo.bm_num * efs::block_bytes;
    return count;
}

TEST_P(EfsPowerCut, LeavesTheOldOrTheNewState)
{
    const scenario& s = GetParam();
    const efs_table table(s.geo, usual_files(s.geo), s.threshold);
    efs_rig r(table.fresh_image());
    ASSERT_EQ(r.mount(), 0U);
    for (unsigned i = 0; i < table.files.size(); ++i)
        ASSERT_EQ(r.perform({kind::write, i, bytes(table.files[i].max_size - 3U * i, i)}), 0U);
    for (unsigned i = 0; i < s.history; ++i) ASSERT_EQ(r.perform({kind::write, 0, bytes(100 + i % 150, i)}), 0U);
    if (s.switches) { // up to the last slot of the BM
        while (table.geo.slot_fits(efs_ctx.bme_offset + table.geo.bme_bytes()))
            ASSERT_EQ(r.perform({kind::write, 0, bytes(7, efs_ctx.bme_offset)}), 0U);
    }
    cut_run job(r, s.op);
    EXPECT_EQ(header_writes(job.journal(), s.geo), s.switches ? 1U : 0U);
    const bool moved = std::any_of(job.journal().begin(), job.journal().end(),
                                   [](const chip_change& change) { return change.len == 4080; });
    EXPECT_EQ(moved, s.moves);
    job.cut_everywhere();
}

constexpr efs::geometry usual = {2, 7, 3}, wide = {3, 20, 8}, tight = {2, 1, 1};
constexpr std::uint32_t never = 1000000;

const scenario scenarios[] = {
    {"write into a shared block", usual, never, 3, {kind::write, 2, bytes(150, 60)}},
    {"write with a dirty spare to erase", usual, never, 9, {kind::write, 2, bytes(150, 61)}},
    {"write of nothing", usual, never, 4, {kind::write, 2, {}}},
    {"first write of a deleted file", usual, never, 5, {kind::write, 3, bytes(800, 62)}},
    {"write over four blocks", wide, never, 6, {kind::write, 3, bytes(8500, 63)}},
    {"write that gets shorter by blocks", wide, never, 6, {kind::write, 3, bytes(10, 64)}},
    {"delete", usual, never, 4, {kind::remove, 2}},
    {"delete of a long file", wide, never, 4, {kind::remove, 3}},
    {"write with one spare", tight, never, 5, {kind::write, 2, bytes(90, 65)}},
    {"switch of the map", usual, never, 0, {kind::write, 2, bytes(150, 66)}, true},
    {"switch back onto a used map", usual, never, 200, {kind::write, 2, bytes(150, 67)}, true},
    {"switch among three maps", wide, never, 400, {kind::write, 2, bytes(150, 68)}, true},
    {"wear levelling before a write", usual, 4, 14, {kind::write, 2, bytes(150, 69)}, false, true},
    {"wear levelling before a delete", usual, 4, 14, {kind::remove, 2}, false, true},
    {"idle erase of a dirty spare", usual, never, 7, {kind::idle}},
    {"idle erase of the next map", usual, never, 320, {kind::idle}},
    {"idle wear levelling", usual, 4, 14, {kind::idle}, false, true},
};
INSTANTIATE_TEST_SUITE_P(AllChanges, EfsPowerCut, testing::ValuesIn(scenarios));

} // namespace
} // namespace yfs::test
