// Changes of a session in memory. Each works on the working copies, tells `done` which files it means, and answers what
// it did, for the note at the end; saving is done for all of them alike, and so are the tests of what a power cut would
// leave of them.
#pragma once

#include "tool/changes.h"

#include <string>

namespace yfs::tool {

struct options;

using edit = std::string (*)(session&, const options&, changes& done);

// Of files in the images.
std::string put_file(session& set, const options& given, changes& done);
std::string remove_file(session& set, const options& given, changes& done);
std::string import_folder(session& set, const options& given, changes& done);

// Of values: whole runs of the library.
std::string set_value(session& set, const options& given, changes& done);
std::string import_values(session& set, const options& given, changes& done);

// Of images as such.
std::string reclaim(session& set, const options& given, changes& done);
std::string wipe(session& set, const options& given, changes& done);
std::string repair(session& set, const options& given, changes& done);

// Several edits, all or none.
std::string batch(session& set, const options& given, changes& done);

} // namespace yfs::tool
