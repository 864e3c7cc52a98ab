// A whole run of the facade over five buffers with changed bytes: start, values by name, resizes, the end, and a second
// run over what came out. The zonc partition alone, sequences of value calls and all buffers at once are all this.
#include "fuzz/patched.h"
#include "yfs/facade.h"

#include <algorithm>

namespace {

void ignore(ErrorLevel, ImageToolsErrorName, const char*, const char*) {}

constexpr const char* paths[] = {"/home/net/name", "/home/net/mac", "/home/key", "/home/log", "/home/cal", "",
                                 "/home/none"};

void use_values(fuzz::input& in)
{
    for (int i = 0; i < 40 && !in.empty(); ++i) {
        const std::uint32_t what = in.number(1);
        const char* path = paths[what / 8 % std::size(paths)];
        void* data = nullptr;
        std::uint32_t size = 0;
        std::uint8_t flag = 0;
        std::uint32_t most = 0;
        switch (what % 8) {
        case 0:
            yeyfsCheckNvarExists(path, static_cast<FcsFileName>(in.number(1) % 5));
            break;
        case 1:
            if (yeYfsNvarResize(path, &data, in.number(2)) != 0 && data != nullptr)
                *static_cast<std::uint8_t*>(data) = 1;
            break;
        case 2:
            yeYfsNvarTerm(1);
            break;
        case 3:
            yeYfsGetBuildZonCfgFcsBuffer(&data, &size);
            break;
        default:
            if (yeYfsNvarGet(path, &data, &size, static_cast<FcsFileName>(what / 64), &flag, &most) != 0 && size != 0) {
                volatile std::uint8_t last = static_cast<const std::uint8_t*>(data)[size - 1];
                static_cast<void>(last);
            }
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::input in(data, size);
    fuzz::host_set set = fuzz::sound_set();
    const std::uint32_t which = in.number(1);
    if ((which & 1U) != 0) set.ftbl = fuzz::patched(set.ftbl, in);
    if ((which & 2U) != 0) set.velor = fuzz::patched(set.velor, in);
    if ((which & 4U) != 0) set.zonc = fuzz::patched(set.zonc, in);
    if ((which & 8U) != 0) set.yfs = fuzz::patched_volume(in);
    if ((which & 16U) != 0) set.efs = fuzz::patched_efs(in);
    if ((which & 32U) != 0) set.zonc.resize(in.number(1) % (set.zonc.size() + 1));
    YZonInitParams given{};
    const auto buffer = [](fuzz::bytes& from) {
        _commonYZonTable out{};
        out.data = from.data();
        out.size = static_cast<std::uint32_t>(from.size());
        return out;
    };
    given.velorCfg = buffer(set.velor);
    given.zonCfg = buffer(set.zonc);
    given.ftbl = buffer(set.ftbl);
    given.yfs = buffer(set.yfs);
    given.efs = buffer(set.efs);
    given.afsSkuId = 7;
    yeYfsYzonInit(&given, ignore);
    use_values(in);
    yeYfsNvarTerm(1);
    use_values(in);
    yeYfsNvarTerm(0);
    yeYfsYzonInit(&given, ignore);
    yeYfsNvarTerm(0);
    return 0;
}
