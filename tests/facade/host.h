// A host for the tests: the buffers of a run made from a list of NVARs, and a callback that keeps every report.
//
//     host run({{.path = "/home/a", .velor = blob{1}, .zonc = blob{2, 3}}});
//     ASSERT_EQ(run.init(), 1);
//     EXPECT_EQ(take_reports(), (reports{says(38)}));
#pragma once

#include "tests/support/table_builder.h"
#include "yfs/facade.h"

#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace yfs::test {

// ---- Reports ----

struct reported {
    int level;
    int code;
    std::string text;
    std::string message;

    bool operator==(const reported&) const = default;
};
std::ostream& operator<<(std::ostream& out, const reported& report);
using reports = std::vector<reported>;

// The callback, and what came since the last take.
void record(ErrorLevel level, ImageToolsErrorName code, const char* text, const char* message);
reports take_reports();

// Runs inside every recorded report, until it is set to null.
extern void (*while_reporting)();

// The texts of the codes that the library raises, written down apart from its own table.
const std::vector<std::pair<int, std::string>>& raised_texts();

// A report as it has to arrive.
reported says(int code, const std::string& message = "");
reported says_status(int code, int status);

// ---- A run ----

// One named value, wherever it lies.
struct nvar {
    std::string path;
    std::optional<blob> velor = {}; // payload in Velor.cfg
    std::optional<blob> zonc = {};  // payload in zonc.cfg
    std::optional<blob> live = {};  // contents in the volume, a tail included
    std::uint16_t attributes = 0;
    std::uint32_t max_size = 100;
    std::uint16_t velor_flags = 1;
    std::uint16_t zonc_flags = 1;
    std::optional<std::uint32_t> fileno = {}; // 0x501 and up if not told
    std::uint16_t index = 0;                  // in the volume; 10 and up if 0
    std::uint8_t selector = 1;
    bool in_file_table = true;
};

enum class volume_state { none, idle, deployed }; // no volume, a volume without the mark of deployment, one with it

inline constexpr std::uint32_t host_sku = 2;
inline constexpr std::uint32_t volume_bytes = 0x20000;

// Ends the run, whatever state it is in, and drops the reports of that.
void end_run();

class host {
public:
    explicit host(std::vector<nvar> files, volume_state volume = volume_state::none);
    ~host() { end_run(); }
    host(const host&) = delete;
    host& operator=(const host&) = delete;

    YZonInitParams params();
    std::uint8_t init()
    {
        const YZonInitParams given = params();
        return yeYfsYzonInit(&given, record);
    }

    blob velor, zonc, yfs, ftbl, efs; // empty: not given
    std::uint32_t sku = host_sku;
};

// The value in a table, if yeYfsNvarGet hands one out. Reports stay in the record.
std::optional<blob> value_of(const std::string& path, FcsFileName table = FCS_CURRENT_VALUES);

// Resizes a current value and fills it.
bool set_value(const std::string& path, const blob& value);

// Contents of a file of the mounted volume, none if it isn't there.
std::optional<blob> volume_file(std::uint32_t number);

// The zonc.cfg that yeYfsGetBuildZonCfgFcsBuffer hands out; none for a 0.
std::optional<blob> built_table();

} // namespace yfs::test
