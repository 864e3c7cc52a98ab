// extract: every stored file into a folder of the host.
#include "tool/folder.h"
#include "tool/output.h"
#include "tool/verbs.h"
#include "tool/volume.h"

#include <fmt/format.h>

namespace yfs::tool {

// A damaged file is told and passed over: the others are what a user came for.
exit_status extract(const options& given)
{
    session set(given);
    volume images(set);
    images.mount_afs();
    images.mount_efs();
    const target_folder target(given.folder);
    exit_status status = exit_status::done;
    std::size_t count = 0;
    std::uint64_t total = 0;
    for (const stored_file& file : images.files()) {
        try {
            if (file.fault) throw *file.fault;
            const bytes contents = images.read(file.row);
            target.write(host_path(file.row.path), contents, given.force);
            total += contents.size();
            ++count;
        } catch (const failure& fault) {
            if (status_of(fault.which()) != exit_status::damaged) throw;
            print_error(describe(fault));
            status = exit_status::damaged;
        }
    }
    note(fmt::format("{} with {} extracted into {}", count_of(count, "file"), bytes_text(total), given.folder));
    return status;
}

} // namespace yfs::tool
