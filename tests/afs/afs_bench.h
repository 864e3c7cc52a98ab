// A volume opened over a strict chip, without dispatch.
#pragma once

#include "afs/afs_internal.h"
#include "tests/support/check_volume.h"
#include "tests/support/counted_memory.h"
#include "tests/support/spi_chip.h"
#include "tests/support/volume_builder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <optional>

namespace yfs::test {

using content = std::vector<std::uint8_t>;
template <std::size_t N>
using rows = std::initializer_list<std::array<std::uint32_t, N>>;

class bench {
public:
    explicit bench(content flash) : image(std::move(flash)), chip(image), ctx{}, guard_(chip)
    {
        ctx.staging = staging_.data();
        chip.keep_journal(true);
    }
    explicit bench(const volume& v) : bench(v.image()) {}
    ~bench() { afs_free_context(&ctx); }
    bench(const bench&) = delete;
    bench& operator=(const bench&) = delete;

    // 0x25: with sizes, over the FTL, mounted here.
    std::uint32_t open(std::uint32_t flags = 0x25, std::uint32_t lines = 10)
    {
        return afs_init(&ctx, image.data(), 64, lines, 100, 0, low32(image.size()), flags, 0x5A, 0xFABC);
    }
    // As the next run would find it.
    std::uint32_t reopen()
    {
        afs_free_context(&ctx);
        return open();
    }
    std::uint32_t write(int file, std::uint32_t offset, const content& data, std::uint32_t flags = 0)
    {
        return afs_writefile(&ctx, file, offset, low32(data.size()), data.data(), flags);
    }
    // All of a file; nothing if it doesn't exist. Size and bytes have to agree.
    std::optional<content> read(int file)
    {
        std::uint32_t size = 0, len = 0x50000;
        content out(len);
        const std::uint32_t status = afs_readfile(&ctx, file, 0, &len, out.data());
        EXPECT_EQ(afs_getfilesize(&ctx, file, &size), status) << "file " << file;
        if (status != 0) return std::nullopt;
        EXPECT_EQ(size, len) << "file " << file;
        out.resize(len);
        return out;
    }
    // The head's number, the chunks and what ends the chain.
    std::vector<std::uint16_t> chain(int file)
    {
        std::vector<std::uint16_t> out{low16(static_cast<unsigned>(file))};
        while (out.size() == 1 || (out.back() > 64 && out.back() < afs::zombie)) {
            std::uint16_t next = 0;
            if (afs_get_next_cid(&ctx, out.back(), &next) != 0) break;
            out.push_back(next);
        }
        return out;
    }
    unsigned in_use() const
    {
        unsigned count = 0;
        for (unsigned i = 0; i < ctx.chunks; ++i) count += afs::chunk_in_use(ctx, i) ? 1 : 0;
        return count;
    }
    // As the second reader sees the flash.
    testing::AssertionResult sound(inspect::finding_id but_for = inspect::finding_id::count) const
    {
        return clean(inspect::inspect_image(image), but_for);
    }
    testing::AssertionResult sound_with(const contents& files) const
    {
        const auto result = sound();
        return result ? holds(inspect::inspect_image(image), files) : result;
    }
    bool fat_page_mapped(unsigned page) const { return ctx.ftl->page_map[page].slot != 0xFF; }

    content image;
    nor_chip chip;
    afs_context ctx;

private:
    content staging_ = content(4096);
    spi_chip_guard guard_;
};

} // namespace yfs::test
