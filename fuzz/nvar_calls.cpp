// Sound buffers, and any sequence of calls: with or without zonc.cfg, volume and EFS, values got, resized and written,
// rebuilds in between, the end, and a second run.
#include "fuzz/host_steps.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::input in(data, size);
    fuzz::host_set set = fuzz::sound_set();
    const std::uint32_t without = in.number(1);
    if ((without & 1U) != 0) set.zonc.clear();
    if ((without & 2U) != 0) set.yfs.clear();
    if ((without & 4U) != 0) set.efs.clear();
    const std::uint32_t sku = (without & 0x18U) == 0x18 ? 9 : 7;
    const bool started = fuzz::start_run(set, sku);
    fuzz::must(started || (without & 4U) != 0 || sku == 9); // a file on EFS is asked for
    fuzz::use_values(in);
    fuzz::end_and_repeat(set, started, sku);
    return 0;
}
