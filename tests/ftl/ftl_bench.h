// An FTL mounted by itself over a strict chip: the test says which data pages are in use, as AFS would. Images and
// calls are told by words, results as texts.
#pragma once

#include "ftl/ftl_internal.h"
#include "tests/support/counted_memory.h"
#include "tests/support/spi_chip.h"
#include "tests/support/volume_builder.h"
#include "yfs/status.h"

#include <gtest/gtest.h>

#include <cctype>
#include <map>
#include <set>
#include <sstream>

namespace yfs::test {

constexpr std::uint32_t none = 0xFFFFFFFF;
using content = std::vector<std::uint8_t>;

// key, N and M of "keyN-M=X"; without M it is N.
struct word {
    explicit word(const std::string& text)
    {
        const auto digits = std::min(text.find_first_of("0123456789="), text.size());
        key = text.substr(0, digits);
        n = m = static_cast<unsigned>(std::atoi(text.c_str() + digits));
        if (const auto to = text.find('-', digits); to < text.find('=')) m = low32(std::stoul(text.substr(to + 1)));
        if (const auto is = text.find('='); is != text.npos) x = low32(std::stoul(text.substr(is + 1), nullptr, 0));
    }
    std::string key;
    unsigned n, m;
    std::uint32_t x = 0;
};

// An image by words. "eu1" begins an EU; behind it stand fields of its header and slots of its log: page numbers
// (committed), tN (torn), rN (a record alone), pN (a frame alone), xN (a wrong CRC), _ (untouched), fN=M (old copies of
// page N up to slot M), raw=R (this record). dN is a complete data page, dN=R one with this record, uN one in use, bN
// in use and nothing there. By default 6 EUs: two log, three data, the spare; 15 FAT pages, groups at pages 15, 137 and
// 259. FAT page p holds bytes(64, p), an old copy zeros, data page i bytes(64, i + 1000).
struct plan {
    explicit plan(const std::string& text, unsigned eus = 6, unsigned data_eus = 3, unsigned files = 100)
        : v(eus, data_eus, files)
    {
        static const std::map<std::string, void (*)(plan&, eu_plan&, unsigned n, std::uint32_t x)> meaning{
            {"seq", [](plan&, eu_plan& e, unsigned, std::uint32_t x) { e.seq(x); }},
            {"src", [](plan&, eu_plan& e, unsigned, std::uint32_t x) { e.src(x); }},
            {"base", [](plan&, eu_plan& e, unsigned, std::uint32_t x) { e.base_page(x); }},
            {"erase", [](plan&, eu_plan& e, unsigned, std::uint32_t x) { e.erase_count(x); }},
            {"commit", [](plan&, eu_plan& e, unsigned, std::uint32_t x) { e.commit(low8(x)); }},
            {"magic", [](plan&, eu_plan& e, unsigned, std::uint32_t x) { e.magic(x); }},
            {"magic*", [](plan&, eu_plan& e, unsigned, std::uint32_t x) { e.magic(x, true); }}, // the CRC over it
            {"cut", [](plan&, eu_plan& e, unsigned, std::uint32_t x) { e.header_cut(x); }},
            {"crc^", [](plan&, eu_plan& e, unsigned, std::uint32_t x) { e.crc_xor(low8(x)); }},
            {"erased", [](plan&, eu_plan& e, unsigned, std::uint32_t) { e.erased(); }},
            {"given-up", [](plan&, eu_plan& e, unsigned, std::uint32_t) { e.given_up(); }},
            {"", [](plan&, eu_plan& e, unsigned n, std::uint32_t) { e.page(n, bytes(64, n)); }},
            {"t", [](plan&, eu_plan& e, unsigned n, std::uint32_t) { e.torn(n); }},
            {"r", [](plan&, eu_plan& e, unsigned n, std::uint32_t) { e.torn_record(n); }},
            {"p", [](plan&, eu_plan& e, unsigned n,
                     std::uint32_t) { e.add({.record = false, .commit = false, .page = low16(n)}); }},
            {"x", [](plan&, eu_plan& e, unsigned n, std::uint32_t) { e.wrong_crc(n); }},
            {"f", [](plan&, eu_plan& e, unsigned n, std::uint32_t x) { e.fill(n, x); }},
            {"_", [](plan&, eu_plan& e, unsigned, std::uint32_t) { e.skip(); }},
            {"raw", [](plan&, eu_plan& e, unsigned, std::uint32_t x) { e.raw_record(low16(x)); }},
            {"d", [](plan& p, eu_plan&, unsigned n, std::uint32_t x) { p.v.dead(n, low8(x)); }},
            {"u", [](plan& p, eu_plan&, unsigned n, std::uint32_t) { p.v.dead(n), p.used.insert(n); }},
            {"b", [](plan& p, eu_plan&, unsigned n, std::uint32_t) { p.used.insert(n); }}};
        v.without_header().without_auto_log();
        std::istringstream in(text);
        eu_plan* eu = &v.eu(0);
        for (std::string next; in >> next;) {
            const word w(next);
            if (w.key == "eu") eu = &v.eu(w.n);
            for (unsigned n = w.n; n <= w.m && w.key != "eu"; ++n) meaning.at(w.key)(*this, *eu, n, w.x);
        }
    }
    volume v;
    std::set<unsigned> used;
};

struct bench {
    explicit bench(const plan& p) : image(p.v.image()), used(p.used)
    {
        ctx.flash_size = low32(image.size());
        ctx.volume_size = p.v.volume_size();
        ctx.fat_size = p.v.fat_size();
        ctx.files = low16(p.v.files());
        ctx.chunks = low16(p.v.chunks());
        ctx.image = image.data();
        ctx.alloc_map = map.data();
        chip.keep_journal(true);
    }
    explicit bench(const std::string& words) : bench(plan(words)) {}
    ~bench() { ftl::release_ftl(&ctx); }
    bench(const bench&) = delete;

    std::uint32_t mount() { return afs_physical_ftl_init(&ctx, ctx.flash_size, ftl::flag_allocate); }
    // Mounts, with the pages in use.
    std::uint32_t open()
    {
        for (const unsigned i : used) map[i >> 5] |= 1U << (i & 31U);
        const std::uint32_t status = mount();
        return status != 0 ? status : afs_physical_ftl_set_allocation_map(&ctx);
    }

    // What a page holds: "=" for what it should, "zeros", "other", or the status.
    std::string get(std::uint32_t va, const content& due)
    {
        content buf(64, 0xEE);
        const std::uint32_t status = afs_physical_ftl_read_page(&ctx, va, 64, buf.data());
        if (status != 0) return std::to_string(status);
        return buf == due ? "=" : buf == content(64) ? "zeros" : "other";
    }
    // Calls by words: w and W write FAT and data pages, t and T trim them, g and G get them; a allocates ("#N"), r
    // reclaims an EU, o opens one as it is, k goes by kind; F is a step of a full reclaim, E the end of the
    // reserved-files mode, m a mount. Their statuses, of a range the sum.
    std::string run(const std::string& script)
    {
        std::string out;
        std::istringstream in(script);
        for (std::string next; in >> next;) {
            const word w(next);
            std::uint32_t status = 0;
            std::uint16_t cid = 0;
            std::string text;
            const bool data = std::isupper(w.key[0]) != 0;
            const auto what = std::tolower(w.key[0]);
            for (unsigned n = w.n; n <= w.m; ++n) {
                const std::uint32_t va = n * 64 + (data ? ctx.fat_size : 0);
                const content due = bytes(64, n + (data ? 1000 : 0));
                if (what == 'w') status += afs_physical_ftl_write_page(&ctx, va, 64, due.data());
                if (what == 't') status += afs_physical_ftl_trim_page(&ctx, va);
                if (what != 'g') continue;
                const std::string got = get(va, due);
                text = n == w.n || text == got ? got : "mixed";
            }
            if (w.key == "a") status = afs_physical_ftl_allocate_page(&ctx, &cid);
            if (w.key == "a" && status == 0) text.append("#").append(std::to_string(cid - ctx.files));
            if (w.key == "r" || w.key == "o") status = ftl::reclaim_eu(&ctx, w.n, w.key == "r" ? 1 : 0);
            if (w.key == "k") status = ftl::reclaim_eu_wrapper(&ctx, w.n);
            if (w.key == "F") status = afs_physical_ftl_force_full_reclaim(&ctx);
            if (w.key == "E") status = afs_physical_ftl_end_reserved_files_mode(&ctx);
            if (w.key == "m") status = open();
            out += (text.empty() ? std::to_string(status) : text) + " ";
        }
        return out;
    }

    // What a mount can find out again: roles, counts, the page map.
    std::string layout() const
    {
        std::ostringstream out;
        const ftl_context& f = *ctx.ftl;
        out << "seq " << f.seq << " spare " << f.spare_eu << "\n";
        for (unsigned i = 0; i < f.eu_count; ++i) {
            const ftl_eu_entry& e = f.eu_table[i];
            out << "eu " << i << ": erased " << e.erase_count << " base " << e.base_page;
            if (i != f.spare_eu) out << " seq " << e.seq << " dirty " << +e.dirty << " free " << +e.free;
            out << "\n";
        }
        for (unsigned p = 0; p < ctx.fat_size / 64; ++p)
            if (f.page_map[p].slot != 0xFF) out << p << "@" << +f.page_map[p].eu << "/" << +f.page_map[p].slot << " ";
        return out.str();
    }
    // Where the log goes on, behind which page, and the allocator's cursor with the end of its group.
    std::string ends() const
    {
        std::ostringstream out;
        const ftl_context& f = *ctx.ftl;
        out << f.log_eu << "/" << f.log_slot << " after " << f.last_page << ", ";
        if (f.alloc_next != none) out << f.alloc_next << "..";
        out << f.alloc_end;
        return out.str();
    }
    // The layout that a fresh mount of the image finds.
    std::string layout_after_mount()
    {
        ftl_context* kept = std::exchange(ctx.ftl, nullptr);
        used.clear(); // the map is as it is
        const std::uint32_t status = open();
        std::string found = status == 0 ? layout() : "mount " + std::to_string(status);
        ftl::release_ftl(&ctx);
        ctx.ftl = kept;
        return found;
    }

    content image;
    nor_chip chip{image};
    std::set<unsigned> used;
    std::vector<std::uint32_t> map = std::vector<std::uint32_t>(1024);
    afs_context ctx{};
    spi_chip_guard guard{chip};
};

// A row of a table: an image, calls, and what they answered and left: statuses | ends. Memory then agrees with what a
// mount finds.
struct script {
    const char* name;
    std::string image;
    const char *calls, *expected;
};
inline void check(std::initializer_list<script> rows, unsigned eus = 6, unsigned data_eus = 3, unsigned files = 100)
{
    for (const script& r : rows) {
        bench b(plan(r.image, eus, data_eus, files));
        ASSERT_EQ(b.open(), 0U);
        const std::string answers = b.run(r.calls);
        EXPECT_EQ(answers + "| " + b.ends(), r.expected) << r.name;
        EXPECT_EQ(b.layout(), b.layout_after_mount()) << r.name;
    }
}

} // namespace yfs::test
