// The second reader against images that are known to be in order or damaged in one known way, and against the mount: an
// image without a fault opens and reads the same, one that doesn't open has a fault.
#include "inspect/picture.h"
#include "tests/support/check_volume.h"
#include "tests/support/samples.h"
#include "tests/support/volume_builder.h"
#include "yfs/dfs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <set>

namespace yfs::test {
namespace {

using namespace inspect;
using id = finding_id;

// 6 units: log, log, three groups of data, the spare. Files in all three groups.
volume base_volume()
{
    volume v(6, 3, 100);
    v.file(3, bytes(64, 3));
    v.file(7, bytes(300, 7)).in_chunks({4, 9, 5, 6, 130});
    v.file(8, bytes(65, 8)).in_chunks({300, 20});
    v.empty(9);
    v.dead(21);
    return v;
}
const contents base_files{{3, bytes(64, 3)}, {7, bytes(300, 7)}, {8, bytes(65, 8)}, {9, {}}};

std::uint32_t mount(std::vector<std::uint8_t>& image)
{
    return dfs_init(image.data(), static_cast<std::uint32_t>(image.size()));
}

bool mount_reads(const contents& files)
{
    for (const auto& [number, content] : files) {
        std::vector<std::uint8_t> got(content.size() + 1);
        auto len = static_cast<std::uint32_t>(got.size());
        if (dfs_read(number, 0, &len, got.data()) != 0 || len != content.size()) return false;
        got.resize(len);
        if (got != content) return false;
    }
    return true;
}

struct damage {
    const char* name;
    std::function<void(volume&)> make;
    std::set<id> found; // all findings but the dead page of the base volume
    std::uint32_t mounts;
    bool whole = true; // all files read as before

    friend void PrintTo(const damage& d, std::ostream* out) { *out << d.name; }
};

class Inspect : public testing::TestWithParam<damage> {};

TEST_P(Inspect, NamesWhatIsWrong)
{
    const damage& d = GetParam();
    volume v = base_volume();
    d.make(v);
    std::vector<std::uint8_t> image = v.image();
    const picture p = inspect_image(image);
    std::set<id> found;
    std::string all;
    for (const finding& f : p.findings) {
        if (f.id != id::data_slots_dead) found.insert(f.id);
        all += "\n  " + describe(f);
    }
    EXPECT_EQ(found, d.found) << all;
    EXPECT_EQ(mount(image), d.mounts) << all;
    if (d.mounts != 0) {
        EXPECT_EQ(p.worst(), severity::fault);
    }
    if (d.mounts == 0 && d.whole) {
        EXPECT_TRUE(holds(p, base_files)) << all;
        EXPECT_TRUE(mount_reads(base_files));
    }
}

unsigned chunk(volume& v, unsigned index)
{
    return v.chunk_id(index);
}
// What a reclaim of unit 2 into the spare leaves, but for the last steps that `unit` undoes.
eu_plan& moved(volume& v)
{
    v.swap(2, 5);
    return v.eu(5).seq(9).src(2).erase_count(2);
}

INSTANTIATE_TEST_SUITE_P(
    Headers, Inspect,
    testing::Values(
        damage{"as it should be", [](volume&) {}, {}, 0}, damage{"after a reclaim", [](volume& v) { moved(v); }, {}, 0},
        damage{"spare erased", [](volume& v) { v.eu(5).erased(); }, {id::eu_spare_untrusted}, 0},
        damage{"spare with a part of a header",
               [](volume& v) { v.eu(5).magic(ftl::eu_magic).header_cut(7); },
               {id::eu_spare_untrusted},
               0},
        damage{"a log unit without a header",
               [](volume& v) { v.eu(1).wrong_crc(); },
               {id::eu_two_invalid, id::eu_spare_not_named, id::eu_spare_untrusted},
               5},
        damage{"a data unit with seq 0",
               [](volume& v) { v.eu(3).seq(0); },
               {id::eu_two_invalid, id::eu_spare_not_named, id::eu_spare_untrusted, id::group_no_owner},
               5},
        damage{"no spare", [](volume& v) { v.make_log(5); }, {id::eu_no_spare}, 5},
        damage{"reclaim cut before the source was given up",
               [](volume& v) {
                   v.make_data(5, 0);
                   v.eu(5).seq(9).src(2).commit(ftl::not_committed);
               },
               {id::eu_incomplete_discarded},
               0},
        damage{"reclaim cut before the commit byte",
               [](volume& v) { moved(v).commit(ftl::not_committed); },
               {id::eu_commit_missing},
               0},
        damage{"uncommitted unit of another source",
               [](volume& v) { moved(v).commit(ftl::not_committed).src(3); },
               {id::eu_incomplete_source},
               5},
        damage{"two uncommitted units",
               [](volume& v) {
                   moved(v).commit(ftl::not_committed);
                   v.eu(1).commit(ftl::not_committed).src(2);
               },
               {id::eu_commit_missing, id::eu_two_incomplete, id::group_no_owner},
               5},
        damage{"commit byte in part", [](volume& v) { v.eu(3).commit(0x3F); }, {id::eu_commit_odd}, 0},
        damage{"newest unit names another spare", [](volume& v) { moved(v).src(4); }, {id::eu_spare_not_named}, 5},
        damage{"old magic, its own checksum",
               [](volume& v) { v.eu(3).magic(ftl::eu_magic_old, true); },
               {id::eu_magic_old},
               0},
        damage{"old magic, usual checksum", [](volume& v) { v.eu(3).magic(ftl::eu_magic_old); }, {id::eu_magic_old}, 0},
        damage{"other magic", [](volume& v) { v.eu(3).magic(ftl::eu_magic_alt); }, {id::eu_magic_old}, 0},
        damage{"other magic, its own checksum",
               [](volume& v) { v.eu(1).magic(ftl::eu_magic_alt, true); },
               {id::eu_two_invalid, id::eu_spare_not_named, id::eu_spare_untrusted},
               5},
        damage{"one seq twice", [](volume& v) { v.eu(1).seq(1); }, {id::eu_seq_twice}, 0},
        damage{"erase count",
               [](volume& v) { v.eu(4).erase_count(500); },
               {id::eu_erase_count_odd, id::eu_erase_spread},
               0},
        damage{"erase counts apart",
               [](volume& v) {
                   moved(v).seq(900);
                   v.eu(4).erase_count(200);
               },
               {id::eu_erase_spread},
               0}));

INSTANTIATE_TEST_SUITE_P(
    Groups, Inspect,
    testing::Values(
        damage{"first page between groups",
               [](volume& v) { v.eu(3).base_page(v.fat_pages() + ftl::data_slots + 1); },
               {id::group_off_grid, id::group_no_owner},
               5},
        damage{"first page in the chain table",
               [](volume& v) { v.eu(3).base_page(2); },
               {id::group_outside, id::group_no_owner},
               5},
        damage{"first page behind the volume",
               [](volume& v) { v.make_data(3, 4); },
               {id::group_outside, id::group_no_owner},
               5},
        damage{"two owners", [](volume& v) { v.make_data(3, 0); }, {id::group_two_owners, id::group_no_owner}, 5},
        damage{"more chunks than units hold",
               [](volume& v) {
                   v = volume(6, 0, 100);
                   v.header().volume_size = 0xC000;
                   for (const auto& [number, content] : base_files)
                       if (content.empty()) v.empty(number);
               },
               {id::group_unowned},
               0,
               false}));

INSTANTIATE_TEST_SUITE_P(
    Log, Inspect,
    testing::Values(
        damage{"torn slot", [](volume& v) { v.log(0).page(0).torn(1).skip(); }, {id::log_slot_torn}, 0},
        damage{"torn record", [](volume& v) { v.log(0).page(0).torn_record(1).skip(); }, {id::log_slot_torn}, 0},
        damage{"newer copy in a later slot", [](volume& v) { v.log(0).old(0).old(1).page(1).page(0); }, {}, 0},
        damage{"newer copy in a newer unit",
               [](volume& v) {
                   v.log(0).fill(1), v.log(1).pages({0, 1});
               },
               {},
               0},
        damage{"newer copy in a newer unit before it",
               [](volume& v) {
                   v.log(0).old(0).old(1);
                   v.eu(0).seq(1);
                   v.log(1).pages({0, 1});
                   v.swap(0, 1);
               },
               {},
               0},
        damage{"record of a page outside the table",
               [](volume& v) { v.log(0).page(0).raw_record(0x0123); },
               {id::log_record_range},
               5},
        damage{"record of a page outside any table",
               [](volume& v) { v.log(0).raw_record(0x3FFF).page(0); },
               {id::log_record_range},
               5},
        damage{"record behind the end",
               [](volume& v) { v.poke(v.eu_at(0) + ftl::log_record_at(100), 0); },
               {id::log_behind_end},
               0},
        damage{"frame without a record",
               [](volume& v) { v.poke(v.eu_at(0) + ftl::log_frame_at(60) + 9, 0x7F); },
               {id::frame_unrecorded},
               0},
        damage{"frame without a record in a blank unit",
               [](volume& v) { v.poke(v.eu_at(1) + ftl::log_frame_at(0), 0x7F); },
               {id::frame_unrecorded},
               0},
        damage{"frame without a record in an older unit",
               [](volume& v) {
                   v.log(0).old(0);
                   v.log(1).page(0);
                   v.poke(v.eu_at(0) + ftl::log_frame_at(60), 0);
               },
               {id::frame_unrecorded_idle},
               0},
        damage{"written behind the slots", [](volume& v) { v.poke(v.eu_at(1) + 8180, 0); }, {id::log_tail_written}, 0},
        damage{"page of a chain damaged",
               [](volume& v) { v.log(0).wrong_crc(volume::page_of(v.chunk_id(4))); },
               {id::fat_page_crc},
               5}));

INSTANTIATE_TEST_SUITE_P(
    Volume, Inspect,
    testing::Values(
        damage{"no header", [](volume& v) { v.without_header(); }, {id::volume_header_missing}, 5},
        damage{"no pages at all", [](volume& v) { v.without_auto_log(); }, {id::volume_header_missing}, 5},
        damage{"64 files", [](volume& v) { v.header().files = 64; }, {id::volume_header_files}, 5},
        damage{"larger than the flash",
               [](volume& v) { v.header().volume_size = 6 * ftl::eu_size + 1; },
               {id::volume_header_size},
               5},
        damage{"smaller than its table", [](volume& v) { v.header().volume_size = 255; }, {id::volume_header_size}, 5},
        damage{"bits that are 0 set", [](volume& v) { v.header().zero = 1; }, {id::volume_header_bytes}, 0},
        damage{"byte count in a head", [](volume& v) { v.fat(11, 30); }, {id::fat_head_range}, 5},
        damage{"head between", [](volume& v) { v.fat(11, 99); }, {id::fat_head_range}, 5},
        damage{"head behind the chunks",
               [](volume& v) { v.fat(11, low16(chunk(v, v.chunks()))); },
               {id::fat_head_range},
               5},
        damage{"zombie", [](volume& v) { v.zombie(11); }, {id::file_zombie}, 0},
        damage{"chain out of the volume", [](volume& v) { v.fat(chunk(v, 9), 0xFFFF); }, {id::fat_entry_range}, 5},
        damage{"chain onto itself", [](volume& v) { v.fat(chunk(v, 5), low16(chunk(v, 9))); }, {id::chain_loop}, 5},
        damage{"chain into another",
               [](volume& v) { v.fat(chunk(v, 20), low16(chunk(v, 5))); },
               {id::chain_cross},
               0,
               false},
        damage{"chain of all chunks",
               [](volume& v) {
                   v = volume(4, 1, 65);
                   v.file(3, bytes(122 * 64));
               },
               {id::chain_too_long},
               5},
        damage{"no bytes in the last chunk",
               [](volume& v) { v.file(8, bytes(64, 8)).in_chunks({300}).last_entry(0); },
               {id::chain_entry_zero},
               0,
               false},
        damage{"file above the limit",
               [](volume& v) {
                   v = volume(40, 35, 100);
                   v.file(3, bytes(0x40001));
               },
               {id::file_too_large},
               0,
               false},
        damage{"free entry", [](volume& v) { v.fat(chunk(v, 60), 0xFFFF); }, {id::fat_free_entry}, 0},
        damage{"page begun and in use",
               [](volume& v) { v.file(3, bytes(64, 3)).record(0, ftl::data_rec_begun); },
               {id::chunk_record},
               5},
        damage{"page blank and in use",
               [](volume& v) { v.file(3, bytes(64, 3)).record(0, ftl::data_rec_free); },
               {id::chunk_record},
               5},
        damage{"page damaged", [](volume& v) { v.file(3, bytes(64, 3)).wrong_crc(0); }, {id::chunk_crc}, 0, false},
        damage{"pages outside files",
               [](volume& v) { v.dead(50, ftl::data_rec_begun).dead(51).dead(52, 0x5A); },
               {id::data_slots_begun, id::data_record_odd},
               0},
        damage{"free page programmed",
               [](volume& v) { v.poke(v.eu_at(2) + ftl::data_frame_at(100), 0); },
               {id::frame_unrecorded},
               0}));

TEST(InspectPicture, CountsSlotsAndSpace)
{
    volume v = base_volume();
    v.dead(30, ftl::data_rec_begun);
    v.log(0).old(0).torn(1).skip();
    const auto image = v.image();
    const picture p = inspect_image(image);
    // Pages 0 and 3 to 6 hold the header, heads and entries; 366 chunks, of which 8 in use and 2 dead.
    EXPECT_EQ(std::tuple(p.spare, p.log_eu, p.highest_seq, p.chunks, p.groups), std::tuple(5U, 0U, 5U, 366U, 3U));
    const erase_unit &log = p.eus[0], &data = p.eus[2];
    EXPECT_EQ(std::tuple(log.live + 3, log.stale, log.torn), std::tuple(log.log_end, 1U, 2U));
    EXPECT_EQ(std::tuple(data.live, data.stale, data.torn, data.free), std::tuple(6U, 1U, 1U, 114U));
    EXPECT_EQ(p.space.chunks_now, 366U - 10);
    EXPECT_EQ(p.space.chunks_after_reclaim, 366U - 8);
    EXPECT_EQ(p.space.log_slots_now, 240 - log.log_end);
    EXPECT_EQ(p.space.log_slots_after_reclaim, 240 - log.live);

    EXPECT_EQ(p.file[7].size, 300U);
    EXPECT_EQ(p.chunks_of(7)[4], v.chunk_id(130));
    EXPECT_EQ(p.frame_address(v.chunk_id(130)), v.eu_at(3) + ftl::data_frame_at(8));
    EXPECT_EQ(p.chunk_file[130], 7U);
    EXPECT_EQ(p.entry(7), v.chunk_id(4));
    EXPECT_FALSE(read_file(p, 0).has_value());
    EXPECT_FALSE(read_file(p, 100).has_value());
}

TEST(InspectPicture, SaysWhereAndWhat)
{
    volume v = base_volume();
    v.file(3, bytes(64, 3)).in_chunks({0}).wrong_crc(0);
    const auto image = v.image();
    const picture p = inspect_image(image);
    EXPECT_TRUE(p.file[3].damaged);
    EXPECT_FALSE(p.file[7].damaged);
    const auto f = std::find_if(p.findings.begin(), p.findings.end(), [](auto& x) { return x.id == id::chunk_crc; });
    ASSERT_NE(f, p.findings.end());
    EXPECT_EQ(f->address, v.eu_at(2) + 140);
    const auto text = describe(*f);
    EXPECT_EQ(text.substr(0, text.find(" (")),
              "chunk-crc: file 3, chunk 100, page 15, EU 2, slot 0, at 0x408C: a chunk in "
              "use fails its checksum");
    std::set<std::string_view> names;
    for (const finding_kind& k : finding_kinds()) {
        EXPECT_TRUE(names.insert(k.name).second) << k.name;
        EXPECT_EQ(kind_named(k.name), &k);
        EXPECT_EQ(k.name.find_first_not_of("abcdefghijklmnopqrstuvwxyz-"), std::string_view::npos) << k.name;
        EXPECT_FALSE(k.meaning.empty() || k.explanation.empty()) << k.name;
    }
    EXPECT_EQ(kind_named("chunk-"), nullptr);
}

TEST(InspectPicture, TakesImagesOfAnySize)
{
    const auto whole = base_volume().image();
    for (const std::size_t size : {0UL, 1UL, 8191UL, 8192UL, 0x7FFFUL, 0x200000UL, 0x200001UL, 0x300000UL}) {
        std::vector<std::uint8_t> image = whole;
        image.resize(size, 0xFF);
        EXPECT_TRUE(inspect_image(image).has(id::image_size)) << size;
    }
    std::vector<std::uint8_t> image = whole;
    image.resize(image.size() + 100, 0xFF);
    EXPECT_TRUE(clean(image));
    image.back() = 0;
    EXPECT_TRUE(inspect_image(image).has(id::image_tail));
    EXPECT_EQ(mount(image), 0U);
    for (const int fill : {0x00, 0x7F, 0xFF})
        EXPECT_EQ(inspect_image(std::vector<std::uint8_t>(0x20000, low8(fill))).worst(), severity::fault);
}

// Whatever happens to the bytes: no fault means that the volume opens and reads the same.
TEST(InspectPicture, AgreesWithTheMountOnDamagedImages)
{
#ifdef NDEBUG
    constexpr unsigned turns = 20000;
#else
    constexpr unsigned turns = 2000;
#endif
    constexpr unsigned seed = 4711;
    std::mt19937 random(seed);
    const auto below = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    volume v = base_volume();
    v.log(0).old(0).old(1).torn(2).skip();
    const auto whole = v.image();
    unsigned without_fault = 0, refused = 0;
    for (unsigned turn = 0; turn < turns; ++turn) {
        auto image = whole;
        for (std::size_t n = 1 + below(3); n > 0; --n) {
            // Mostly where the structure lies: headers and records, the frames of the log, the first data pages.
            const std::size_t eu = below(6) * ftl::eu_size;
            const std::size_t reach[] = {18, 60, 1200, ftl::eu_size};
            const std::size_t at = eu + below(reach[below(4)]);
            switch (below(4)) {
            case 0:
                image[at] = low8(random());
                break;
            case 1:
                image[at] = 0xFF;
                break;
            case 2:
                image[at] ^= low8(1U << below(8));
                break;
            default:
                std::copy_n(whole.begin() + static_cast<std::ptrdiff_t>(below(6) * ftl::eu_size), 18,
                            image.begin() + static_cast<std::ptrdiff_t>(eu));
            }
        }
        const auto before = image;
        const picture p = inspect_image(before);
        const bool opens = mount(image) == 0;
        refused += opens ? 0 : 1;
        if (p.worst() == severity::fault) continue;
        ++without_fault;
        std::string all;
        for (const finding& f : p.findings) all += "\n  " + describe(f);
        ASSERT_TRUE(opens) << "seed " << seed << ", turn " << turn << all;
        ASSERT_TRUE(mount_reads(contents_of(p))) << "seed " << seed << ", turn " << turn << all;
    }
    EXPECT_GT(without_fault, turns / 10);
    EXPECT_GT(refused, turns / 10);
}

TEST(InspectPicture, FindsTheSampleSetsInOrder)
{
    unsigned seen = 0;
    for (const char* name : {"large", "no-zonc", "not-deployed", "small-deployed", "with-efs"}) {
        const auto folder = sample_set(name);
        if (folder.empty()) continue;
        auto image = read_file(folder / "yfs.img");
        const picture p = inspect_image(image);
        EXPECT_TRUE(clean(p)) << name;
        const contents files = contents_of(p);
        EXPECT_FALSE(files.empty());
        std::vector<std::uint8_t> copy(image.begin(), image.end());
        ASSERT_EQ(mount(copy), 0U);
        EXPECT_TRUE(mount_reads(files));
        ++seen;
    }
    if (seen == 0) GTEST_SKIP() << "no sample sets here";
}

} // namespace
} // namespace yfs::test
