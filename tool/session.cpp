#include "tool/session.h"

#include <system_error>

namespace yfs::tool {

namespace {

working_copy read_copy(const set_file& set, const std::string& name)
{
    working_copy copy;
    copy.path = set.locate(name);
    copy.before = read_file(copy.path);
    copy.now = copy.before;
    return copy;
}

std::optional<working_copy> read_copy(const set_file& set, const std::optional<std::string>& name)
{
    if (!name) return {};
    return read_copy(set, *name);
}

std::optional<working_copy> read_zonc(const set_file& set)
{
    std::error_code ignored;
    if (set.zonc && !std::filesystem::exists(set.locate(*set.zonc), ignored)) return {};
    return read_copy(set, set.zonc);
}

} // namespace

session::session(const std::string& named)
    : set(read_set_file(named)),
      ftbl(read_copy(set, set.ftbl)),
      velor(read_copy(set, set.velor)),
      zonc(read_zonc(set)),
      yfs(read_copy(set, set.yfs)),
      efs(read_copy(set, set.efs)),
      table(set, ftbl.before)
{
}

} // namespace yfs::tool
