#include "fuzz/host_steps.h"

#include "tests/support/table_builder.h"

#include <cstring>

// The texts of the reports are the same in every run. A start lays them out anew, which takes longer than all the rest
// of a run; here the first one does (linked with --wrap).
bool lay_out_texts() asm("__real__ZN9ZonErrors4initEv");
bool lay_out_texts_once() asm("__wrap__ZN9ZonErrors4initEv");
bool lay_out_texts_once()
{
    static const bool done = lay_out_texts();
    return done;
}

namespace fuzz {

namespace {

constexpr const char* paths[] = {"/home/net/name", "/home/net/mac", "/home/key", "/home/log",
                                 "/home/cal",      "net/name",      "",          "/home/none"};

void call_back(ErrorLevel, ImageToolsErrorName, const char* text, const char* message)
{
    must(text != nullptr && message != nullptr && yeYfsNvarTerm(0) == 0);
}

_commonYZonTable buffer(bytes& from)
{
    _commonYZonTable out{};
    out.data = from.data();
    out.size = static_cast<std::uint32_t>(from.size());
    return out;
}

std::optional<bytes> get(const char* path, FcsFileName table, bool only_modifiable = false)
{
    void* data = nullptr;
    std::uint32_t size = 0, most = 0;
    std::uint8_t flag = 0;
    if (yeYfsNvarGet(path, &data, &size, table, &flag, &most) == 0) return std::nullopt;
    if (only_modifiable && flag == 0) return std::nullopt;
    const auto* const value = static_cast<const std::uint8_t*>(data);
    return bytes(value, value + size);
}

// The host fills what it has asked for.
void resize(const char* path, std::uint32_t size, int value)
{
    const std::optional<bytes> before = get(path, FCS_CURRENT_VALUES);
    void* data = nullptr;
    if (yeYfsNvarResize(path, &data, size) == 0) return;
    const std::optional<bytes> after = get(path, FCS_CURRENT_VALUES);
    must(before && after && after->size() == size);
    must(std::equal(after->begin(),
                    after->begin() + static_cast<std::ptrdiff_t>(std::min(before->size(), after->size())),
                    before->begin()));
    if (size != 0) std::memset(data, value, size);
}

} // namespace

bool start_run(host_set& set, std::uint32_t sku)
{
    YZonInitParams given{};
    given.velorCfg = buffer(set.velor);
    given.zonCfg = buffer(set.zonc);
    given.ftbl = buffer(set.ftbl);
    given.yfs = buffer(set.yfs);
    given.efs = buffer(set.efs);
    given.afsSkuId = sku;
    return yeYfsYzonInit(&given, call_back) != 0;
}

void use_values(input& in)
{
    for (int i = 0; i < 32 && !in.empty(); ++i) {
        const std::uint32_t what = in.number(1);
        const char* path = paths[what / 8 % std::size(paths)];
        switch (what % 8) {
        case 0:
            yeyfsCheckNvarExists(path, static_cast<FcsFileName>(FCS_VELOR_CFG + in.number(1) % 4));
            break;
        case 1:
        case 2:
            resize(path, in.number(1), static_cast<int>(what));
            break;
        case 3:
            resize(path, in.number(2) * (what / 64 + 1) / 2, static_cast<int>(what));
            break;
        case 4:
            if (what / 128 != 0) yeYfsNvarTerm(1);
            break;
        case 5:
            built_partition();
            break;
        default:
            get(path, static_cast<FcsFileName>(FCS_VELOR_CFG + what / 64));
            break;
        }
    }
}

std::vector<std::optional<bytes>> current_values()
{
    std::vector<std::optional<bytes>> out;
    for (const char* path : paths) out.push_back(get(path, FCS_CURRENT_VALUES, true));
    return out;
}

std::optional<bytes> built_partition()
{
    void* data = nullptr;
    std::uint32_t size = 0;
    if (yeYfsGetBuildZonCfgFcsBuffer(&data, &size) == 0) return std::nullopt;
    const auto* const table = static_cast<const std::uint8_t*>(data);
    return yfs::test::make_partition(bytes(table, table + size));
}

void end_and_repeat(host_set& set, bool same, std::uint32_t sku)
{
    const bool rebuilt = yeYfsNvarTerm(1) != 0;
    const auto values = current_values();
    const auto built = built_partition();
    must(!rebuilt || built);
    const bool ended = yeYfsNvarTerm(0) != 0;
    must(!rebuilt || ended || !set.yfs.empty()); // the volume may have no room to write the values once more
    if (rebuilt) set.zonc = *built;
    if (start_run(set, sku) && same && rebuilt) must(current_values() == values);
    yeYfsNvarTerm(0);
    leave_afs();
    leave_efs();
}

} // namespace fuzz
