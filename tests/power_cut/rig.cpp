#include "tests/power_cut/rig.h"

#include "yfs/dfs.h"
#include "yfs/medium.h"
#include "yfs/status.h"

#include <algorithm>

namespace yfs::test {

std::string to_string(const operation& op)
{
    static constexpr const char* names[] = {"write",        "delete",       "mark zombie",
                                            "idle reclaim", "full reclaim", "dirty erase"};
    std::string out = names[static_cast<int>(op.what)];
    if (op.what > operation::kind::mark_zombie) return out;
    out += " file " + std::to_string(op.file);
    if (op.what != operation::kind::write) return out;
    return out + " offset " + std::to_string(op.offset) + " length " + std::to_string(op.data.size()) +
           (op.ends_file ? ", ends there" : "");
}

void apply(contents& files, const operation& op)
{
    if (op.what == operation::kind::remove) files.erase(op.file);
    if (op.what != operation::kind::write) return;
    std::vector<std::uint8_t>& file = files[op.file];
    const std::size_t end = op.offset + op.data.size();
    if (op.ends_file || (end > file.size() && !op.data.empty())) file.resize(end);
    std::copy(op.data.begin(), op.data.end(), file.begin() + (op.data.empty() ? 0 : op.offset));
}

std::uint32_t run(const operation& op)
{
    switch (op.what) {
    case operation::kind::write:
        return dfs_write(op.file, op.offset, static_cast<std::uint32_t>(op.data.size()), op.data.data(),
                         op.ends_file ? 1 : 0);
    case operation::kind::remove:
        return dfs_delete_file(op.file);
    case operation::kind::mark_zombie:
        return dfs_mark_zombie_file(op.file);
    case operation::kind::idle_reclaim:
        return dfs_idle_reclaim();
    case operation::kind::dirty_erase:
        return dfs_force_dirty_erase();
    case operation::kind::full_reclaim:
        break;
    }
    std::uint32_t status = afs_status::call_again;
    for (int i = 0; i < 256 && status == afs_status::call_again; ++i) status = dfs_force_full_reclaim();
    return status;
}

bool file_reads_as(const contents& files, unsigned number)
{
    const auto expected = files.find(number);
    std::uint32_t size = 0;
    const std::uint32_t status = dfs_getsize(number, &size);
    if (expected == files.end()) return status == afs_status::not_found;
    if (status != afs_status::ok || size != expected->second.size()) return false;
    static std::vector<std::uint8_t> buffer(0x40000);
    std::uint32_t len = size;
    return dfs_read(number, 0, &len, buffer.data()) == afs_status::ok && len == size &&
           std::equal(expected->second.begin(), expected->second.end(), buffer.begin());
}

bool reads_as(const contents& files, unsigned& number)
{
    for (const auto& [n, content] : files) {
        number = n;
        if (!file_reads_as(files, n)) return false;
    }
    return true;
}

std::uint32_t rig::mount()
{
    use_spi_chip(&chip);
    return dfs_init(image.data(), static_cast<std::uint32_t>(image.size()));
}

std::uint32_t rig::perform(const operation& op)
{
    const std::uint32_t status = run(op);
    if (status == afs_status::ok) apply(files, op);
    return status;
}

void shift_sequence(std::vector<std::uint8_t>& image, std::uint32_t delta)
{
    for (std::size_t at = 0; at + ftl::eu_size <= image.size(); at += ftl::eu_size) {
        auto header = load<ftl::eu_header_t>(image.data() + at);
        const std::uint32_t magic = header.magic;
        header.seq = header.seq + delta;
        header.magic = ftl::eu_magic;
        header.crc = crc8(&header, ftl::header_crc_bytes);
        header.magic = magic;
        store(image.data() + at, header);
    }
}

} // namespace yfs::test
