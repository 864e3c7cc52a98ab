// extract: every stored file into a folder of the host. Of an image that doesn't mount, what can be read of it.
#include "tool/folder.h"
#include "tool/output.h"
#include "tool/rebuild.h"
#include "tool/verbs.h"
#include "tool/volume.h"

#include <fmt/format.h>

namespace yfs::tool {

namespace {

class extraction {
public:
    explicit extraction(const options& given) : given_(given), set_(given), images_(set_) {}

    exit_status run()
    {
        tolerate([&] { images_.mount_afs(); }, image_kind::afs);
        tolerate([&] { images_.mount_efs(); }, image_kind::efs);
        const target_folder target(given_.folder);
        for (const stored_file& file : images_.files()) {
            tolerate([&] {
                if (file.fault) throw *file.fault;
                write(target, file.row, images_.read(file.row));
            });
        }
        for (const image_kind kind : unmounted_) salvage_from(target, kind);
        note(fmt::format("{} with {} extracted into {}", count_of(count_, "file"), bytes_text(total_), given_.folder));
        return status_;
    }

private:
    // What is damaged is told and passed over: the others are what a user came for.
    template <typename Step>
    void tolerate(const Step& step, std::optional<image_kind> mounts = {})
    {
        try {
            step();
        } catch (const failure& fault) {
            if (status_of(fault.which()) != exit_status::damaged) throw;
            print_error(describe(fault));
            status_ = exit_status::damaged;
            if (mounts) unmounted_.push_back(*mounts);
        }
    }
    void write(const target_folder& target, const file_row& row, const bytes& contents)
    {
        target.write(host_path(row.path), contents, given_.force);
        total_ += contents.size();
        ++count_;
    }
    void salvage_from(const target_folder& target, image_kind kind)
    {
        const working_copy& image = *set_.image(kind);
        const auto saved = salvage_image(image, kind);
        if (!saved) return;
        list_losses(set_, image, kind, *saved);
        for (const auto& [file, contents] : saved->sound) write(target, row_in(set_, kind, file), contents);
    }

    const options& given_;
    session set_;
    volume images_;
    exit_status status_ = exit_status::done;
    std::vector<image_kind> unmounted_;
    std::size_t count_ = 0;
    std::uint64_t total_ = 0;
};

} // namespace

exit_status extract(const options& given)
{
    return extraction(given).run();
}

} // namespace yfs::tool
