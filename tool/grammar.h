// The grammar of the command line: which verbs and options there are, what they are called, and what --help says.
#pragma once

#include "tool/verbs.h"

#include <string>

namespace yfs::tool {

using verb = exit_status (*)(const options&);

// What the command line asks for.
struct command {
    options given;
    verb run = nullptr; // null: only `text` is to be printed
    std::string text;   // of --help or --version
};

// Fails with usage; a mistyped verb is told the nearest one.
command parse_command_line(int argc, char** argv);

} // namespace yfs::tool
