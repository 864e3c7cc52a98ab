// A host for the tests: the buffers of a run made from a list of NVARs, and a callback that keeps every report.
//
//     host run({{.path = "/home/a", .velor = blob{1}, .live = blob{2}}, deployed});
//     ASSERT_EQ(run.init(), 1);
//     EXPECT_EQ(host::reports(), "38:;331#12;");
#pragma once

#include "tests/support/table_builder.h"
#include "tests/support/volume_builder.h"
#include "yfs/facade.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>

namespace yfs::test {

// "code:message;" of every report since the last take, or "code#status;" where the message is a library's status. The
// text of a code is compared right where it arrives.
inline std::string s_reports;
inline void (*while_reporting)() = nullptr; // runs inside every report

inline void record(ErrorLevel level, ImageToolsErrorName code, const char* text, const char* message)
{
    EXPECT_EQ(level, 4);
    EXPECT_EQ(text, code == 0 ? "" : ZonErrors::getErrorNameString(code));
    const std::string said = message, of = " Library status code: ";
    const bool status = said.starts_with(of);
    s_reports += std::to_string(code) + (status ? '#' : ':') + said.substr(status ? of.size() : 0) + ";";
    if (while_reporting != nullptr) while_reporting();
}

using value = std::optional<blob>;

// One named value, wherever it lies: payloads in Velor.cfg and zonc.cfg, contents in the volume.
struct nvar {
    std::string path;
    value velor = {}, zonc = {}, live = {};
    std::uint16_t attributes = 0;
    std::uint32_t max_size = 0x20000;
    std::uint16_t flags = 1, zonc_flags = 1;
    std::optional<std::uint32_t> fileno = {}; // 0x500 and up if not told
    std::uint16_t index = 0;                  // in the volume; 10 and up if 0
};
inline const nvar deployed{.path = "/home/qrd/deploy", .live = blob{1}};

struct host {
    explicit host(const std::vector<nvar>& files = {})
    {
        std::vector<table_file> table;
        std::vector<cfg_file> defaults, overrides;
        volume image(16, 12, 100);
        for (const nvar& file : files) {
            const auto place = low16(table.size());
            const std::uint32_t fileno = file.fileno.value_or(0x500U + place);
            const auto index = low16(file.index != 0 ? file.index : 10U + place);
            table.push_back({file.path, fileno, file.attributes, index, 1, file.max_size});
            if (file.velor) defaults.push_back({fileno, *file.velor, file.flags});
            if (file.zonc) overrides.push_back({fileno, *file.zonc, file.zonc_flags});
            if (file.live) image.file(index, *file.live), yfs.resize(1);
        }
        if (!yfs.empty()) yfs = image.image();
        velor = make_cfg_table(defaults);
        zonc = make_partition(make_cfg_table(overrides));
        ftbl = make_file_table({{1, {}}, {2, table}});
    }
    ~host() { end(); }

    std::uint8_t init(YZonStatusCallback callback = record)
    {
        const auto table = [](blob& b) { return _commonYZonTable{b.data(), low32(b.size())}; };
        const YZonInitParams given = {table(velor), table(zonc), table(yfs), table(ftbl), sku, table(efs)};
        return yeYfsYzonInit(&given, callback);
    }
    // Ends the run, whatever state it is in.
    static void end()
    {
        if (yeFcsIsInitialized() != 0) yeYfsNvarTerm(0);
        EXPECT_EQ(state(), 0);
        reports();
    }
    static std::string reports() { return std::exchange(s_reports, {}); }
    // 1 for the tables, 2 for the volume.
    static int state() { return yeFcsIsInitialized() + 2 * yeYfsIsInitialized(); }

    blob velor, zonc, yfs, ftbl, efs; // empty: not given
    std::uint32_t sku = 2;
};

// The bytes that a call hands out; none for a 0.
template <typename Call>
value handed_out(Call call)
{
    void* data = nullptr;
    std::uint32_t size = 0;
    if (call(&data, &size) == 0) return std::nullopt;
    const auto* const from = static_cast<const std::uint8_t*>(data);
    return blob(from, from + size);
}

inline std::uint8_t modifiable; // of the last value_of
inline std::uint32_t limit;

inline value value_of(const std::string& path, FcsFileName table = FCS_CURRENT_VALUES)
{
    return handed_out([&](auto... out) { return yeYfsNvarGet(path.c_str(), out..., table, &modifiable, &limit); });
}

// Resizes a current value and fills it.
inline bool set_value(const std::string& path, const blob& bytes)
{
    void* data = nullptr;
    if (yeYfsNvarResize(path.c_str(), &data, low32(bytes.size())) == 0) return false;
    std::copy(bytes.begin(), bytes.end(), static_cast<std::uint8_t*>(data));
    return true;
}

} // namespace yfs::test
