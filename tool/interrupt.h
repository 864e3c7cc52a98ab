// SIGINT and SIGTERM end the tool between two steps, so that temporary files go and nothing is left half done.
#pragma once

namespace yfs::tool {

void watch_for_interrupts();

// Fails with interrupted if a signal has come.
void stop_if_interrupted();

// While one of these lives, a signal waits: what it guards is done whole.
class uninterrupted {
public:
    uninterrupted();
    uninterrupted(const uninterrupted&) = delete;
    uninterrupted& operator=(const uninterrupted&) = delete;
    ~uninterrupted();
};

} // namespace yfs::tool
