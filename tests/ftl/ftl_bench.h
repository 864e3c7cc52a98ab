// An FTL mounted by itself over a strict chip: the test says which data pages are in use, as AFS would.
#pragma once

#include "ftl/ftl_internal.h"
#include "tests/support/spi_chip.h"
#include "tests/support/volume_builder.h"

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <set>
#include <sstream>

namespace yfs::test {

constexpr std::uint32_t none = 0xFFFFFFFF;

inline std::string hex(std::span<const std::uint8_t> data)
{
    std::string out;
    for (const std::uint8_t b : data) out += {"0123456789abcdef"[b >> 4], "0123456789abcdef"[b & 15]};
    return out;
}

// A volume without files, laid down by words. "eu1" begins an EU; behind it stand fields of its header and slots of its
// log: page numbers (committed), tN (torn), rN (a record alone), _ (untouched), fN=M (old copies of page N up to slot
// M), raw=R (this record). dN is a complete data page, dN=R one with this record. By default 6 EUs: two log, three
// data, the spare; 15 FAT pages, groups at pages 15, 137 and 259. FAT page p holds bytes(64, p), an old copy zeros,
// data page i bytes(64, i + 1000).
inline volume plan(const std::string& words, unsigned eus = 6, unsigned data_eus = 3, unsigned files = 100)
{
    using number = std::uint32_t; // n: behind the word's name, x: behind its equals sign
    static const std::map<std::string, void (*)(volume&, unsigned eu, number n, number x)> meaning{
        {"seq", [](volume& v, unsigned eu, number, number x) { v.eu(eu).seq(x); }},
        {"src", [](volume& v, unsigned eu, number, number x) { v.eu(eu).src(x); }},
        {"base", [](volume& v, unsigned eu, number, number x) { v.eu(eu).base_page(x); }},
        {"erase", [](volume& v, unsigned eu, number, number x) { v.eu(eu).erase_count(x); }},
        {"commit", [](volume& v, unsigned eu, number, number x) { v.eu(eu).commit(low8(x)); }},
        {"magic", [](volume& v, unsigned eu, number, number x) { v.eu(eu).magic(x); }},
        {"magic*", [](volume& v, unsigned eu, number, number x) { v.eu(eu).magic(x, true); }}, // the CRC taken over it
        {"cut", [](volume& v, unsigned eu, number, number x) { v.eu(eu).header_cut(x); }},
        {"crc^", [](volume& v, unsigned eu, number, number x) { v.eu(eu).crc_xor(low8(x)); }},
        {"erased", [](volume& v, unsigned eu, number, number) { v.eu(eu).erased(); }},
        {"given-up", [](volume& v, unsigned eu, number, number) { v.eu(eu).given_up(); }},
        {"", [](volume& v, unsigned eu, number n, number) { v.log(eu).page(n, bytes(64, n)); }},
        {"t", [](volume& v, unsigned eu, number n, number) { v.log(eu).torn(n); }},
        {"r", [](volume& v, unsigned eu, number n, number) { v.log(eu).torn_record(n); }},
        {"f", [](volume& v, unsigned eu, number n, number x) { v.log(eu).fill(n, x); }},
        {"_", [](volume& v, unsigned eu, number, number) { v.log(eu).skip(); }},
        {"raw", [](volume& v, unsigned eu, number, number x) { v.log(eu).raw_record(low16(x)); }},
        {"d", [](volume& v, unsigned, number n, number x) { v.dead(n, low8(x)); }}};
    volume v(eus, data_eus, files);
    v.without_header().without_auto_log();
    std::istringstream in(words);
    unsigned eu = 0;
    for (std::string word; in >> word;) {
        const std::string key = word.substr(0, word.find('='));
        const auto digits = std::min(key.find_first_of("0123456789"), key.size());
        const auto n = static_cast<number>(std::atoi(key.c_str() + digits));
        const auto x = key == word ? 0 : static_cast<number>(std::stoul(word.substr(key.size() + 1), nullptr, 0));
        if (key.starts_with("eu")) {
            eu = n;
        } else {
            meaning.at(key.substr(0, digits))(v, eu, n, x);
        }
    }
    return v;
}

using content = std::vector<std::uint8_t>;
using page_read = std::pair<std::uint32_t, content>; // status and bytes

// The set from, from + step, ... below to.
inline std::set<unsigned> range(unsigned from, unsigned to, unsigned step = 1)
{
    std::set<unsigned> out;
    for (; from < to; from += step) out.insert(from);
    return out;
}
inline void lay(volume& v, const std::set<unsigned>& data_pages)
{
    for (const unsigned i : data_pages) v.dead(i);
}

class bench {
public:
    explicit bench(const volume& v) : image(v.image()), chip(image), ctx{}, guard_(chip)
    {
        ctx.flash_size = static_cast<std::uint32_t>(image.size());
        ctx.volume_size = v.volume_size();
        ctx.fat_size = v.fat_size();
        ctx.files = static_cast<std::uint16_t>(v.files());
        ctx.chunks = static_cast<std::uint16_t>(v.chunks());
        ctx.image = image.data();
        map_.resize(ctx.chunks / 32U + 1);
        ctx.alloc_map = map_.data();
        chip.keep_journal(true);
    }
    ~bench() { ftl::release_ftl(&ctx); }
    bench(const bench&) = delete;
    bench& operator=(const bench&) = delete;

    std::uint32_t mount() { return afs_physical_ftl_init(&ctx, ctx.flash_size, ftl::flag_allocate); }
    // Mounts, with these data pages in use.
    std::uint32_t open(const std::set<unsigned>& used = {})
    {
        for (const unsigned i : used) map_[i >> 5] |= 1U << (i & 31U);
        const std::uint32_t status = mount();
        return status != 0 ? status : afs_physical_ftl_set_allocation_map(&ctx);
    }
    ftl_context& ftl() { return *ctx.ftl; }
    ftl_eu_entry& eu(unsigned i) { return ctx.ftl->eu_table[i]; }
    bool in_use(unsigned index) const { return ((map_[index >> 5] >> (index & 31U)) & 1U) != 0; }
    std::uint32_t va(unsigned index) const { return ctx.fat_size + index * 64; }

    // A page as the FTL reads it.
    page_read read(std::uint32_t at)
    {
        content buf(64, 0xEE);
        const std::uint32_t status = afs_physical_ftl_read_page(&ctx, at, 64, buf.data());
        return {status, buf};
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
    // All of it.
    std::string tables() const
    {
        std::ostringstream out;
        const ftl_context& f = *ctx.ftl;
        out << layout() << "\nlog " << f.log_eu << "/" << f.log_slot << " last " << f.last_page << " alloc "
            << f.alloc_next << ".." << f.alloc_end << " asked " << +f.alloc_flush_asked << "\nused";
        for (unsigned i = 0; i < ctx.chunks; ++i)
            if (in_use(i)) out << " " << i;
        return out.str();
    }
    // The layout that a fresh mount of the image finds.
    std::string layout_after_mount()
    {
        ftl_context* kept = std::exchange(ctx.ftl, nullptr);
        std::uint32_t status = mount();
        if (status == 0) status = afs_physical_ftl_set_allocation_map(&ctx);
        const std::string found = status == 0 ? layout() : "mount " + std::to_string(status);
        ftl::release_ftl(&ctx);
        ctx.ftl = kept;
        return found;
    }

    // The changes of the flash so far: EU:offset=bytes of short writes, EU:offset+length of long ones, E and EU:offset
    // of erases.
    std::string story() const
    {
        std::ostringstream out;
        const char* space = "";
        for (const chip_change& c : chip.journal()) {
            out << std::exchange(space, " ") << (c.kind == chip_call::erase ? "E" : "") << c.addr / ftl::eu_size << ":"
                << c.addr % ftl::eu_size;
            if (c.kind == chip_call::write && c.len > 4) out << "+" << c.len;
            if (c.kind == chip_call::write && c.len <= 4) out << "=" << hex(c.bytes);
        }
        return out.str();
    }

    std::vector<std::uint8_t> image;
    nor_chip chip;
    afs_context ctx;

private:
    std::vector<std::uint32_t> map_;
    spi_chip_guard guard_;
};

} // namespace yfs::test
