#include "tool/interrupt.h"

#include "tool/error.h"

#include <csignal>

namespace yfs::tool {

namespace {

volatile std::sig_atomic_t signalled = 0;
constexpr int signals[] = {SIGINT, SIGTERM, SIGHUP};

sigset_t all_signals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : signals) sigaddset(&set, signal);
    return set;
}

} // namespace

void watch_for_interrupts()
{
    struct sigaction action = {};
    action.sa_handler = [](int signal) { signalled = signal; };
    for (const int signal : signals) {
        struct sigaction former = {};
        sigaction(signal, nullptr, &former);
        if (former.sa_handler != SIG_IGN) sigaction(signal, &action, nullptr); // a caller's nohup stays in force
    }
}

void stop_if_interrupted()
{
    if (signalled != 0) throw failure(fault::interrupted, "interrupted; nothing was changed");
}

uninterrupted::uninterrupted()
{
    const sigset_t set = all_signals();
    sigprocmask(SIG_BLOCK, &set, nullptr);
}

uninterrupted::~uninterrupted()
{
    const sigset_t set = all_signals();
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

} // namespace yfs::tool
