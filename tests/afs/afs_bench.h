// A volume opened over a strict chip, without dispatch.
#pragma once

#include "afs/afs_internal.h"
#include "tests/support/check_volume.h"
#include "tests/support/counted_memory.h"
#include "tests/support/spi_chip.h"
#include "tests/support/volume_builder.h"
#include "yfs/status.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <tuple>

namespace yfs::test {

constexpr std::uint32_t trunc = 1; // a write's flag
constexpr int file = 7;            // the file in hand

using content = std::vector<std::uint8_t>;
using words = std::vector<std::uint32_t>; // statuses, numbers, a row of a table

struct bench {
    explicit bench(content flash) : image(std::move(flash)) { ctx.staging = staging.data(), chip.keep_journal(true); }
    explicit bench(const volume& v) : bench(v.image()) {}
    ~bench() { afs_free_context(&ctx); }
    bench(const bench&) = delete;

    // 0x25: with sizes, over the FTL, mounted here.
    std::uint32_t open(std::uint32_t flags = 0x25, std::uint32_t lines = 10)
    {
        return afs_init(&ctx, image.data(), 64, lines, 100, 0, low32(image.size()), flags, 0x5A, 0xFABC);
    }
    // As the next run would find it.
    std::uint32_t reopen() { return afs_free_context(&ctx), open(); }
    std::uint32_t write(int number, std::uint32_t offset, const content& data, std::uint32_t flags = 0)
    {
        return afs_writefile(&ctx, number, offset, low32(data.size()), data.data(), flags);
    }
    // All of a file; nothing if it doesn't exist. Size and bytes have to agree.
    std::optional<content> read(int number)
    {
        std::uint32_t size = 0, len = 0x50000;
        content out(len);
        const std::uint32_t status = afs_readfile(&ctx, number, 0, &len, out.data());
        EXPECT_EQ(afs_getfilesize(&ctx, number, &size), status) << "file " << number;
        if (status != 0) return std::nullopt;
        EXPECT_EQ(size, len) << "file " << number;
        return out.resize(len), out;
    }
    std::uint32_t in_use() const
    {
        std::uint32_t count = 0;
        for (unsigned i = 0; i < ctx.chunks; ++i) count += chunk_in_use(ctx, i) ? 1 : 0;
        return count;
    }
    content image;
    nor_chip chip{image};
    afs_context ctx{};
    content staging = content(4096);
    spi_chip_guard guard{chip};
};

} // namespace yfs::test
