#pragma once

#include <csignal>
#include <functional>
#include <thread>

namespace hushmeadows {

// SIGTERM and SIGINT, turned into a call on a thread of our own where any
// code may run: the handler itself only writes the signal's number to a pipe
// (all a handler may safely do), and a watcher thread reads it. One instance
// at a time; the previous handlers come back when it goes.
class TerminationSignals {
public:
    // onSignal runs on the watcher thread, once for every signal received.
    explicit TerminationSignals(std::function<void(int signal)> onSignal);
    ~TerminationSignals();

    TerminationSignals(const TerminationSignals&) = delete;
    TerminationSignals& operator=(const TerminationSignals&) = delete;

private:
    void watch();

    std::function<void(int)> onSignal_;
    int readEnd_ = -1;
    int writeEnd_ = -1;
    struct sigaction previousTerm_ {};
    struct sigaction previousInt_ {};
    std::thread watcher_;
};

} // namespace hushmeadows
