#include "tests/power_cut/rig.h"

#include "yfs/medium.h"

#include <algorithm>
#include <iostream>

namespace yfs::test {

std::string operation::text() const
{
    static constexpr const char* names[] = {"write",        "delete",       "mark zombie",
                                            "idle reclaim", "full reclaim", "dirty erase"};
    return std::string(names[static_cast<int>(what)]) + " file " + std::to_string(file) + " offset " +
           std::to_string(offset) + " length " + std::to_string(data.size()) + (ends_file ? ", ends there" : "");
}

void operation::apply(contents& files) const
{
    if (what == kind::remove) files.erase(file);
    if (what != kind::write) return;
    std::vector<std::uint8_t>& now = files[file];
    const std::size_t end = offset + data.size();
    if (ends_file || (end > now.size() && !data.empty())) now.resize(end);
    std::copy(data.begin(), data.end(), now.begin() + (data.empty() ? 0 : offset));
}

std::uint32_t operation::run() const
{
    const auto len = static_cast<std::uint32_t>(data.size());
    if (what == kind::write) return dfs_write(file, offset, len, data.data(), ends_file ? 1 : 0);
    if (what == kind::remove) return dfs_delete_file(file);
    if (what == kind::mark_zombie) return dfs_mark_zombie_file(file);
    if (what == kind::idle_reclaim) return dfs_idle_reclaim();
    if (what == kind::dirty_erase) return dfs_force_dirty_erase();
    std::uint32_t status = afs_status::call_again;
    for (int i = 0; i < 256 && status == afs_status::call_again; ++i) status = dfs_force_full_reclaim();
    return status;
}

std::uint32_t rig::perform(const operation& op)
{
    const std::uint32_t status = op.run();
    if (status == afs_status::ok) op.apply(files);
    return status;
}

void count_up(std::vector<std::uint8_t>& image, std::uint32_t delta)
{
    for (std::size_t at = 0; at < image.size(); at += ftl::eu_size) {
        auto header = load<ftl::eu_header_t>(image.data() + at);
        const le32 magic = std::exchange(header.magic, le32{ftl::eu_magic});
        header.seq = header.seq + delta;
        header.crc = crc8(&header, ftl::header_crc_bytes);
        header.magic = magic;
        store(image.data() + at, header);
    }
}

tally the_tally{};

class report : public testing::Environment {
    void TearDown() override
    {
        const tally& t = the_tally;
        std::cout << "power cuts: " << t.cuts << ", lost: " << t.lost << "\n  " << t.built_in
                  << " of them with the medium replaced and built in; the old state " << t.old_state
                  << " times, the new one " << t.new_state << " times\nrandom steps: " << t.random_steps << ", with "
                  << t.random_cuts << " power cuts\n";
    }
};
static const auto* const s_report = testing::AddGlobalTestEnvironment(new report);

} // namespace yfs::test
