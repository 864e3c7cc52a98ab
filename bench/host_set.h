// The buffers that a host hands to a run, with `count` values, to measure on.
#pragma once

#include "bench/scenario.h"
#include "tests/support/table_builder.h"

#include "yfs/facade.h"

namespace bench {

struct host_set_shape {
    std::uint32_t count;          // entries of the file table and of Velor.cfg
    std::uint32_t override_every; // 1: zonc.cfg has them all too
    bool deployed;                // a volume of 255 erase units holds the live values; for at most 1,000
};

std::string path_of(std::uint32_t i);

struct host_set {
    yfs::test::blob ftbl, velor, zonc, yfs;

    explicit host_set(const host_set_shape& shape);
    YZonInitParams params();
};

} // namespace bench
