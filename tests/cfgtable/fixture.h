// What the tests of handles share: an active file table, a handle, and what a handle holds.
#pragma once

#include "cfgtable/layout.h"
#include "tests/support/table_builder.h"
#include "yfs/status.h"

#include <gtest/gtest.h>

namespace yfs::test {

inline blob payload(std::size_t size, unsigned seed = 1)
{
    blob bytes(size);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = low8(i * 31 + seed);
    return bytes;
}

// A file table that a test sets, active as long as it lives.
struct active_table {
    explicit active_table(const std::vector<table_file>& files)
    {
        for (const table_file& file : files) entries.push_back(file_entry(file));
        g_table_buf = entries.data();
        g_table_num_files = static_cast<std::int32_t>(entries.size());
    }
    ~active_table() { g_table_buf = nullptr, g_table_num_files = 0; }
    active_table(const active_table&) = delete;

    std::vector<ftbl_file_entry_t> entries;
};

struct fcs {
    fcs() { EXPECT_EQ(fcs_status::ok, createHandle(&handle)); }
    fcs(const std::uint8_t* table, std::uint32_t size) : status(createHandleFromStructure(&handle, table, size)) {}
    explicit fcs(const blob& table) : fcs(table.data(), low32(table.size())) {}
    ~fcs()
    {
        if (handle) closeHandle(&handle);
    }
    fcs(const fcs&) = delete;

    std::uint32_t add(const std::string& name, blob image, bool check_size = false)
    {
        return addNewFile(handle, "", name.c_str(), image.data(), low32(image.size()), check_size);
    }

    // Its names in the order of the walk.
    std::vector<std::string> names() const
    {
        std::vector<std::string> list;
        char name[256];
        for (auto st = getFirstFileInRoot(handle, name); st == fcs_status::ok; st = getNextFile(handle, name))
            list.emplace_back(name);
        return list;
    }

    // The file image; empty if there is no such file.
    blob image(const std::string& name) const
    {
        blob out(0x10000);
        std::uint32_t length = low32(out.size());
        out.resize(getFileData(handle, name.c_str(), out.data(), &length) == fcs_status::ok ? length : 0);
        return out;
    }

    // The table, by the two calls that a host makes.
    blob table() const
    {
        std::uint32_t length = 0;
        EXPECT_EQ(fcs_status::bad_length, flush(handle, nullptr, &length));
        blob out(length);
        EXPECT_EQ(fcs_status::ok, flush(handle, out.data(), &length));
        EXPECT_EQ(out.size(), length);
        return out;
    }

    void* handle = nullptr;
    std::uint32_t status = fcs_status::ok;
};

} // namespace yfs::test
