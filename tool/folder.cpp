#include "tool/folder.h"

#include "tool/error.h"
#include "tool/files.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace yfs::tool {

namespace fs = std::filesystem;

namespace {

std::string escaped(std::string_view part)
{
    std::string out;
    const bool special = part.empty() || part == "." || part == "..";
    if (part.empty()) out = "%";
    for (const char c : part) {
        const bool plain = c > ' ' && c < 0x7F && c != '%' && !special;
        out += plain ? std::string(1, c) : fmt::format("%{:02x}", static_cast<unsigned char>(c));
    }
    return out;
}

std::vector<std::string_view> parts_of(std::string_view path)
{
    std::vector<std::string_view> parts;
    for (;;) {
        const std::size_t slash = path.find('/');
        parts.push_back(path.substr(0, slash));
        if (slash == std::string_view::npos) return parts;
        path.remove_prefix(slash + 1);
    }
}

int make_folder(int above, const std::string& name)
{
    if (::mkdirat(above, name.c_str(), 0777) != 0 && errno != EEXIST) return -1;
    return ::openat(above, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

} // namespace

std::string host_path(std::string_view path)
{
    if (path.starts_with('/')) path.remove_prefix(1);
    std::string out;
    for (const std::string_view part : parts_of(path)) {
        if (!out.empty()) out += '/';
        out += escaped(part);
    }
    return out;
}

std::optional<std::string> stored_path(std::string_view host_path)
{
    std::string out;
    for (const std::string_view part : parts_of(host_path)) {
        out += '/';
        if (part == "%") continue; // an empty part
        for (std::size_t i = 0; i < part.size(); ++i) {
            if (part[i] != '%') {
                out += part[i];
                continue;
            }
            const auto byte = parse_hex(part.substr(i + 1, 2));
            if (!byte || byte->size() != 1) return {};
            out += static_cast<char>(byte->front());
            i += 2;
        }
    }
    return out;
}

target_folder::target_folder(const std::string& path) : path_(path)
{
    std::error_code ignored;
    if (fs::create_directories(path, ignored); ignored) fail("", ignored.value());
    fd_ = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd_ < 0) fail("", errno);
}

target_folder::~target_folder()
{
    ::close(fd_);
}

void target_folder::fail(const std::string& host_path, int error) const
{
    const std::string place = fs::path(path_) / host_path;
    if (error == EEXIST || error == ENOTDIR || error == ELOOP || error == EISDIR) {
        throw failure(fault::would_overwrite,
                      fmt::format("{} can't be written: something else is there already", place),
                      "name an empty folder, or say --force to replace files");
    }
    throw failure(fault::save_failed, fmt::format("can't write {}: {}", place, std::generic_category().message(error)));
}

void target_folder::write(const std::string& host_path, const bytes& contents, bool force) const
{
    const std::vector<std::string_view> parts = parts_of(host_path);
    int at = ::dup(fd_);
    for (std::size_t i = 0; at >= 0 && i + 1 < parts.size(); ++i) {
        const int next = make_folder(at, std::string(parts[i]));
        const int error = errno;
        ::close(at);
        at = next;
        errno = error;
    }
    if (at < 0) fail(host_path, errno);
    const std::string name(parts.back());
    if (force) ::unlinkat(at, name.c_str(), 0);
    const int out = ::openat(at, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    const int error = errno;
    ::close(at);
    if (out < 0) fail(host_path, error);
    std::size_t written = 0;
    int fault = 0;
    while (written < contents.size() && fault == 0) {
        const ssize_t n = ::write(out, contents.data() + written, contents.size() - written);
        if (n < 0 && errno != EINTR) fault = errno;
        if (n > 0) written += static_cast<std::size_t>(n);
    }
    if (::close(out) != 0 && fault == 0) fault = errno;
    if (fault != 0) fail(host_path, fault);
}

std::vector<folder_file> read_folder(const std::string& folder)
{
    std::vector<folder_file> files;
    try {
        for (const auto& entry : fs::recursive_directory_iterator(folder)) {
            if (!entry.is_regular_file() || entry.is_symlink()) continue;
            const std::string inside = entry.path().lexically_relative(folder).string();
            const auto path = stored_path(inside);
            if (!path) {
                throw failure(fault::usage, fmt::format("{}: a % in a name has to begin two hex digits",
                                                        printable(entry.path().string())));
            }
            files.push_back({*path, read_file(entry.path())});
        }
    } catch (const fs::filesystem_error& error) {
        throw failure(fault::file_unreadable, fmt::format("can't read {}: {}", folder, error.code().message()));
    }
    std::sort(files.begin(), files.end(), [](const folder_file& a, const folder_file& b) { return a.path < b.path; });
    return files;
}

} // namespace yfs::tool
