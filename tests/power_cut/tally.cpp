#include "tests/power_cut/tally.h"

#include <gtest/gtest.h>

#include <iostream>

namespace yfs::test {

tally& the_tally()
{
    static tally t;
    return t;
}

bool has_unrecorded_frames(const inspect::picture& cut)
{
    return cut.has(inspect::finding_id::frame_unrecorded);
}

bool has_torn_header_that_checks(const inspect::picture& cut)
{
    return cut.has(inspect::finding_id::eu_incomplete_discarded) &&
           cut.eus[cut.spare].header.erase_count > cut.highest_seq;
}

namespace {

class report : public testing::Environment {
public:
    void TearDown() override
    {
        const tally& t = the_tally();
        std::cout << "power cuts: " << t.cuts << ", lost: " << t.lost
                  << ", listed states: " << t.frames + t.torn_headers << "\n  " << t.frames
                  << " copies of a log reclaim without records\n  " << t.torn_headers
                  << " torn header that passes its checksum (" << t.torn_headers_lost
                  << " of them fail a later reclaim)\n  after the cut the old state " << t.old_state
                  << " times, the new one " << t.new_state << " times\nrandom steps: " << t.random_steps << ", with "
                  << t.random_cuts << " power cuts\n";
    }
};
const auto* const s_report = testing::AddGlobalTestEnvironment(new report);

} // namespace

} // namespace yfs::test
