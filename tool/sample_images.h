// The images of the sample set, as a device leaves them after some use; the same bytes at every run.
#pragma once

#include "tool/text.h"

namespace yfs::tool {

bytes make_sample_volume();
// `ftbl` tells the layout.
bytes make_sample_efs(const bytes& ftbl);

} // namespace yfs::tool
