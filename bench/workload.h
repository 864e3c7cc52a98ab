// A measured stretch of work of the library, small enough to be run one instruction counted at a time. `make` does
// everything that doesn't belong to it and gives the stretch itself, which is run once.
#pragma once

#include "bench/scenario.h"

namespace bench {

struct workload {
    const char* id;
    const char* what;
    std::uint32_t operations; // the figures are for each of them
    double mark;              // thousand instructions an operation that are good enough; 0: none
    double stretch;           // that would be better; 0: none
    std::function<std::function<void()>()> make;
};

std::vector<workload> volume_workloads();
std::vector<workload> host_workloads();
std::vector<workload> efs_workloads();
std::vector<workload> growth_workloads(); // how cost grows: no marks

} // namespace bench
