// The end of every command: data on standard output, an error on standard error, and an exit status.
#include "tool/error.h"
#include "tool/grammar.h"
#include "tool/interrupt.h"
#include "tool/output.h"

#include <csignal>
#include <exception>
#include <fcntl.h>
#include <unistd.h>

namespace {

using namespace yfs::tool;

exit_status run(int argc, char** argv)
{
    const command asked = parse_command_line(argc, argv);
    if (asked.run != nullptr) return asked.run(asked.given);
    print(asked.text);
    return exit_status::done;
}

// A caller may have closed any of the three standard descriptors. Left closed, the next file opened would take its
// number, and what is printed would go there.
void hold_standard_descriptors()
{
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (::fcntl(fd, F_GETFD) < 0) ::open("/dev/null", O_RDONLY); // for reading: a write to it is still told
    }
}

} // namespace

int main(int argc, char** argv)
{
    hold_standard_descriptors();
    std::signal(SIGPIPE, SIG_IGN); // a reader that goes away ends the tool quietly, and not in the middle of a save
    watch_for_interrupts();
    exit_status status = exit_status::done;
    try {
        status = run(argc, argv);
    } catch (const output_closed&) {
        return static_cast<int>(status);
    } catch (const failure& error) {
        print_error(describe(error));
        status = status_of(error.which());
    } catch (const std::exception& error) {
        const failure unforeseen(fault::library, error.what());
        print_error(describe(unforeseen));
        status = status_of(unforeseen.which());
    }
    return static_cast<int>(status);
}
