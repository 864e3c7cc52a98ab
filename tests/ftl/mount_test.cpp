// What a mount makes of the headers and records that it finds. One table for all of it: the image in words, and what
// the tables say afterwards.
#include "tests/ftl/ftl_bench.h"

namespace yfs::test::ftl_mount {

using row = std::array<const char*, 3>; // its name, the image in words, what is expected or the status

void check_mounts(const std::string& common, std::initializer_list<row> rows, std::string (*show)(bench&))
{
    for (const auto& [name, words, expected] : rows) {
        bench b(common + words);
        const auto before = b.image;
        const std::uint32_t status = b.open();
        EXPECT_EQ(status != 0 ? std::to_string(status) : show(b), expected) << name << ": " << words;
        EXPECT_EQ(b.image, before) << name;
    }
}

// Roles: seq, spare with its erase count, the log's end and its last page.
std::string roles(bench& b)
{
    const ftl_context& f = *b.ctx.ftl;
    std::ostringstream out;
    out << "seq " << f.seq << ", spare " << f.spare_eu << "*" << f.eu_table[f.spare_eu].erase_count << ", "
        << b.ends().substr(0, b.ends().find(',')) << (f.missing_commit != 0 ? " uncommitted" : "");
    return out.str();
}

TEST(FtlMount, Headers)
{
    constexpr const char* usual = "seq 5, spare 5*1, 0/0 after 0";
    check_mounts(
        "",
        {{"old magic, CRC over it", "eu2 magic*=0x82416801", usual},
         {"old magic, CRC over the usual one", "eu2 magic=0x82416801", usual},
         {"other magic, CRC over the usual one", "eu2 magic=0xAA050887", usual},
         {"other magic, CRC over it", "eu2 magic*=0xAA050887", "5"},
         {"unknown magic", "eu2 magic=0xAA557886", "5"},
         {"wrong CRC", "eu2 crc^=1", "5"},
         {"no sequence number", "eu2 seq=0", "5"},
         {"no erase count", "eu2 erase=0", "5"},
         {"any commit byte but 0xFF", "eu2 commit=0xFE", usual},
         {"two EUs without a header", "eu0 erased", "5"},
         {"no spare", "eu5 magic=0xAA557887 seq=4", "5"},
         {"two uncommitted", "eu3 commit=0xFF eu4 commit=0xFF", "5"},
         {"the newest names another", "eu4 src=3", "5"},
         {"a newer one names another", "eu0 seq=9", "5"},
         {"a newer one names it", "eu0 seq=9 src=5", "seq 9, spare 5*1, 1/0 after 0"},
         {"numbers below the count name EU 0",
          "eu0 given-up eu1 seq=4 eu2 seq=4 base=15 eu3 seq=4 eu4 seq=4 eu5 magic=0xAA557887 seq=4",
          "seq 5, spare 0*1, 0/0 after 0"},
         {"of equals the later scanned counts", "eu3 seq=5 src=1", usual},
         {"and not the earlier", "eu3 seq=5 src=5 eu4 src=1", "5"},
         {"given up: its count is kept", "eu5 erase=77", "seq 5, spare 5*77, 0/0 after 0"},
         {"erased: the others' average", "eu0 erase=100 eu1 erase=15 eu5 erased", "seq 5, spare 5*23, 0/0 after 0"},
         {"wrong CRC", "eu0 erase=100 eu1 erase=19 eu5 erase=77 crc^=1", "seq 5, spare 5*24, 0/0 after 0"},
         {"right CRC, magic not 0", "eu0 erase=100 eu5 erase=77 magic=0x100", "seq 5, spare 5*20, 0/0 after 0"},
         {"uncommitted, its count torn", "eu0 erase=100 eu5 magic=0xAA557887 commit=0xFF seq=9 src=2 erase=0xFF000000",
          "seq 5, spare 5*20, 0/0 after 0"},
         {"the highest that counts", "eu0 erase=100 eu5 magic=0xAA557887 commit=0xFF seq=9 src=2 erase=0xFEFFFFFF",
          "seq 5, spare 5*4278190079, 0/0 after 0"},
         {"the header written in part", "eu0 erase=100 eu5 magic=0xAA557887 cut=4", "seq 5, spare 5*20, 0/0 after 0"}},
        roles);
    bench old("eu0 erase=100 eu5 erase=77 magic*=0x82416801");
    std::fill_n(old.image.begin() + 5 * 8192, 4, std::uint8_t{0}); // given up under the old magic
    ASSERT_EQ(old.mount(), 0U);
    EXPECT_EQ(old.ctx.ftl->eu_table[5].erase_count, 77U);
}

TEST(FtlMount, WalksTheLog)
{
    const auto show = [](bench& b) {
        std::ostringstream out;
        const ftl_context& f = *b.ctx.ftl;
        const std::string layout = b.layout();
        out << f.log_eu << "/" << f.log_slot << " last " << f.last_page << " dirty " << +f.eu_table[0].dirty << " "
            << +f.eu_table[1].dirty << ": " << layout.substr(layout.rfind('\n') + 1);
        return out.str();
    };
    check_mounts(
        "eu0 ",
        {{"a record alone", "0 1 r9", "0/4 last 1 dirty 118 120: 0@0/0 1@0/1 "},
         {"on behind torn slots", "2 t3 _ 4 t2 _ 4 5", "0/8 last 5 dirty 117 120: 2@0/0 4@0/6 5@0/7 "},
         {"the first torn", "t2", "0/2 last 0 dirty 120 120: "},
         {"the last but one torn", "2 f1=118 t2", "0/120 last 1 dirty 118 120: 1@0/117 2@0/0 "},
         {"the newer EU wins, scanned last", "seq=6 3 4 eu1 seq=7 src=5 5 3",
          "1/2 last 3 dirty 119 118: 3@1/1 4@0/1 5@1/0 "},
         {"scanned first", "seq=8 src=5 3 4 eu1 seq=7 5 3", "0/2 last 4 dirty 118 119: 3@0/0 4@0/1 5@1/0 "},
         {"a newer blank EU isn't the log", "3 4 eu1 seq=7 src=5", "0/2 last 4 dirty 118 120: 3@0/0 4@0/1 "},
         {"of equals the later scanned", "seq=7 src=5 3 eu1 seq=7 src=5 4", "1/1 last 4 dirty 119 119: 3@0/0 4@1/0 "},
         {"uncommitted, a torn record alone", "seq=9 src=5 commit=0xFF t2 eu1 3 4",
          "0/2 last 0 dirty 120 118: 3@1/0 4@1/1 "},
         {"without records the oldest", "seq=5 src=5", "1/0 last 0 dirty 120 120: "},
         {"the spare not excluded", "seq=8 src=5 eu1 seq=7", "5/0 last 0 dirty 120 120: "},
         {"behind the last", "15", "5"},
         {"a record out of range", "1 raw=0x3FFF", "5"},
         {"behind the last, in an older EU", "seq=8 src=5 1 eu1 15", "5"}},
        show);
}

TEST(FtlMount, AllocationMap)
{
    const auto show = [](bench& b) { // EU 3 has chunks 122 to 243
        const ftl_eu_entry& eu = b.ctx.ftl->eu_table[3];
        return std::to_string(eu.dirty) + " " + std::to_string(eu.free) + b.ends().substr(b.ends().find(','));
    };
    check_mounts("",
                 {{"in use", "u122 u243", "120 120, 244..366"},
                  {"dead and begun", "d122 d123=0x7F", "122 120, 244..366"},
                  {"in use and blank", "b130", "5"},
                  {"in use and begun", "b130 d130=0x7F", "5"},
                  {"the newest with room", "u122 d123 d244-365", "121 120, 124..244"},
                  {"newest by number", "eu3 seq=9 src=5 d122", "122 121, 123..244"},
                  {"none with room", "d0-365", "122 0, 0"},
                  {"a group below the data area", "eu3 base=14", "5"},
                  {"a group behind the last chunk", "eu3 base=382", "5"}},
                 show);
}

// Groups of data by the number of EUs; 256 can't be told from none, a lone EU without a header is the spare.
TEST(FtlMount, Sizes)
{
    using size = std::vector<std::uint32_t>;
    for (const size& r : {size{0, 0, 5}, size{1, 0, 0}, size{2, 0, 5}, size{3, 1, 5}, size{11, 9, 5}, size{12, 10, 5},
                          size{24, 21, 5}, size{255, 233, 5}, size{256, 234, 5}}) {
        content image(r[0] * std::size_t{8192}, 0xFF);
        nor_chip chip(image);
        const spi_chip_guard guard(chip);
        afs_context ctx{};
        ctx.flash_size = ctx.fat_size = ctx.volume_size = r[0] * 8192;
        EXPECT_EQ(afs_physical_ftl_get_data_vas(&ctx, 1234), r[1] * 7808) << r[0];
        EXPECT_EQ(afs_physical_ftl_init(&ctx, ctx.flash_size, 0), 22U) << "without tables";
        EXPECT_EQ(afs_physical_ftl_init(&ctx, ctx.flash_size, ftl::flag_allocate), r[2]) << r[0];
        EXPECT_EQ(chip.counters().reads, std::min(r[0] % 256, 2U)) << r[0]; // two without a header end it
        ftl::release_ftl(&ctx);
    }
}

} // namespace yfs::test::ftl_mount
