#include "bench/scenario.h"

namespace bench {

std::vector<scenario> all_scenarios()
{
    std::vector<scenario> all;
    for (auto family : {volume_scenarios, efs_scenarios, host_scenarios}) {
        for (scenario& one : family()) all.push_back(std::move(one));
    }
    return all;
}

} // namespace bench
