// What a mount makes of the headers and records that it finds.
#include "tests/ftl/ftl_bench.h"
#include "tests/ftl/short_memory.h"
#include "yfs/medium.h"

#include <functional>
#include <optional>

namespace yfs::test {
namespace {

using edit = std::function<void(volume&)>;

TEST(FtlMount, FreshFormat)
{
    bench b(bare());
    ASSERT_EQ(b.open(), 0U);
    EXPECT_EQ(b.tables(), "seq 5 spare 5\n"
                          "eu 0: erased 1 base 0 seq 1 dirty 120 free 1\n"
                          "eu 1: erased 1 base 0 seq 2 dirty 120 free 1\n"
                          "eu 2: erased 1 base 15 seq 3 dirty 122 free 122\n"
                          "eu 3: erased 1 base 137 seq 4 dirty 122 free 122\n"
                          "eu 4: erased 1 base 259 seq 5 dirty 122 free 122\n"
                          "eu 5: erased 1 base 0\n"
                          "\nlog 0/0 last 0 alloc 244..366 asked 0\nused");
    EXPECT_EQ(b.ftl().eu_count, 6);
    EXPECT_EQ(b.ftl().log_eu_count, 2);
    EXPECT_EQ(b.ftl().full_reclaim_next, 0);
    EXPECT_EQ(b.ftl().alloc_check_flash, 1);
    EXPECT_EQ(b.ctx.ftl->page_map[0].eu, 0xFF);
    EXPECT_EQ(b.story(), "");
    EXPECT_EQ(b.chip.counters().bytes_read, 6U * 20 + 3U * 122);
}

// EUs 0 and 1 are log, 2 to 4 data, 5 is the spare; one thing is different in each row.
TEST(FtlMount, ClassifiesHeaders)
{
    struct row {
        const char* name;
        edit change;
        std::uint32_t status;
        std::uint32_t seq = 5, spare = 5;
    };
    const auto spare_stands = [](volume& v) { v.eu(5).magic(ftl::eu_magic).seq(4).src(9); };
    for (const row& r : {
             row{"as formatted", [](volume&) {}, 0},
             {"old magic, CRC over it", [](volume& v) { v.eu(2).magic(0x82416801, true); }, 0},
             {"old magic, CRC over the usual one", [](volume& v) { v.eu(2).magic(0x82416801); }, 0},
             {"other magic, CRC over the usual one", [](volume& v) { v.eu(2).magic(0xAA050887); }, 0},
             {"other magic, CRC over it", [](volume& v) { v.eu(2).magic(0xAA050887, true); }, 5},
             {"unknown magic", [](volume& v) { v.eu(2).magic(0xAA557886); }, 5},
             {"wrong CRC", [](volume& v) { v.eu(2).wrong_crc(); }, 5},
             {"sequence number 0", [](volume& v) { v.eu(2).seq(0); }, 5},
             {"erase count 0", [](volume& v) { v.eu(2).erase_count(0); }, 5},
             {"any commit byte but 0xFF", [](volume& v) { v.eu(2).commit(0xFE); }, 0},
             {"erased spare", [](volume& v) { v.eu(5).erased(); }, 0},
             {"half a header in the spare", [](volume& v) { v.eu(5).magic(ftl::eu_magic).header_cut(4); }, 0},
             {"two EUs without a header", [](volume& v) { v.eu(5).erased(), v.eu(0).erased(); }, 5},
             {"no spare", spare_stands, 5},
             {"two uncommitted", [](volume& v) { v.eu(3).commit(0xFF), v.eu(4).commit(0xFF); }, 5},
             {"the newest names another", [](volume& v) { v.eu(4).src(3); }, 5},
             {"a newer one names another", [](volume& v) { v.eu(0).seq(9); }, 5},
             {"a newer one names it", [](volume& v) { v.eu(0).seq(9).src(5); }, 0, 9},
             {"of equals the later scanned counts", [](volume& v) { v.eu(3).seq(5).src(1); }, 0},
             {"and not the earlier", [](volume& v) { v.eu(3).seq(5).src(5), v.eu(4).src(1); }, 5},
             {"numbers below the count name EU 0",
              [](volume& v) {
                  for (unsigned i = 1; i < 6; ++i) v.eu(i).seq(4).src(i);
                  v.make_spare(0).make_log(5);
              },
              0, 5, 0},
         }) {
        SCOPED_TRACE(r.name);
        volume v = bare();
        r.change(v);
        bench b(v);
        const auto before = b.image;
        EXPECT_EQ(b.open(), r.status);
        EXPECT_EQ(b.image, before);
        if (r.status != 0) continue;
        EXPECT_EQ(b.ftl().seq, r.seq);
        EXPECT_EQ(b.ftl().spare_eu, r.spare);
    }
}

TEST(FtlMount, EraseCountOfTheSpare)
{
    struct row {
        const char* name;
        edit change;
        std::uint32_t expected;
    };
    for (const row& r : {
             row{"given up", [](volume&) {}, 77},
             {"given up under the old magic", [](volume& v) { v.eu(5).magic(0x82416801, true); }, 77},
             {"erased", [](volume& v) { v.eu(5).erased(); }, 33}, // (1000 / 10 + 68) / 5
             {"given up, wrong CRC", [](volume& v) { v.eu(5).wrong_crc(); }, 33},
             {"right CRC, magic not 0", [](volume& v) { v.eu(5).magic(0x100); }, 33},
         }) {
        volume v = bare();
        const std::uint32_t counts[] = {100, 17, 17, 17, 17, 77};
        for (unsigned i = 0; i < 6; ++i) v.eu(i).erase_count(counts[i]);
        r.change(v);
        bench b(v);
        const auto at = v.eu_at(5);
        if (std::string(r.name).ends_with("old magic")) std::fill_n(b.image.begin() + at, 4, std::uint8_t{0});
        ASSERT_EQ(b.mount(), 0U) << r.name;
        EXPECT_EQ(b.eu(5).erase_count, r.expected) << r.name;
    }
}

// A reclaim cut short: EU 5 has a new header without commit, and the source may be given up.
TEST(FtlMount, SettlesAnInterruptedReclaim)
{
    struct row {
        const char* name;
        edit change;
        std::uint32_t status, seq, spare, log_eu, log_slot, last_page, base_of_5;
        int missing_commit;
    };
    const auto incomplete = [](volume& v, unsigned src, unsigned base) -> eu_plan& {
        return v.eu(5).magic(ftl::eu_magic).seq(6).src(src).base_page(base).commit(0xFF);
    };
    for (const row& r : {
             row{"data, source stands", [&](volume& v) { incomplete(v, 2, 15); }, 0, 5, 5, 0, 1, 3, 0, 0},
             {"data, source given up", [&](volume& v) { incomplete(v, 2, 15), v.eu(2).given_up(); }, 0, 6, 2, 0, 1, 3,
              15, 1},
             {"source half given up",
              [&](volume& v) { incomplete(v, 2, 15), v.eu(2).magic(ftl::eu_magic & 0xFFFF0000); }, 0, 6, 2, 0, 1, 3, 15,
              1},
             {"another one given up", [&](volume& v) { incomplete(v, 2, 15), v.eu(3).given_up(); }, 5, 0, 0, 0, 0, 0, 0,
              0},
             {"log, source stands",
              [&](volume& v) {
                  incomplete(v, 0, 0), v.log(5).pages({4, 5});
              },
              0, 5, 5, 0, 1, 3, 0, 0},
             {"log, given up, blank", [&](volume& v) { incomplete(v, 1, 0), v.eu(1).given_up(); }, 0, 6, 1, 0, 1, 3, 0,
              1},
             {"log, given up, with pages",
              [&](volume& v) {
                  incomplete(v, 1, 0), v.eu(1).given_up(), v.log(5).pages({4, 5});
              },
              0, 6, 1, 5, 2, 5, 0, 1},
             {"log, given up, nothing committed",
              [&](volume& v) { incomplete(v, 1, 0), v.eu(1).given_up(), v.log(5).torn(4); }, 0, 6, 1, 5, 2, 3, 0, 1},
         }) {
        SCOPED_TRACE(r.name);
        volume v = bare();
        v.log(0).page(3);
        r.change(v);
        bench b(v);
        ASSERT_EQ(b.mount(), r.status);
        EXPECT_EQ(b.story(), "");
        if (r.status != 0) continue;
        EXPECT_EQ(b.ftl().seq, r.seq);
        EXPECT_EQ(b.ftl().spare_eu, r.spare);
        EXPECT_EQ(b.ftl().log_eu, r.log_eu);
        EXPECT_EQ(b.ftl().log_slot, r.log_slot);
        EXPECT_EQ(b.ftl().last_page, r.last_page);
        EXPECT_EQ(b.eu(5).base_page, r.base_of_5);
        EXPECT_EQ(b.ftl().missing_commit, r.missing_commit);
        EXPECT_EQ(b.eu(5).free, std::string(r.name) == "log, given up, blank" ? 1 : 0);
    }
}

// The walk of the records. "page@eu/slot" for each page mapped.
TEST(FtlMount, WalksTheLog)
{
    struct row {
        const char* name;
        edit change;
        std::string log; // log_eu/log_slot last dirty of EUs 0 and 1
        std::string map;
    };
    const auto both = [](volume& v, unsigned seq0) { v.eu(0).seq(seq0).src(5), v.eu(1).seq(7).src(5); };
    for (const row& r : {
             row{"slot 5 torn",
                 [](volume& v) {
                     v.log(0).pages({0, 1, 2, 3, 4}).torn(1);
                 },
                 "0/7 last 4 dirty 115 120", "0@0/0 1@0/1 2@0/2 3@0/3 4@0/4 "},
             {"record alone in slot 5",
              [](volume& v) {
                  v.log(0).pages({0, 1, 2, 3, 4}).torn_record(9);
              },
              "0/7 last 4 dirty 115 120", "0@0/0 1@0/1 2@0/2 3@0/3 4@0/4 "},
             {"the log goes on behind a torn slot",
              [](volume& v) {
                  v.log(0).page(2).torn(3).skip().page(4).torn(2).skip().pages({4, 5});
              },
              "0/8 last 5 dirty 117 120", "2@0/0 4@0/6 5@0/7 "},
             {"the first slot torn", [](volume& v) { v.log(0).torn(2); }, "0/2 last 0 dirty 120 120", ""},
             {"the last but one torn", [](volume& v) { v.log(0).page(2).fill(1, 118).torn(2); },
              "0/120 last 1 dirty 118 120", "1@0/117 2@0/0 "},
             {"the last slot torn", [](volume& v) { v.log(0).page(2).fill(1, 119).torn(2); },
              "0/120 last 1 dirty 118 120", "1@0/118 2@0/0 "},
             {"full", [](volume& v) { v.log(0).page(2).fill(1); }, "0/120 last 1 dirty 118 120", "1@0/119 2@0/0 "},
             {"in one EU the later slot wins",
              [](volume& v) {
                  v.log(0).pages({3, 4, 3});
              },
              "0/3 last 3 dirty 118 120", "3@0/2 4@0/1 "},
             {"the newer EU wins, scanned last",
              [&](volume& v) {
                  both(v, 6), v.log(0).pages({3, 4}), v.log(1).pages({5, 3});
              },
              "1/2 last 3 dirty 119 118", "3@1/1 4@0/1 5@1/0 "},
             {"the newer EU wins, scanned first",
              [&](volume& v) {
                  both(v, 8), v.log(0).pages({3, 4}), v.log(1).pages({5, 3});
              },
              "0/2 last 4 dirty 118 119", "3@0/0 4@0/1 5@1/0 "},
             {"the log is the newest with records, not a blank one",
              [&](volume& v) {
                  both(v, 6), v.log(0).pages({3, 4});
              },
              "0/2 last 4 dirty 118 120", "3@0/0 4@0/1 "},
             {"without records the oldest", [](volume& v) { v.eu(0).seq(5).src(5); }, "1/0 last 0 dirty 120 120", ""},
             {"the spare not excluded", [&](volume& v) { both(v, 8); }, "5/0 last 0 dirty 120 120", ""},
             {"the last FAT page", [](volume& v) { v.log(0).page(14); }, "0/1 last 14 dirty 119 120", "14@0/0 "},
             {"behind the last", [](volume& v) { v.log(0).page(15); }, "5", ""},
             {"a record out of range", [](volume& v) { v.log(0).page(1).raw_record(0x3FFF); }, "5", ""},
             {"behind the last, in an older EU", [&](volume& v) { both(v, 8), v.log(0).page(1), v.log(1).page(15); },
              "5", ""},
         }) {
        SCOPED_TRACE(r.name);
        volume v = bare();
        r.change(v);
        bench b(v);
        const std::uint32_t status = b.mount();
        std::ostringstream log;
        if (status != 0) {
            log << status;
        } else {
            log << b.ftl().log_eu << "/" << b.ftl().log_slot << " last " << b.ftl().last_page << " dirty "
                << +b.eu(0).dirty << " " << +b.eu(1).dirty;
            const std::string layout = b.layout();
            EXPECT_EQ(layout.substr(layout.rfind('\n') + 1), r.map);
        }
        EXPECT_EQ(log.str(), r.log);
    }
}

TEST(FtlMount, AllocationMap)
{
    struct row {
        const char* name;
        edit change;
        std::set<unsigned> used;
        std::uint32_t status, dirty, free; // of EU 3, which holds chunks 122 to 243
        std::uint32_t next, end;
    };
    const auto filled = [](volume& v, unsigned from, unsigned to) {
        for (unsigned i = from; i < to; ++i) v.dead(i);
    };
    for (const row& r : {
             row{"in use", [](volume& v) { v.dead(122).dead(243); }, {122, 243}, 0, 120, 120, 244, 366},
             {"dead and begun", [](volume& v) { v.dead(122).dead(123, 0x7F); }, {}, 0, 122, 120, 244, 366},
             {"in use and blank", [](volume&) {}, {130}, 5, 0, 0, 0, 0},
             {"in use and begun", [](volume& v) { v.dead(130, 0x7F); }, {130}, 5, 0, 0, 0, 0},
             {"the newest with room",
              [&](volume& v) { filled(v, 244, 366), filled(v, 122, 125); },
              {122},
              0,
              121,
              119,
              125,
              244},
             {"newest by number, not by place",
              [](volume& v) { v.eu(3).seq(9).src(5), v.dead(122); },
              {},
              0,
              122,
              121,
              123,
              244},
             {"none with room", [&](volume& v) { filled(v, 0, 366); }, {}, 0, 122, 0, none, 0},
             {"a group below the data area", [](volume& v) { v.eu(3).base_page(14); }, {}, 5, 0, 0, 0, 0},
             {"a group behind the last chunk", [](volume& v) { v.eu(3).base_page(15 + 367); }, {}, 5, 0, 0, 0, 0},
         }) {
        SCOPED_TRACE(r.name);
        volume v = bare();
        r.change(v);
        bench b(v);
        ASSERT_EQ(b.open(r.used), r.status);
        if (r.status != 0) continue;
        EXPECT_EQ(b.eu(3).dirty, r.dirty);
        EXPECT_EQ(b.eu(3).free, r.free);
        EXPECT_EQ(b.ftl().alloc_next, r.next);
        EXPECT_EQ(b.ftl().alloc_end, r.end);
        EXPECT_EQ(b.ftl().alloc_flush_asked, 0);
    }
}

TEST(FtlMount, EveryReadAndAllocationCanFail)
{
    volume v = bare();
    v.log(0).pages({3, 4});
    v.log(1).page(5);
    const std::uint64_t reads = 6 + 2 + 3; // headers, two logs with records, records of data EUs
    for (std::uint64_t n = 1; n <= reads + 1; ++n) {
        bench b(v);
        b.chip.fail(chip_call::read, n, chip_fault::before);
        EXPECT_EQ(b.open(), n <= reads ? 5U : 0U) << "read " << n;
    }
    const auto held = blocks_held();
    for (std::uint64_t n = 1; n <= 4; ++n) {
        bench b(v);
        fail_allocation(n);
        EXPECT_EQ(b.open(), n <= 3 ? 12U : 0U) << "allocation " << n;
        EXPECT_EQ(b.ctx.ftl == nullptr, n <= 3);
    }
    fail_allocation(0);
    EXPECT_EQ(blocks_held(), held);

    bench b(v);
    ASSERT_EQ(b.open(), 0U);
    EXPECT_EQ(b.open(), 0U); // a second mount releases the first
    EXPECT_EQ(blocks_held(), held + 3);
    EXPECT_EQ(afs_physical_ftl_init(&b.ctx, b.ctx.flash_size, 0), 0U); // or goes on with its tables
    EXPECT_EQ(blocks_held(), held + 3);
    gpBuffer = nullptr;
    EXPECT_EQ(afs_physical_ftl_init(&b.ctx, b.ctx.flash_size, ftl::flag_attach), 0U);
    EXPECT_EQ(gpBuffer, b.image.data());
}

TEST(FtlMount, Sizes)
{
    struct row {
        std::uint32_t eus, data_bytes, mount_status;
    };
    for (const row& r :
         {row{0, 0, 5}, row{1, 0, 0}, row{2, 0, 5}, row{3, 7808, 5}, row{11, 9 * 7808, 5}, row{12, 10 * 7808, 5},
          row{24, 21 * 7808, 5}, row{255, 233 * 7808, 5}, row{256, 234 * 7808, 5}}) {
        std::vector<std::uint8_t> image(r.eus * std::size_t{8192}, 0xFF);
        nor_chip chip(image);
        const spi_chip_guard guard(chip);
        afs_context ctx{};
        ctx.flash_size = r.eus * 8192;
        EXPECT_EQ(afs_physical_ftl_get_data_vas(&ctx, 1234), r.data_bytes) << r.eus;
        ctx.fat_size = ctx.volume_size = ctx.flash_size;
        EXPECT_EQ(afs_physical_ftl_init(&ctx, ctx.flash_size, ftl::flag_allocate), r.mount_status) << r.eus;
        EXPECT_EQ(ctx.ftl->eu_count, r.eus % 256);
        EXPECT_EQ(chip.counters().reads, std::min(r.eus % 256, 2U)); // the second without a header ends it
        ftl::release_ftl(&ctx);
    }
}

} // namespace
} // namespace yfs::test
