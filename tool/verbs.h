// What each verb does. The grammar, in main.cpp, fills the options; a verb prints its data and answers the exit status,
// or throws a failure.
#pragma once

#include "tool/error.h"

#include <string>
#include <vector>

namespace yfs::tool {

struct options {
    std::string set;                 // --set; empty: the working directory
    std::string path;                // of a file or a value
    std::string source = "-";        // put: the file with the contents
    std::string value;               // nvar set: FILE, utf8:TEXT or hex:BYTES
    std::string folder;              // sample
    std::vector<std::string> images; // check; empty: those of the set
    bool json = false;               // one document instead of text
    bool long_list = false;          // ls -l
    bool force = false;              // binary data to a terminal
    bool drop_unknown = false;       // nvar set: a rebuild may lose records
};

exit_status info(const options& given);
exit_status list_files(const options& given);
exit_status cat(const options& given);
exit_status put(const options& given);
exit_status remove(const options& given);

exit_status check(const options& given);
exit_status explain(const options& given);

exit_status list_values(const options& given);
exit_status get_value(const options& given);
exit_status set_value(const options& given);

exit_status make_sample(const options& given);

} // namespace yfs::tool
