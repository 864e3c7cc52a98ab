#include "tool/output.h"

#include "tool/error.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <unistd.h>

namespace yfs::tool {

void print(std::string_view data)
{
    while (!data.empty()) {
        const ssize_t n = ::write(STDOUT_FILENO, data.data(), data.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && errno == EPIPE) throw output_closed{};
        if (n < 0) {
            throw failure(fault::output_failed,
                          fmt::format("can't write to standard output: {}", std::generic_category().message(errno)));
        }
        data.remove_prefix(static_cast<std::size_t>(n));
    }
}

void print_contents(const bytes& contents, bool force)
{
    if (!force && ::isatty(STDOUT_FILENO) == 1 && !is_text(contents)) {
        throw failure(fault::binary_to_terminal,
                      fmt::format("{} of binary data don't go to a terminal", bytes_text(contents.size())),
                      "redirect them into a file, or say --force");
    }
    print({reinterpret_cast<const char*>(contents.data()), contents.size()});
}

void show_progress(std::string_view text)
{
    if (::isatty(STDERR_FILENO) == 1) print_error(fmt::format("\r{}\x1b[K", text));
}

void end_progress()
{
    show_progress("");
}

void note(std::string_view text)
{
    print_error(fmt::format("yfs: {}\n", text));
}

void print_error(std::string_view text)
{
    std::fwrite(text.data(), 1, text.size(), stderr);
}

} // namespace yfs::tool
