// What a replacement of the media and of the memory shows of itself.
#pragma once

#include <cstdint>

struct replacement_state {
    uint32_t chip_calls;
    uint32_t efs_calls;
    uint32_t out_of_memory; // set: every allocation fails
};
