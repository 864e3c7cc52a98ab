// The two ways out of the tool: data on standard output, everything else on standard error.
#pragma once

#include "tool/text.h"

#include <string_view>

namespace yfs::tool {

// The reader of standard output went away: nothing is wrong, and there is nothing left to do.
struct output_closed {};

// Writes all of it; throws output_closed, or fails with output_failed.
void print(std::string_view data);

// A value or a file as it is. Fails with binary_to_terminal if that is no text and standard output is a terminal,
// unless `force`d.
void print_contents(const bytes& contents, bool force);

// A line on standard error that the next one replaces; on a terminal only.
void show_progress(std::string_view text);
void end_progress();

// On standard error: a line after "yfs: ", or a text as it is.
void note(std::string_view text);
void print_error(std::string_view text);

} // namespace yfs::tool
