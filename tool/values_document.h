// Values of a set as a JSON document, for 'nvar export', 'nvar import' and 'build':
// {"schema": "yfs.values/1", "sku": 17, "values": {"/home/net/uplink": "utf8:wan0", "/home/net/mac": "hex:8b22..."}}
#pragma once

#include "tool/json.h"
#include "tool/session.h"

#include <filesystem>
#include <map>
#include <string>

namespace yfs::tool {

// By path, as the file table spells it.
using named_values = std::map<std::string, bytes>;

// Those in force in a set.
named_values values_in_force(session& set);

json to_document(const named_values& values, std::uint32_t sku);

// The members of an object {PATH: VALUE}; files that it names count from `folder`. `where` is for messages. Fails with
// usage.
named_values parse_values(const json& members, const std::filesystem::path& folder, const std::string& where);

// A set (its file or folder) or an exported document, whichever `name` is.
named_values read_values(const std::string& name);

} // namespace yfs::tool
