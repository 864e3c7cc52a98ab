// A zonc.cfg partition, as it comes or changed, in a run without volumes: start, values, the end, and a second run over
// the table that was built.
#include "fuzz/host_steps.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::input in(data, size);
    const fuzz::host_set& sound = fuzz::sound_set();
    fuzz::host_set set{sound.ftbl, sound.velor, {}, {}, {}};
    const bool plain = in.number(1) % 2 == 0;
    set.zonc = plain ? in.rest() : fuzz::patched(sound.zonc, in);
    const bool started = fuzz::start_run(set);
    fuzz::use_values(in);
    fuzz::end_and_repeat(set, started);
    return 0;
}
