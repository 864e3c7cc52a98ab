// Words of a user that aren't among those known.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace yfs::tool {

// The word that takes the fewest letters put in, left out, changed or swapped to become `word`; the first such. Empty
// if nothing is known.
std::string nearest(std::string_view word, const std::vector<std::string>& known);

} // namespace yfs::tool
