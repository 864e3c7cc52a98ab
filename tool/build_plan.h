// What 'build' makes a set from: keys of the set file beside those that every verb reads.
//   "afs":    {"size": 131072, "files": 128}      the volume to make for "yfs"
//   "files":  {"/home/net/uplink": "uplink.txt", "afs#40": "hex:00ff"}    what the images hold
//   "values": {"net/uplink": "utf8:wan0"}         values to set, in one run, once the files are there
// Sources are "utf8:TEXT", "hex:BYTES", or files, which count from the folder of the set file.
#pragma once

#include "tool/set_file.h"
#include "tool/values_document.h"

#include <filesystem>
#include <vector>

namespace yfs::tool {

struct build_plan {
    std::uint64_t afs_size = 0; // 0: the set has no AFS volume, or its size isn't told
    std::uint32_t afs_files = 1024;
    named_values files;
    named_values values;
    std::vector<std::filesystem::path> inputs; // every file that was read
};

// Fails with set_invalid, usage, file_unreadable.
build_plan read_build_plan(const set_file& set);

} // namespace yfs::tool
