#include "tests/efs/rig.h"

#include "tests/support/efs_builder.h"
#include "yfs/make_efs.h"
#include "yfs/status.h"

namespace yfs::test {

std::string to_string(const efs_operation& op)
{
    const std::string file = " file " + std::to_string(op.file);
    switch (op.what) {
    case efs_operation::kind::write:
        return "write" + file + ", " + std::to_string(op.data.size()) + " bytes";
    case efs_operation::kind::remove:
        return "delete" + file;
    default:
        return "idle reclaim";
    }
}

efs_table::efs_table(const efs::geometry& of, std::vector<efs_file_t> with, std::uint32_t threshold)
    : geo(of), files(std::move(with))
{
    use_efs_table(geo, files);
    g_efs_wear_leveling_threshold = threshold;
}

efs_table::~efs_table()
{
    EFS_files = nullptr;
    g_efs_files_num = 0;
    efs_image = nullptr;
}

std::vector<std::uint8_t> efs_table::fresh_image() const
{
    std::vector<std::uint8_t> image(EFS_get_efs_size());
    EXPECT_EQ(yfs_make_efs(image.data(), static_cast<std::uint32_t>(image.size())), 0U);
    return image;
}

std::vector<efs_file_t> usual_files(const efs::geometry& geo)
{
    std::vector<efs_file_t> files = {efs_entry(0, 0, 300), efs_entry(0, 320, 64), efs_entry(0, 400, 200)};
    const bool long_one = geo.valid_block_num >= 4 && geo.non_valid_block_num >= 4;
    if (long_one) files.push_back(efs_entry(0, 3900, 9000)); // over blocks 0 to 3
    files.push_back(efs_entry(geo.valid_block_num - 1, long_one ? 2000 : 700, 900));
    return files;
}

void apply(efs_contents& files, const efs_operation& op)
{
    if (op.what == efs_operation::kind::write) files[op.file] = op.data;
    if (op.what == efs_operation::kind::remove) files.erase(op.file);
}

std::uint32_t run(const efs_operation& op)
{
    static const std::uint8_t nothing = 0;
    switch (op.what) {
    case efs_operation::kind::write:
        return EFS_write(op.file, 0, static_cast<std::uint32_t>(op.data.size()),
                         op.data.empty() ? &nothing : op.data.data());
    case efs_operation::kind::remove:
        return EFS_delete(op.file);
    default:
        return EFS_idle_reclaim();
    }
}

bool efs_file_reads_as(const efs_contents& files, unsigned file)
{
    const auto expected = files.find(file);
    std::uint32_t size = 0;
    const std::uint32_t status = EFS_get_file_size(file, &size);
    if (expected == files.end()) return status == efs_status::not_found;
    if (status != 0 || size != expected->second.size()) return false;
    std::vector<std::uint8_t> seen(size + 1);
    std::uint32_t length = size + 1;
    if (EFS_read(file, 0, &length, seen.data()) != 0 || length != size) return false;
    seen.resize(size);
    return seen == expected->second;
}

bool efs_reads_as(const efs_contents& files, unsigned& file)
{
    for (file = 0; file < g_efs_files_num; ++file)
        if (!efs_file_reads_as(files, file)) return false;
    return true;
}

testing::AssertionResult efs_clean(const std::vector<std::uint8_t>& image)
{
    const auto picture = inspect::inspect_efs(image, inspect::loaded_efs_plan());
    if (picture.clean()) return testing::AssertionSuccess();
    auto result = testing::AssertionFailure();
    for (const auto& f : picture.findings) result << "\n  " << describe(f);
    return result;
}

testing::AssertionResult efs_holds(const std::vector<std::uint8_t>& image, const efs_contents& files)
{
    const auto picture = inspect::inspect_efs(image, inspect::loaded_efs_plan());
    for (unsigned file = 0; file < picture.files.size(); ++file) {
        const auto expected = files.find(file);
        const auto seen = read_file(picture, file);
        if (seen.has_value() != (expected != files.end()) || (seen && *seen != expected->second))
            return testing::AssertionFailure() << "file " << file << " differs";
    }
    return testing::AssertionSuccess();
}

std::uint32_t efs_rig::mount()
{
    use_efs_chip(&chip);
    return EFS_init_tools(image.data());
}

std::uint32_t efs_rig::perform(const efs_operation& op)
{
    const std::uint32_t status = run(op);
    if (status == 0) apply(files, op);
    return status;
}

} // namespace yfs::test
