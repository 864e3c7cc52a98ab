// The second reader against images that are known to be in order or damaged in one known way, and against the mount: an
// image without a fault opens and reads the same, one that doesn't open has a fault.
#include "tests/support/check_volume.h"
#include "tests/support/volume_builder.h"
#include "yfs/dfs.h"

#include <algorithm>
#include <functional>
#include <random>
#include <set>

namespace yfs::test::inspect_inspect {

using namespace inspect;
using enum finding_id;

// 6 units: log, log, three groups of data, the spare. Files in all three groups.
volume base_volume()
{
    volume v(6, 3, 100);
    v.file(3, bytes(64, 3));
    v.file(7, bytes(300, 7)).in_chunks({4, 9, 5, 6, 130});
    v.file(8, bytes(65, 8)).in_chunks({300, 20});
    return v.empty(9).dead(21);
}
const contents base_files{{3, bytes(64, 3)}, {7, bytes(300, 7)}, {8, bytes(65, 8)}, {9, {}}};

const auto mount = [](std::vector<std::uint8_t>& image) { return dfs_init(image.data(), low32(image.size())); };

std::string list(const picture& p)
{
    std::string all;
    for (const finding& f : p.findings) all += "\n  " + describe(f);
    return all;
}

// A reclaim of unit 2 into the spare, done but for what is changed in the new unit.
const auto moved = [](volume& v) -> eu_plan& { return v.swap(2, 5).eu(5).seq(9).src(2).erase_count(2); };

struct damage {
    const char* name;
    std::function<void(volume&)> make;
    std::set<finding_id> found; // all findings but the dead page of the base volume
    std::uint32_t mounts = 0;
    bool whole = true; // all files read as before
};

const damage damages[] = {
    {"as it should be", [](volume&) {}, {}},
    {"spare erased", [](volume& v) { v.eu(5).erased(); }, {eu_spare_untrusted}},
    {"data unit with seq 0", [](volume& v) { v.eu(3).seq(0); }, {eu_two_invalid, group_no_owner}, 5},
    {"no spare", [](volume& v) { v.eu(5).magic(ftl::eu_magic); }, {eu_no_spare}, 5},
    {"uncommitted", [](volume& v) { v.make_data(5, 0).src(2).seq(9).commit(0xFF); }, {eu_incomplete_discarded}},
    {"commit byte missing", [](volume& v) { moved(v).commit(ftl::not_committed); }, {eu_commit_missing}},
    {"of another source", [](volume& v) { moved(v).commit(0xFF).src(3); }, {eu_incomplete_source}, 5},
    {"two uncommitted units",
     [](volume& v) { moved(v).commit(0xFF), v.eu(1).commit(0xFF).src(2); },
     {eu_commit_missing, eu_two_incomplete, group_no_owner},
     5},
    {"commit byte in part", [](volume& v) { v.eu(3).commit(0x3F); }, {eu_commit_odd}},
    {"another spare named", [](volume& v) { moved(v).src(4); }, {eu_spare_not_named}, 5},
    {"old magic, its own checksum", [](volume& v) { v.eu(3).magic(ftl::eu_magic_old, true); }, {eu_magic_old}},
    {"other magic", [](volume& v) { v.eu(3).magic(ftl::eu_magic_alt); }, {eu_magic_old}},
    {"one seq twice", [](volume& v) { v.eu(1).seq(1); }, {eu_seq_twice}},
    {"erase count", [](volume& v) { v.eu(4).erase_count(500); }, {eu_erase_count_odd, eu_erase_spread}},

    {"between groups", [](volume& v) { v.eu(3).base_page(138); }, {group_off_grid, group_no_owner}, 5},
    {"group behind the volume", [](volume& v) { v.make_data(3, 4); }, {group_outside, group_no_owner}, 5},
    {"two owners", [](volume& v) { v.make_data(3, 0); }, {group_two_owners, group_no_owner}, 5},
    {"no unit for chunks",
     [](volume& v) { (v = volume(6, 0)).header().volume_size = 0xC000; },
     {group_unowned},
     0,
     false},

    {"torn slot", [](volume& v) { v.log(0).page(0).torn(1).skip(); }, {log_slot_torn}},
    {"torn record", [](volume& v) { v.log(0).page(0).torn_record(1).skip(); }, {log_slot_torn}},
    {"newer copy in a newer unit before it",
     [](volume& v) { v.log(0).old(0).old(1).seq(1), v.log(1).page(0).page(1), v.swap(0, 1); },
     {}},
    {"record outside the table", [](volume& v) { v.log(0).page(0).raw_record(0x0123); }, {log_record_range}, 5},
    {"record behind the end", [](volume& v) { v.poke(ftl::log_record_at(100), 0); }, {log_behind_end}},
    {"frame without a record", [](volume& v) { v.poke(ftl::log_frame_at(60) + 9, 0); }, {frame_unrecorded}},
    {"the same in an older unit",
     [](volume& v) { v.log(0).old(0), v.poke(ftl::log_frame_at(60), 0).log(1).page(0); },
     {frame_unrecorded_idle}},
    {"written behind the slots", [](volume& v) { v.poke(v.eu_at(1) + 8180, 0); }, {log_tail_written}},
    {"page of a chain damaged", [](volume& v) { v.log(0).wrong_crc(volume::page_of(104)); }, {fat_page_crc}, 5},

    {"no header", [](volume& v) { v.without_header(); }, {volume_header_missing}, 5},
    {"64 files", [](volume& v) { v.header().files = 64; }, {volume_header_files}, 5},
    {"larger than the flash", [](volume& v) { v.header().volume_size = 0xC001; }, {volume_header_size}, 5},
    {"smaller than its table", [](volume& v) { v.header().volume_size = 255; }, {volume_header_size}, 5},
    {"bits that are 0 set", [](volume& v) { v.header().zero = 1; }, {volume_header_bytes}},
    {"byte count in a head", [](volume& v) { v.fat(11, 30); }, {fat_head_range}, 5},
    {"head behind the chunks", [](volume& v) { v.fat(11, low16(100 + v.chunks())); }, {fat_head_range}, 5},
    {"zombie", [](volume& v) { v.zombie(11); }, {file_zombie}},
    {"chain out of the volume", [](volume& v) { v.fat(109, 0xFFFF); }, {fat_entry_range}, 5},
    {"chain onto itself", [](volume& v) { v.fat(105, 109); }, {chain_loop}, 5},
    {"chain into another", [](volume& v) { v.fat(120, 105); }, {chain_cross}, 0, false},
    {"chain of all chunks", [](volume& v) { (v = volume(4, 1, 65)).file(3, bytes(7808)); }, {chain_too_long}, 5},
    {"empty last chunk", [](volume& v) { v.fat(120, 0); }, {chain_entry_zero}, 0, false},
    {"too large", [](volume& v) { (v = volume(40, 35)).file(3, bytes(0x40001)); }, {file_too_large}, 0, false},
    {"free entry", [](volume& v) { v.fat(160, 0xFFFF); }, {fat_free_entry}},
    {"page begun and in use", [](volume& v) { v.poke(v.eu_at(2) + ftl::data_record_at(0), 0x7F); }, {chunk_record}, 5},
    {"page damaged", [](volume& v) { v.file(3, bytes(64, 3)).wrong_crc(0); }, {chunk_crc}, 0, false},
    {"dead", [](volume& v) { v.dead(50, 0x7F).dead(52, 0x5A); }, {data_slots_begun, data_record_odd}},
    {"free page programmed", [](volume& v) { v.poke(v.eu_at(2) + 7000, 0); }, {frame_unrecorded}},
};

TEST(Inspect, NamesWhatIsWrong)
{
    for (const damage& d : damages) {
        volume v = base_volume();
        d.make(v);
        std::vector<std::uint8_t> image = v.image();
        const picture p = inspect_image(image);
        SCOPED_TRACE(d.name + list(p));
        std::set<finding_id> found;
        for (const finding& f : p.findings)
            if (f.id != data_slots_dead) found.insert(f.id);
        EXPECT_EQ(found, d.found);
        EXPECT_EQ(mount(image), d.mounts);
        EXPECT_TRUE(d.mounts == 0 || p.worst() == severity::fault);
        EXPECT_TRUE(d.mounts != 0 || !d.whole || (holds(p, base_files) && reads_as(base_files)));
    }
}

TEST(Inspect, SaysWhereAndHowMuch)
{
    volume v = base_volume().dead(30, ftl::data_rec_begun);
    v.file(3, bytes(64, 3)).in_chunks({0}).wrong_crc(0);
    v.log(0).old(0).torn(1).skip();
    const auto image = v.image();
    const picture p = inspect_image(image);
    // Pages 0 and 3 to 6 hold the header, heads and entries; 366 chunks, of which 8 in use and 2 dead.
    EXPECT_EQ(std::tuple(p.spare, p.log_eu, p.highest_seq, p.chunks, p.groups), std::tuple(5U, 0U, 5U, 366U, 3U));
    const erase_unit &log = p.eus[0], &data = p.eus[2];
    EXPECT_EQ(std::tuple(log.live + 3, log.stale, log.torn), std::tuple(log.log_end, 1U, 2U));
    EXPECT_EQ(std::tuple(data.live, data.stale, data.torn, data.free), std::tuple(6U, 1U, 1U, 114U));
    EXPECT_EQ(std::tuple(p.space.chunks_now, p.space.chunks_after_reclaim), std::tuple(366U - 10, 366U - 8));
    EXPECT_EQ(std::tuple(p.space.log_slots_now, p.space.log_slots_after_reclaim),
              std::tuple(240 - log.log_end, 240 - log.live));
    EXPECT_EQ(std::tuple(p.file[7].size, p.chunks_of(7)[4], p.entry(7), p.chunk_file[130], p.frame_address(230)),
              std::tuple(300U, 230, 104, 7U, v.eu_at(3) + ftl::data_frame_at(8)));
    EXPECT_TRUE(p.file[3].damaged && !p.file[7].damaged && !read_file(p, 0) && !read_file(p, 100));
    EXPECT_NE(list(p).find("\n  chunk-crc: file 3, chunk 100, page 15, EU 2, slot 0, at 0x408C: a chunk in use fails"),
              std::string::npos);
    for (const finding_kind& k : finding_kinds()) EXPECT_TRUE(kind_named(k.name) == &k && !k.meaning.empty()) << k.name;
    EXPECT_EQ(kind_named("chunk-"), nullptr);
}

TEST(Inspect, TakesImagesOfAnySize)
{
    auto image = base_volume().image();
    image.resize(image.size() + 100, 0xFF);
    EXPECT_TRUE(clean(image));
    image.back() = 0;
    EXPECT_TRUE(inspect_image(image).has(image_tail) && mount(image) == 0);
    for (const std::size_t other : {0UL, 1UL, 8191UL, 8192UL, 0x7FFFUL, 0x200000UL, 0x200001UL, 0x300000UL}) {
        image.resize(other, 0xFF);
        EXPECT_TRUE(inspect_image(image).has(image_size)) << other;
    }
}

// Whatever happens to the bytes: no fault means that the volume opens and reads the same.
TEST(Inspect, AgreesWithTheMountOnDamagedImages)
{
#ifdef NDEBUG
    constexpr unsigned turns = 20000;
#else
    constexpr unsigned turns = 2000;
#endif
    std::mt19937 random(4711);
    const auto below = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    volume v = base_volume();
    v.log(0).old(0).old(1).torn(2).skip();
    const auto whole = v.image();
    unsigned without_fault = 0, refused = 0;
    for (unsigned turn = 0; turn < turns; ++turn) {
        auto image = whole;
        for (std::size_t n = 1 + below(3); n > 0; --n) {
            // Mostly where the structure lies: headers and records, the frames of the log, the first data pages.
            const std::size_t reach[] = {18, 60, 1200, ftl::eu_size}, eu = below(6) * ftl::eu_size;
            const std::size_t at = eu + below(reach[below(4)]), way = below(4);
            const int values[] = {static_cast<int>(random()), 0xFF, image[at] ^ (1 << below(8))};
            if (way < 3) image[at] = low8(static_cast<unsigned>(values[way]));
            if (way == 3) std::copy_n(whole.data() + below(6) * ftl::eu_size, 18, image.data() + eu);
        }
        const auto before = image;
        const picture p = inspect_image(before);
        const bool opens = mount(image) == 0;
        refused += opens ? 0 : 1;
        if (p.worst() == severity::fault) continue;
        ++without_fault;
        ASSERT_TRUE(opens) << "turn " << turn << list(p);
        ASSERT_TRUE(reads_as(contents_of(p))) << "turn " << turn << list(p);
    }
    EXPECT_GT(without_fault, turns / 10);
    EXPECT_GT(refused, turns / 10);
}

} // namespace yfs::test::inspect_inspect
