#include "tool/files.h"

#include "tool/error.h"
#include "tool/interrupt.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace yfs::tool {

namespace fs = std::filesystem;

namespace {

std::string reason(int error)
{
    return std::generic_category().message(error);
}

class descriptor {
public:
    explicit descriptor(int fd) : fd_(fd) {}
    descriptor(const descriptor&) = delete;
    descriptor& operator=(const descriptor&) = delete;
    ~descriptor()
    {
        if (fd_ > STDERR_FILENO) ::close(fd_);
    }
    int get() const { return fd_; }

private:
    int fd_;
};

// A temporary file beside its target, removed again unless it has taken the target's place.
class temporary {
public:
    explicit temporary(fs::path target);
    temporary(const temporary&) = delete;
    temporary& operator=(const temporary&) = delete;
    ~temporary()
    {
        if (!name_.empty()) ::unlink(name_.c_str());
    }

    void fill(const bytes& contents);
    void take_place(); // renames it over the target
    fs::path folder() const { return target_.has_parent_path() ? target_.parent_path() : fs::path("."); }
    const fs::path& target() const { return target_; }

private:
    [[noreturn]] void fail(std::string_view what, int error) const;
    void remove_leftovers() const;

    fs::path target_; // links followed
    fs::path name_;   // empty once renamed
};

// What a chain of symbolic links ends at, also where that file doesn't exist yet.
fs::path follow_links(fs::path target)
{
    for (int links = 0; links < 40 && fs::is_symlink(fs::symlink_status(target)); ++links) {
        target = target.parent_path() / fs::read_symlink(target); // an absolute one replaces the left side
    }
    return target;
}

temporary::temporary(fs::path target) : target_(follow_links(std::move(target))) {}

void temporary::fail(std::string_view what, int error) const
{
    throw failure(fault::save_failed,
                  fmt::format("can't save {}: {}: {}; nothing was changed", target_.string(), what, reason(error)),
                  fmt::format("the folder {} needs room and the right to make files in it", folder().string()));
}

// Temporary files of a command that was killed long ago.
void temporary::remove_leftovers() const
{
    using namespace std::chrono_literals;
    const std::string prefix = fmt::format(".{}.", target_.filename().string());
    constexpr std::size_t random_letters = 6;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(folder(), ignored)) {
        const std::string name = entry.path().filename().string();
        if (name.size() != prefix.size() + random_letters || !name.starts_with(prefix)) continue;
        const auto written = fs::last_write_time(entry.path(), ignored);
        if (!ignored && entry.is_regular_file(ignored) && fs::file_time_type::clock::now() - written > 1h)
            fs::remove(entry.path(), ignored);
    }
}

void temporary::fill(const bytes& contents)
{
    struct stat old = {};
    const bool exists = ::stat(target_.c_str(), &old) == 0;
    if (exists && !S_ISREG(old.st_mode)) fail("it isn't a regular file", EINVAL);
    if (exists && ::access(target_.c_str(), W_OK) != 0) fail("it is protected", errno);
    remove_leftovers();

    std::string pattern = (folder() / fmt::format(".{}.XXXXXX", target_.filename().string())).string();
    const descriptor out(::mkostemp(pattern.data(), O_CLOEXEC));
    if (out.get() < 0) fail("no temporary file beside it", errno);
    name_ = pattern;

    for (std::size_t done = 0; done < contents.size();) {
        const ssize_t n = ::write(out.get(), contents.data() + done, contents.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) fail("writing the temporary file", errno);
        done += static_cast<std::size_t>(n);
    }
    const mode_t mask = ::umask(0);
    ::umask(mask);
    // Another owner can only be kept by root; for everybody else the file becomes the writer's, as with any new file.
    if (exists && ::fchown(out.get(), old.st_uid, old.st_gid) != 0 && errno != EPERM) fail("its owner", errno);
    if (::fchmod(out.get(), exists ? old.st_mode & 07777U : 0666U & ~mask) != 0) fail("its mode", errno);
    if (::fsync(out.get()) != 0) fail("syncing the temporary file", errno);
}

void temporary::take_place()
{
    if (::rename(name_.c_str(), target_.c_str()) != 0) {
        throw failure(fault::save_failed, fmt::format("can't save {}: {}", target_.string(), reason(errno)));
    }
    name_.clear();
}

void sync_folder(const fs::path& folder)
{
    const descriptor fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // Some file systems can't sync a folder; the files are in place all the same.
    if (fd.get() >= 0) ::fsync(fd.get());
}

} // namespace

file_lock::~file_lock()
{
    if (fd_ >= 0) ::close(fd_); // the lock goes with it
}

namespace {

bool same_file(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// A save puts a new file in the old one's place, and whoever waited for the old one holds a lock on nothing then.
std::optional<file_lock> try_lock(const fs::path& path, bool& gone)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    gone = fd < 0;
    if (gone) return {};
    file_lock lock(fd);
    struct stat held = {}, there = {};
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) return {};
    if (::fstat(fd, &held) != 0 || ::stat(path.c_str(), &there) != 0 || !same_file(held, there)) return {};
    return lock;
}

} // namespace

std::vector<file_lock> lock_files(const std::vector<fs::path>& paths)
{
    using namespace std::chrono_literals;
    const auto patience = std::chrono::steady_clock::now() + 10s;
    std::vector<file_lock> locks;
    std::set<fs::path> taken;
    for (const fs::path& path : paths) {
        std::error_code ignored;
        const fs::path real = fs::weakly_canonical(path, ignored);
        if (path == "-" || !taken.insert(real).second) continue;
        for (bool gone = false; !gone; std::this_thread::sleep_for(20ms)) {
            stop_if_interrupted();
            if (auto lock = try_lock(real, gone)) {
                locks.push_back(*std::move(lock));
                break;
            }
            if (std::chrono::steady_clock::now() < patience) continue;
            throw failure(fault::locked, fmt::format("{} is being changed by another program", path.string()),
                          "try again when it has ended");
        }
    }
    return locks;
}

bytes read_file(const fs::path& path, std::uint64_t limit)
{
    const auto fail = [&](const std::string& why) {
        throw failure(fault::file_unreadable, fmt::format("can't read {}: {}", path.string(), why));
    };
    const descriptor in(path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (in.get() < 0) fail(reason(errno));

    bytes contents;
    for (;;) {
        constexpr std::size_t step = 1U << 16;
        const std::size_t held = contents.size();
        contents.resize(held + step);
        const ssize_t n = ::read(in.get(), contents.data() + held, step);
        contents.resize(held + (n > 0 ? static_cast<std::size_t>(n) : 0));
        if (n < 0 && errno != EINTR) fail(reason(errno));
        stop_if_interrupted();
        if (n < 0) continue;
        if (n == 0) return contents;
        if (contents.size() > limit)
            throw failure(fault::file_unreadable,
                          fmt::format("can't read {}: it holds more than {} bytes", path.string(), limit),
                          "cut out the part that holds the partition, as with dd");
    }
}

void save_list::add(fs::path target, bytes contents)
{
    entries_.push_back({std::move(target), std::move(contents)});
}

void save_list::add_range(const fs::path& target, std::uint64_t offset, const bytes& contents)
{
    const fs::path real = follow_links(target);
    auto found = std::find_if(entries_.begin(), entries_.end(), [&](const entry& each) { return each.target == real; });
    if (found == entries_.end()) {
        entries_.push_back({real, read_file(real, UINT64_MAX)});
        found = std::prev(entries_.end());
    }
    if (found->contents.size() < offset + contents.size())
        throw failure(fault::save_failed, fmt::format("{} has become shorter meanwhile", target.string()));
    std::copy(contents.begin(), contents.end(), found->contents.begin() + static_cast<std::ptrdiff_t>(offset));
}

void save_list::keep_old_files(const std::string& suffix)
{
    std::vector<entry> backups;
    for (const entry& each : entries_) {
        const fs::path real = follow_links(each.target);
        std::error_code ignored;
        if (fs::exists(real, ignored)) backups.push_back({fs::path(real).concat(suffix), read_file(real, UINT64_MAX)});
    }
    backups_ = std::move(backups);
}

void save_list::commit()
{
    stop_if_interrupted();
    const uninterrupted whole;
    std::vector<std::unique_ptr<temporary>> ready;
    for (const auto* list : {&backups_, &entries_})
        for (const entry& each : *list) {
            ready.push_back(std::make_unique<temporary>(each.target));
            ready.back()->fill(each.contents);
        }

    // COMMIT: each rename puts one file in force. The images come before the table, as in a host's own run: a value
    // that an image already holds is taken from there, whatever an older table says.
    std::string in_place;
    std::set<fs::path> folders;
    for (const auto& file : ready) {
        try {
            file->take_place();
        } catch (const failure& error) {
            if (in_place.empty()) throw failure(error.which(), fmt::format("{}; nothing was changed", error.what()));
            throw failure(error.which(), fmt::format("{}; already replaced: {}", error.what(), in_place),
                          "run the same command again once the cause is gone");
        }
        in_place += (in_place.empty() ? "" : ", ") + file->target().string();
        folders.insert(file->folder());
    }
    for (const fs::path& folder : folders) sync_folder(folder);
}

std::string save_list::names() const
{
    std::string text;
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        if (i > 0) text += i + 1 == entries_.size() ? " and " : ", ";
        text += entries_[i].target.filename().string();
    }
    return text;
}

} // namespace yfs::tool
