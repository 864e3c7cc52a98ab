// The table from group to EU answers what a scan of the headers' table would, and a chip of a program's own is called
// for every access.
#include "frame/chip.h"
#include "ftl/group_table.h"
#include "tests/ftl/ftl_bench.h"

#include <random>

namespace yfs::test {
namespace {

std::uint32_t scan(const afs_context& ctx, std::uint32_t group)
{
    for (std::uint32_t eu = 0; eu < ctx.ftl->eu_count; ++eu) {
        if (ctx.ftl->eu_table[eu].base_page == low16(ctx.fat_size / 64 + 122 * group)) return eu;
    }
    return none;
}

TEST(FtlGroupTable, AnswersAsAScan)
{
    std::mt19937 random(5);
    const auto below = [&random](std::size_t bound) { return static_cast<std::uint32_t>(random() % bound); };
    for (unsigned round = 0; round < 300; ++round) {
        std::vector<ftl_eu_entry> units(2 + below(40));
        ftl_context ftl{};
        afs_context ctx{};
        ctx.ftl = &ftl;
        ctx.fat_size = 64 * (1 + below(30));
        ftl.eu_table = units.data();
        ftl.eu_count = low8(units.size());
        ftl::forget_owners(ftl);
        for (ftl_eu_entry& unit : units) { // log EUs, groups that two EUs claim, and bases of no group
            const unsigned kind = below(8);
            if (kind != 0) unit.base_page = low16(ctx.fat_size / 64 + 122 * (below(30)) + (kind == 1 ? 5 : 0));
        }
        for (unsigned i = 0; i < 60; ++i) {
            const std::uint32_t group = below(34);
            ASSERT_EQ(ftl::owner_or_none(ctx, group), scan(ctx, group)) << "round " << round << ", group " << group;
            if (i % 10 == 9) { // a hand-over
                ftl_eu_entry &from = units[below(units.size())], &to = units[below(units.size())];
                const std::uint16_t bases[] = {to.base_page, from.base_page};
                from.base_page = 0;
                to.base_page = bases[1];
                for (const std::uint16_t base : bases) ftl::renew_owner(ctx, base);
            }
        }
        // Without a word to the table: what it remembers no longer counts.
        const std::uint32_t group = below(30);
        static_cast<void>(ftl::owner_or_none(ctx, group));
        for (ftl_eu_entry& unit : units) unit.base_page = 0;
        ASSERT_EQ(ftl::owner_or_none(ctx, group), none);
    }
}

// Maps with runs of all lengths; behind the last chunk none is in use, whatever its bits say.
TEST(FtlChunkBits, RunsAreThoseOfSingleChunks)
{
    std::mt19937 random(6);
    const auto below = [&random](std::uint32_t bound) { return static_cast<std::uint32_t>(random() % bound); };
    for (unsigned round = 0; round < 3000; ++round) {
        std::vector<std::uint32_t> map(8);
        for (std::uint32_t bit = 0, value = 0; bit < 256; ++bit) {
            if (below(1 + round % 40) == 0) value = below(2);
            map[bit >> 5] |= value << (bit & 31U);
        }
        afs_context ctx{};
        ctx.alloc_map = round % 50 != 0 ? map.data() : nullptr;
        ctx.chunks = low16(below(255));
        const std::uint32_t index = below(290), most = below(index + 2);
        const auto run = [&](bool used, std::uint32_t step) {
            std::uint32_t count = 0;
            while (count < most && chunk_in_use(ctx, index + step * count) == used) ++count;
            return count;
        };
        ASSERT_EQ(in_use_ahead(ctx, index, most), run(true, 1)) << round;
        ASSERT_EQ(unused_ahead(ctx, index, most), run(false, 1)) << round;
        ASSERT_EQ(in_use_down(ctx, index, most), run(true, UINT32_MAX)) << round;
        ASSERT_EQ(unused_down(ctx, index, most), run(false, UINT32_MAX)) << round;
        std::uint32_t used = 0;
        for (std::uint32_t i = 0; i < most; ++i) used += chunk_in_use(ctx, index + i) ? 1 : 0;
        ASSERT_EQ(clear_in_use(ctx, index, most), used) << round;
        ASSERT_EQ(unused_ahead(ctx, index, most), most) << round;
    }
}

TEST(FtlChip, AChipOfTheProgramIsSeen)
{
    EXPECT_FALSE(chip::built_in);
    std::uint8_t byte = 0;
    bench b("");
    ASSERT_EQ(b.open(), 0U);
    b.chip.reset_counters();
    EXPECT_EQ(chip::in_place(0, 1), nullptr);
    EXPECT_EQ(chip::look(0, 1, &byte), &byte);
    EXPECT_EQ(b.chip.counters().reads, 1U);
}

} // namespace
} // namespace yfs::test
