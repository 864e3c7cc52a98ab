// An EFS image on a strict chip beside a map of what must be in it, and the operations on both.
#pragma once

#include "inspect/efs_picture.h"
#include "tests/support/efs_builder.h"
#include "tests/support/efs_chip.h"
#include "tests/support/volume_builder.h"
#include "yfs/make_efs.h"
#include "yfs/status.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace yfs::test {

using blob = std::vector<std::uint8_t>;
using efs_contents = std::map<unsigned, blob>; // files that exist, by index

enum class efs_call { write, remove, idle };
struct efs_operation {
    efs_call call;
    unsigned file = 0;
    blob data = {};
};

inline std::ostream& operator<<(std::ostream& out, const efs_operation& op)
{
    static constexpr const char* names[] = {"write of ", "delete of ", "idle reclaim, "};
    return out << names[static_cast<int>(op.call)] << "file " << op.file << ", " << op.data.size() << " bytes";
}

inline std::uint32_t run(const efs_operation& op)
{
    if (op.call == efs_call::remove) return EFS_delete(op.file);
    if (op.call == efs_call::idle) return EFS_idle_reclaim();
    blob data = op.data;
    data.push_back(0); // not null when empty
    return EFS_write(op.file, 0, static_cast<std::uint32_t>(op.data.size()), data.data());
}

// Several files in the first block, one in the last, one over four blocks where there are as many.
inline std::vector<efs_file_t> usual_files(const efs::geometry& geo)
{
    std::vector<efs_file_t> files = {efs_entry(0, 0, 300), efs_entry(0, 320, 64), efs_entry(0, 400, 200),
                                     efs_entry(geo.valid_block_num - 1, 2000, 900)};
    if (geo.valid_block_num > 7) files.push_back(efs_entry(0, 3900, 9000));
    return files;
}

// The image that a format gives; the table stays in use.
inline blob fresh_image(const efs::geometry& geo, std::vector<efs_file_t> files, std::uint32_t threshold)
{
    use_efs_table(geo, std::move(files), 0, threshold);
    blob image(EFS_get_efs_size());
    EXPECT_EQ(yfs_make_efs(image.data(), EFS_get_efs_size()), 0U);
    return image;
}

// What the library reads from the mounted image. A file that it can't read gets a size that none has.
inline efs_contents read_mounted()
{
    efs_contents seen;
    for (unsigned file = 0; file < g_efs_files_num; ++file) {
        std::uint32_t length = EFS_files[file].max_size + 1U;
        blob data(length);
        const std::uint32_t status = EFS_read(file, 0, &length, data.data());
        if (status == efs_status::not_found) continue;
        data.resize(status == 0 ? length : 0x10000);
        seen[file] = std::move(data);
    }
    return seen;
}

// An image on its chip, under the library for as long as this lives.
struct efs_rig {
    blob image;
    efs_contents files;
    nor_chip chip;

    explicit efs_rig(blob start, efs_contents with = {}) : image(std::move(start)), files(std::move(with)), chip(image)
    {
        use_efs_chip(&chip);
    }
    efs_rig(const efs_rig&) = delete;
    ~efs_rig() { use_efs_chip(nullptr); }

    std::uint32_t mount() { return EFS_init_tools(image.data()); }
    // Runs it and keeps the map in step. 0, or the status of what failed.
    std::uint32_t perform(const efs_operation& op)
    {
        const std::uint32_t status = run(op);
        if (status == 0 && op.call == efs_call::write) files[op.file] = op.data;
        if (status == 0 && op.call == efs_call::remove) files.erase(op.file);
        return status;
    }
    // Whether either reader finds other files than the map, and, unless the image was damaged on purpose, what the
    // second reader says against it.
    std::string trouble(bool damaged = false) const
    {
        const auto picture = inspect::inspect_efs(image, inspect::loaded_efs_plan());
        std::string said;
        for (const auto& finding : picture.findings)
            if (!damaged && !picture.clean()) said += describe(finding) + '\n';
        for (std::size_t p = 0; efs_ctx.scan_done != 0 && p < picture.blocks.size(); ++p)
            if (efs_ctx.block_ec[p] != picture.blocks[p].erase_count) said += "another erase count\n";
        if (efs_ctx.scan_done != 0 && efs_ctx.free_block_count != picture.free_spares) said += "other free spares\n";
        for (unsigned file = 0; file < g_efs_files_num; ++file) {
            const auto found = read_file(picture, file);
            const auto due = files.find(file);
            if (due == files.end() ? found.has_value() : found != due->second)
                said += "the second reader differs on a file\n";
        }
        if (read_mounted() != files) said += "the library reads other files\n";
        return said;
    }
};

} // namespace yfs::test
