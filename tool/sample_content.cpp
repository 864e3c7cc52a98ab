#include "tool/sample_content.h"

#include "tool/file_table.h"

namespace yfs::tool {

namespace {

constexpr sample_bytes none{};
constexpr sample_bytes unavailable{.what = sample_bytes::kind::unavailable, .text = {}, .size = 0};
constexpr sample_bytes text(std::string_view value)
{
    return {.what = sample_bytes::kind::text, .text = value, .size = 0};
}
constexpr sample_bytes noise(std::uint32_t size)
{
    return {.what = sample_bytes::kind::noise, .text = {}, .size = size};
}

constexpr std::uint16_t tail = attribute_tail;
constexpr std::uint16_t long_tail = attribute_tail | attribute_long_tail;
constexpr std::uint16_t unread = attribute_unread;
constexpr std::uint16_t absent = not_in_sku;

// A value that differs from column to column shows which source wins: the volume over zonc.cfg over velor.cfg.
constexpr sample_file files[] = {
    // path                         fileno      attributes  limit  index           velor, zonc, live
    {"/home/boot/args", 0x00000210, 0x0000, 256, {2, 40}, text(""), none, text("")},
    {"/home/boot/last_slot", 0x00000211, unread, 8, {3, 41}, text("a"), text("b"), text("b")},
    {"/home/boot/order", 0x00000212, 0x0000, 64, {4, 42}, text("flash,usb,net"), none, text("flash,usb,net")},
    {"/home/boot/splash", 0x00000213, 0x0100, 8192, {5, 43}, noise(5120), none, noise(5120)},
    // Several files in one block, one over three blocks, and one that was never written.
    {"/home/calib/adc_gain", 0x00000300, 0x0000, 128, {0, 0}, noise(96), none, noise(96), {{0, 0}}},
    {"/home/calib/adc_offset", 0x00000301, 0x0000, 64, {1, 1}, noise(48), noise(48), noise(48), {{0, 200}}},
    {"/home/calib/board_serial", 0x10000302, 0x0000, 32, {2, 2}, text("none"), none, text("BD-000417"), {{0, 400}}},
    {"/home/calib/last_service", 0x00000303, 0x0000, 256, {3, 3}, none, none, none, {{5, 0}}},
    {"/home/calib/rf_map", 0x20000304, 0x0000, 12000, {4, 4}, none, none, noise(12000), {{2, 0}}},
    {"/home/calib/temp_curve", 0x00000305, 0x0000, 2000, {5, 5}, noise(900), none, noise(1100), {{1, 0}}},
    {"/home/cred/ca_bundle", 0x30000220, long_tail, 2048, {6, 44}, noise(1200), none, noise(1200)},
    {"/home/cred/device_key", 0x30000221, tail, 32, {7, 45}, noise(32), none, noise(32)},
    {"/home/log/level", 0x00000230, 0x0000, 16, {8, 46}, text("info"), text("debug"), text("debug")},
    {"/home/log/ring", 0x00000231, 0x0000, 65536, {9, 47}, none, none, noise(12000)},
    {"/home/net/gateway", 0x10000240, 0x0000, 64, {10, 48}, text("192.0.2.1"), none, text("192.0.2.1")},
    {"/home/net/mac", 0x10000241, 0x8000, 6, {11, 49}, noise(6), none, noise(6)},
    {"/home/net/name", 0x10000242, 0x0000, 63, {12, 50}, text("unit"), text("unit-0017"), text("bench-3")},
    {"/home/net/uplink", 0x10000243, 0x0000, 32, {13, 51}, text("eth0"), text("wan0"), text("wan0")},
    {"/home/power/fan_curve", 0x00000250, 0x0000, 128, {14, 52}, noise(96), noise(64), noise(64)},
    {"/home/power/rails",
     0x00000251,
     0x0000,
     512,
     {15, 53},
     text("core 0.82\nio 1.80\nddr 1.10\n"),
     none,
     text("core 0.84\nio 1.80\nddr 1.10\n")},
    {"/home/power/wake_policy", 0x00000252, 0x0000, 64, {16, 54}, unavailable, none, none},
    {"/home/qrd/deploy", 0x00000200, 0x0000, 16, {1, 1}, none, none, text("deployed\n")},
    {"/home/radio/antenna_gain", 0x20000260, 0x0000, 1024, {17, absent}, noise(384), none, noise(512)},
    {"/home/radio/channel_mask", 0x20000261, 0x0000, 16, {18, absent}, noise(8), noise(8), noise(8)},
    {"/home/radio/coexistence/priorities_of_bands_plan",
     0x20000262,
     0x0000,
     256,
     {19, absent},
     noise(40),
     none,
     noise(40)},
    {"/home/stats/counters", 0x00000270, 0x0000, 4096, {20, 55}, none, none, noise(640)},
    {"/home/ui/language", 0x00000280, 0x0000, 8, {21, 56}, text("en"), none, text("en")},
    {"/home/usb/mode", 0x00000290, 0x0000, 16, {absent, 57}, text("device"), none, text("device")},
    {"/home/usb/product_name", 0x00000291, 0x0000, 64, {absent, 58}, text("Sample unit"), none, text("Sample unit")},
};

constexpr bool names_fit()
{
    bool one_fills_its_field = false; // a name without a terminator belongs into every set of samples
    for (const sample_file& file : files) {
        if (file.path.size() > 48) return false;
        one_fills_its_field |= file.path.size() == 48;
    }
    return one_fills_its_field;
}
static_assert(names_fit());

} // namespace

bytes sample_bytes::make(std::uint32_t seed) const
{
    if (what != kind::noise) return {text.begin(), text.end()};
    sample_random random(seed);
    bytes contents(size);
    for (std::uint8_t& byte : contents) byte = static_cast<std::uint8_t>(random.next() >> 32);
    return contents;
}

std::span<const sample_file> sample_files()
{
    return files;
}

std::uint64_t sample_random::next()
{
    state_ += 0x9E3779B97F4A7C15;
    std::uint64_t mixed = state_;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
    return mixed ^ (mixed >> 31);
}

} // namespace yfs::tool
