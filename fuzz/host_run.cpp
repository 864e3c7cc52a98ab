// A whole run of the facade over five buffers with changed places: start, values by name, the end, and a second run
// over what came out.
#include "fuzz/host_steps.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::input in(data, size);
    fuzz::host_set set = fuzz::sound_set();
    const std::uint32_t which = in.number(1);
    if ((which & 1U) != 0) set.ftbl = fuzz::patched(set.ftbl, in);
    if ((which & 2U) != 0) set.velor = fuzz::patched(set.velor, in);
    if ((which & 4U) != 0) set.zonc = fuzz::patched(set.zonc, in);
    if ((which & 8U) != 0) set.yfs = fuzz::patched_host_volume(in);
    if ((which & 16U) != 0) set.efs = fuzz::patched_efs(in);
    if ((which & 32U) != 0) fuzz::set_length(set.efs, in.number(2) % (set.efs.size() + 1));
    const bool started = fuzz::start_run(set);
    fuzz::use_values(in);
    fuzz::end_and_repeat(set, started && (which & 1U) == 0); // a changed file table can give two paths one file
    return 0;
}
