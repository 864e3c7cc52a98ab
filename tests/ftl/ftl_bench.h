// An FTL mounted by itself over a strict chip: the test says which data pages are in use, as AFS would.
#pragma once

#include "ftl/ftl_internal.h"
#include "tests/support/spi_chip.h"
#include "tests/support/volume_builder.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>

namespace yfs::test {

constexpr std::uint32_t none = 0xFFFFFFFF;

// An image without files: the test places pages itself. 6 EUs, the first two log, three data, the spare; 15 FAT pages,
// groups at pages 15, 137 and 259.
inline volume bare(unsigned eus = 6, unsigned data_eus = 3, unsigned files = 100)
{
    volume v(eus, data_eus, files);
    v.without_header().without_auto_log();
    return v;
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
    std::pair<unsigned, unsigned> place(unsigned fat_page) const
    {
        return {ctx.ftl->page_map[fat_page].eu, ctx.ftl->page_map[fat_page].slot};
    }
    bool in_use(unsigned index) const { return ((map_[index >> 5] >> (index & 31U)) & 1U) != 0; }
    std::uint32_t va(unsigned index) const { return ctx.fat_size + index * 64; }

    // A page as the FTL reads it, after its status.
    std::pair<std::uint32_t, std::vector<std::uint8_t>> read(std::uint32_t at)
    {
        std::vector<std::uint8_t> buf(64, 0xEE);
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
    std::string layout_after_mount() const
    {
        afs_context fresh = ctx;
        fresh.ftl = nullptr;
        const std::uint32_t status = afs_physical_ftl_init(&fresh, fresh.flash_size, ftl::flag_allocate);
        const std::uint32_t map_status = status == 0 ? afs_physical_ftl_set_allocation_map(&fresh) : 0;
        bench* self = const_cast<bench*>(this);
        std::swap(self->ctx.ftl, fresh.ftl);
        std::string found = status + map_status == 0 ? layout() : "mount " + std::to_string(status + map_status);
        std::swap(self->ctx.ftl, fresh.ftl);
        ftl::release_ftl(&fresh);
        return found;
    }

    // The changes of the flash so far: EU:offset=bytes of short writes, EU:offset+length of long ones, E and EU:offset
    // of erases.
    std::string story() const
    {
        std::ostringstream out;
        for (const chip_change& c : chip.journal()) {
            if (out.tellp() > 0) out << " ";
            if (c.kind == chip_call::erase) out << "E";
            out << c.addr / ftl::eu_size << ":" << c.addr % ftl::eu_size;
            if (c.kind == chip_call::erase) continue;
            out << (c.len > 4 ? "+" : "=");
            if (c.len > 4) out << c.len;
            for (const std::uint8_t b : c.bytes)
                if (c.len <= 4) out << "0123456789abcdef"[b >> 4] << "0123456789abcdef"[b & 15];
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
