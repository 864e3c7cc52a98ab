// Power goes after every programmed byte of every kind of change, and inside every erase. Each change is run once with
// the chip's journal on; then every prefix of the journal is laid over the image as it was, which is what the cut
// leaves: the chip itself makes its cuts so. After each cut a fresh mount must find every other file intact and the
// touched one wholly old or wholly new, the second reader must have no complaint, and the volume must take a further
// write.
#include "tests/power_cut/rig.h"
#include "yfs/medium.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <set>

namespace yfs::test::power_cut_power_cut {

// A build for finding bugs is slow; it takes every seventh place of the long writes.
#ifdef NDEBUG
constexpr std::uint32_t stride = 1;
#else
constexpr std::uint32_t stride = 7;
#endif

constexpr unsigned touched = 7, absent = 30, churned = 40, emptied = 41, extra = 42;

// What the reclaims in the operation need to happen: at most so many free chunks and log slots when it begins.
constexpr unsigned plenty = 0xFFFF;
struct shortage {
    unsigned chunks = plenty, log_slots = plenty;
};

void prepare(rig& r, const shortage& left)
{
    ASSERT_EQ(r.mount(), afs_status::ok);
    const unsigned sizes[] = {1, 63, 64, 65, 300, 0, 128, 1000, 640, 17};
    for (const unsigned part : {2U, 1U})
        for (unsigned i = 0; i < std::size(sizes); ++i) ASSERT_EQ(r.perform(replace(i, bytes(sizes[i] / part, i))), 0U);
    for (unsigned turn = 0, now = 0; (now = r.look().space.chunks_now) > left.chunks; ++turn)
        ASSERT_EQ(r.perform(replace(churned, bytes(64UL * std::min(10U, now - left.chunks), turn))), 0U);
    while (r.look().space.log_slots_now > left.log_slots) ASSERT_EQ(r.perform(cut_to(emptied, 0)), 0U);
}

const auto is_header = [](const chip_change& change) {
    return change.len == ftl::header_write_bytes && change.addr % ftl::eu_size == 0;
};

// Whether units of data and of log were reclaimed, by the headers written.
using reclaims = std::pair<bool, bool>;

// One operation, run once and then cut short at will.
class cut_run {
public:
    // Runs it on the prepared volume, where it reclaims these.
    cut_run(rig& r, operation op, const reclaims& expected) : op_(std::move(op))
    {
        EXPECT_EQ(r.mount(), afs_status::ok); // it starts from a mount, as every cut run does
        start_ = base_ = r.image;
        old_ = r.files;
        r.chip.keep_journal(true);
        const std::uint32_t status = r.perform(op_);
        EXPECT_TRUE(status == afs_status::ok || status == afs_status::nothing_gained) << status;
        new_ = r.files;
        end_ = r.image;
        journal = r.chip.journal();
        EXPECT_TRUE(clean(r.image) && !journal.empty());
        reclaims seen;
        for (const chip_change& change : journal) {
            if (!is_header(change)) continue;
            const le16 base_page = load<le16>(change.bytes.data() + offsetof(ftl::eu_header_t, base_page));
            (base_page == 0 ? seen.second : seen.first) = true;
        }
        EXPECT_EQ(seen, expected);
    }

    // All cuts of the whole operation, or one in so many; after its last change it must be the new state.
    void cut_everywhere(unsigned one_in = 1)
    {
        one_in_ = one_in;
        for (const chip_change& change : journal) {
            if (change.kind == chip_call::erase) {
                for (const unsigned done : {0U, 1U, 4U, 8U, 17U, 18U, 19U, 140U, 259U, 2048U, 4095U})
                    cut(change, done, 0xFF);
                cut(change, 0, 0x5A);
                cut(change, 5, 0xF0);
            } else if (change.len <= ftl::header_write_bytes) {
                // Headers, records and commits also between bytes, with some of the next one's bits programmed.
                for (std::uint32_t done = 0; done < change.len; ++done)
                    for (const int unfinished : {0xFF, 0x80, 0x0F, 0xAA}) cut(change, done, low8(unfinished));
            } else {
                for (std::uint32_t done = 0; done < change.len; done += stride)
                    cut(change, done, done % 11 == 0 ? 0x55 : 0xFF);
            }
            land(change);
        }
        done_ = true;
        work_ = base_;
        EXPECT_EQ(judge(true), "") << "the whole operation";
        EXPECT_EQ(lost_, 0U);
    }

    // Cuts in the change that comes next.
    void cut(const chip_change& change, std::uint32_t bytes_done, std::uint8_t unfinished)
    {
        if (++places_ % one_in_ != 0) return;
        ++the_tally.cuts;
        work_ = base_;
        torn_byte_ = unfinished != 0xFF;
        replay_cut(work_, change, bytes_done, unfinished);
        // What a cut leaves in the short writes (headers, records, commits) can show only when a unit is next
        // reclaimed.
        const bool reclaim_after = change.kind == chip_call::write && change.len <= ftl::header_write_bytes;
        std::string trouble = judge(reclaim_after);
        if (trouble.empty() && the_tally.cuts % 8 == 0) { // once more, with the medium looked at in place
            ++the_tally.built_in;
            work_ = base_;
            replay_cut(work_, change, bytes_done, unfinished);
            const as_built_in medium;
            trouble = judge(reclaim_after);
        }
        torn_byte_ = false;
        if (trouble.empty()) return;
        ++lost_;
        if (++the_tally.lost > 10) return; // enough texts
        ADD_FAILURE() << op_.text() << ", cut after " << bytes_done << " of " << change.len << " bytes in EU "
                      << change.addr / ftl::eu_size << " + " << change.addr % ftl::eu_size << ", unfinished bits "
                      << unsigned{unfinished} << ": " << trouble;
    }

    // Two neighbours made the other way round: is anything lost where power goes between them or after a later change,
    // or at the end?
    bool loses_swapped(std::size_t first)
    {
        const std::vector<std::uint8_t> before = base_;
        std::vector<chip_change> order(journal.begin() + static_cast<std::ptrdiff_t>(first), journal.end());
        std::swap(order[0], order[1]);
        bool lost = false;
        for (std::size_t i = 0; !lost && i < order.size(); ++i) {
            land(order[i]);
            done_ = i + 1 == order.size();
            work_ = base_;
            lost = !judge(true).empty();
        }
        base_ = before;
        done_ = false;
        return lost;
    }
    // What a change is for, by where it falls.
    const char* purpose(const chip_change& change) const
    {
        const auto header_in = [&](const std::vector<std::uint8_t>& image) {
            return load<ftl::eu_header_t>(image.data() + change.addr / ftl::eu_size * ftl::eu_size);
        };
        const ftl::eu_header_t last = header_in(end_), header = last.magic == ftl::eu_magic ? last : header_in(start_);
        const std::uint32_t at = change.addr % ftl::eu_size;
        if (change.kind == chip_call::erase) return "erase";
        if (at == 0) return change.len == ftl::header_write_bytes ? "header" : "give up";
        if (at == offsetof(ftl::eu_header_t, commit)) return "take over";
        if (header.base_page == 0)
            return at >= ftl::log_frame_at(0) ? "log frame" : change.len == 1 ? "commit" : "record";
        return at >= ftl::data_frame_at(0) ? "data frame" : change.bytes[0] == 0 ? "complete" : "begin";
    }

    // Puts it behind.
    void land(const chip_change& change) { replay_cut(base_, change, change.len); }

    std::vector<chip_change> journal;

private:
    // The volume in work_ as it is and as the next mount finds it. Empty if all is well, else what isn't.
    std::string check(const char* when, const inspect::picture& now, const contents& files)
    {
        // A count that is torn inside a byte can lie below the limit from which on it counts as lost.
        auto result = clean(now, {frames_only, torn_byte_ ? inspect::finding_id::eu_erase_count_odd : frames_only});
        if (result) result = holds(now, files);
        const auto st = dfs_init(work_.data(), static_cast<std::uint32_t>(work_.size()));
        if (result && st != 0) result = testing::AssertionFailure() << "mount: " << st;
        if (result) result = reads_as(files);
        if (result && !file_reads_as(files, op_.file))
            result = testing::AssertionFailure() << "the touched file is there";
        return result ? "" : std::string(when) + ": " + result.message();
    }

    // Takes up the volume in work_ as the next session would, and goes on with it.
    std::string verdict(const inspect::picture& before, bool reclaim_after)
    {
        static const auto more = bytes(200, 99);
        const bool is_new = contents_of(before) == new_;
        if (!is_new && done_) return "the old state";
        ++(is_new ? the_tally.new_state : the_tally.old_state);
        contents now = is_new ? new_ : old_;
        std::string trouble = check("neither old nor new, or not in order", before, now);
        now[extra] = more;
        for (const operation& op : {replace(extra, more), operation{kind::full_reclaim}}) {
            if (!trouble.empty() || (op.what == kind::full_reclaim && !reclaim_after)) break;
            const auto st = op.run();
            trouble = st != 0 ? op.text() + ": " + std::to_string(st)
                              : check(op.text().c_str(), inspect::inspect_image(work_), now);
        }
        return trouble;
    }

    // Empty if all is well.
    std::string judge(bool reclaim_after)
    {
        const inspect::picture before = inspect::inspect_image(work_);
        nor_chip chip(work_);
        chip.violations_fail_test(false); // they are in the answer
        const spi_chip_guard guard(chip);
        std::string trouble = verdict(before, reclaim_after);
        if (!chip.violations().empty()) trouble += "\n  " + chip.violations()[0];
        for (const auto& f : before.findings)
            if (!trouble.empty()) trouble += "\n  after the cut: " + describe(f);
        return trouble;
    }

    operation op_;
    std::vector<std::uint8_t> start_, end_, base_, work_; // before and after all, before the next change, after a cut
    contents old_, new_;
    bool done_ = false, torn_byte_ = false;
    std::uint64_t lost_ = 0, places_ = 0, one_in_ = 1;
};

struct geometry {
    unsigned eus, data_eus, files;
};

struct scenario {
    std::string name;
    geometry shape;
    operation op;
    shortage left;
    reclaims expected;

    friend void PrintTo(const scenario& s, std::ostream* out) { *out << s.name << " on " << s.shape.eus << " units"; }
};

class PowerCut : public testing::TestWithParam<scenario> {};

TEST_P(PowerCut, LeavesTheOldOrTheNewState)
{
    const scenario& s = GetParam();
    rig r(volume(s.shape.eus, s.shape.data_eus, s.shape.files).image());
    prepare(r, s.left);
    if (HasFatalFailure()) return;
    cut_run job(r, s.op, s.expected);
    job.cut_everywhere();
}

std::vector<scenario> scenarios()
{
    constexpr geometry shapes[] = {{4, 1, 65}, {5, 3, 65}, {6, 3, 100}, {8, 3, 100}, {16, 13, 200}};
    const struct {
        std::string name;
        operation op;
        unsigned chunks; // that it takes
    } kinds[] = {
        {"create", replace(absent, bytes(300, 50)), 5},
        {"create empty", cut_to(absent, 0), 0},
        {"replace", replace(touched, bytes(700, 51)), 11},
        {"overwrite in the middle", {kind::write, touched, 200, bytes(130, 52)}, 3},
        {"overwrite one byte", {kind::write, touched, 500, bytes(1, 53)}, 1},
        {"extend", {kind::write, touched, 1000, bytes(400, 54)}, 7},
        {"extend over a gap", {kind::write, touched, 1300, bytes(100, 55)}, 6},
        {"cut on a boundary", cut_to(touched, 128), 0},
        {"cut inside a chunk", cut_to(touched, 100), 1},
        {"cut to nothing", cut_to(touched, 0), 0},
        {"delete", {kind::remove, touched}, 0},
        {"zombie", {kind::mark_zombie, absent}, 0},
    };
    std::vector<scenario> out;
    for (unsigned turn = 0; turn < std::size(kinds); ++turn) {
        const auto& k = kinds[turn];
        const auto add = [&](const char* also, unsigned shape, const shortage& left, const reclaims& expected) {
            out.push_back({k.name + also, shapes[(turn + shape) % std::size(shapes)], k.op, left, expected});
        };
        add("", 0, {}, {});
        for (const unsigned i : {1U, 3U}) add(", log reclaim", i, {plenty, 0}, {false, true});
        if (k.chunks == 0) continue;
        for (const unsigned i : {1U, 3U}) add(", data reclaim", i, {k.chunks / 2, plenty}, {true, false});
        add(", both reclaims", 0, {k.chunks / 2, 0}, {true, true});
    }
    const operation full{kind::full_reclaim}, idle{kind::idle_reclaim};
    for (const geometry& g : shapes) out.push_back({"full reclaim", g, full, {}, {true, false}});
    for (const geometry& g : {shapes[0], shapes[3], shapes[4]}) {
        // With room left in the log the copies go behind what stands there, else into a new unit.
        for (const unsigned room : {0U, 9U, 29U})
            out.push_back({"idle reclaim, log room " + std::to_string(room), g, idle, {plenty, room}, {false, true}});
        if (g.data_eus > 1) out.push_back({"idle reclaim, data short", g, idle, {40, plenty}, {true, false}});
        out.push_back({"dirty erase", g, {kind::dirty_erase}, {}, {}});
    }
    out.push_back({"idle reclaim, wholly dead unit", {8, 3, 100}, idle, {100, plenty}, {true, false}});
    return out;
}

INSTANTIATE_TEST_SUITE_P(AllChanges, PowerCut, testing::ValuesIn(scenarios()));

// The order of two neighbours decides, or either order holds: if one of these could be turned round without a loss, the
// cuts above would prove little.
TEST(PowerCutOrder, TheDecidingPairsLoseTurnedRound)
{
    using pairs = std::set<std::pair<std::string, std::string>>;
    pairs losing;
    for (const scenario& s : scenarios()) {
        if (s.shape.eus > 6) continue;
        rig r(volume(s.shape.eus, s.shape.data_eus, s.shape.files).image());
        prepare(r, s.left);
        cut_run job(r, s.op, s.expected);
        std::map<pairs::value_type, unsigned> tried;
        for (std::size_t i = 0; i + 1 < job.journal.size(); ++i) {
            const pairs::value_type pair(job.purpose(job.journal[i]), job.purpose(job.journal[i + 1]));
            if (++tried[pair] <= 2 && job.loses_swapped(i)) losing.insert(pair);
            job.land(job.journal[i]);
        }
    }
    EXPECT_EQ(losing, (pairs{{"begin", "data frame"},
                             {"commit", "log frame"},
                             {"erase", "data frame"},
                             {"erase", "log frame"},
                             {"give up", "take over"},
                             {"header", "give up"},
                             {"log frame", "commit"}}));
}

// Copies of a log reclaim that go behind what the log holds already, in several runs, and on into a new unit.
TEST(PowerCutInALogReclaim, BehindTheLog)
{
    for (const unsigned room : {26U, 12U}) {
        volume v(16, 13, 2048);
        for (unsigned i = 0; i < 8; ++i) v.file(100 * i, bytes(50 * i + 1, i));
        const unsigned last = v.fat_pages() - 1;
        v.log(0).fill(last, 90);
        for (unsigned page = 0; page < 20; ++page) page % 7 == 3 ? v.log(0).old(last).page(page) : v.log(0).page(page);
        v.log(1).fill(last, ftl::log_slots - room - (last + 1 - 20));
        for (unsigned page = 20; page <= last; ++page) v.log(1).page(page);
        rig r(v.without_auto_log().image());
        r.files = contents_of(r.look());
        ASSERT_EQ(r.files.size(), 8U);
        cut_run job(r, {kind::idle_reclaim}, {false, true});
        job.cut_everywhere();
    }
}

// A sample of the cuts on large volumes that have no room left: a write that reclaims a data and a log unit, a delete.
TEST(PowerCutOnALargeVolume, LeavesTheOldOrTheNewState)
{
    for (const auto& [eus, writes, one_in] :
         {std::tuple(64U, true, 2U), {255U, true, 7U}, {64U, false, 1U}, {255U, false, 1U}}) {
        rig r(volume(eus, eus - 1 - eus / 12, 8 * eus).image());
        ASSERT_EQ(r.mount(), afs_status::ok);
        for (const unsigned file : {3U, touched, 20U}) ASSERT_EQ(r.perform(replace(file, bytes(200 * file))), 0U);
        const ftl_context& f = *dfs_context->ftl;
        const auto room = [&f](bool data) {
            unsigned free = data ? 0 : ftl::log_slots - f.log_slot;
            for (unsigned eu = 0; eu < f.eu_count; ++eu)
                if (eu != f.spare_eu && (f.eu_table[eu].base_page != 0) == data)
                    free += f.eu_table[eu].free * (data ? 1U : ftl::log_slots);
            return free;
        };
        for (unsigned i = 0; room(true) > 5; ++i)
            ASSERT_EQ(r.perform(replace(churned, bytes(64UL * std::min(10U, room(true) - 5), i))), 0U);
        while (room(false) > 2) ASSERT_EQ(r.perform(cut_to(emptied, 0)), 0U);
        const operation op = writes ? replace(touched, bytes(700, 51)) : operation{kind::remove, touched};
        cut_run(r, op, {writes, writes}).cut_everywhere(one_in);
    }
}

// A header's checksum has 8 bits, so whether a part of it passes for a whole depends on the numbers in it.
TEST(PowerCutInAHeader, WithEverySequenceNumber)
{
    rig prepared(volume(6, 3).image());
    prepare(prepared, {40, plenty});
    if (HasFatalFailure()) return;
    for (std::uint32_t delta = 0; delta < 256; delta += stride) {
        rig r(prepared.image);
        r.files = prepared.files;
        count_up(r.image, delta);
        cut_run job(r, {kind::idle_reclaim}, {true, false});
        for (const chip_change& change : job.journal) {
            for (std::uint32_t done = 0; is_header(change) && done < change.len; ++done)
                for (const int unfinished : {0xFF, 0xF0}) job.cut(change, done, low8(unfinished));
            job.land(change);
        }
    }
}

} // namespace yfs::test::power_cut_power_cut
