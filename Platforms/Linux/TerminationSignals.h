#pragma once

#include <chrono>
#include <csignal>
#include <functional>
#include <optional>
#include <thread>

namespace hushmeadows {

// SIGTERM and SIGINT, turned into a call on a thread of our own where any
// code may run: the handler itself only writes the signal's number to a pipe
// (all a handler may safely do), and a watcher thread reads it. One instance
// at a time; the previous handlers come back when it goes.
class TerminationSignals {
public:
    // onSignal runs on the watcher thread, once for every signal received.
    // With `exitWithin`, the process ends (status 0) that long after the first
    // signal even when the stop it set going is held up, say by a frame being
    // drawn on a starved machine: a screen saver told to go must be gone, and
    // the kernel releases the display, the sound connection and the locks.
    explicit TerminationSignals(std::function<void(int signal)> onSignal,
                                std::optional<std::chrono::milliseconds> exitWithin = std::nullopt);
    ~TerminationSignals();

    TerminationSignals(const TerminationSignals&) = delete;
    TerminationSignals& operator=(const TerminationSignals&) = delete;

private:
    void watch();

    // Waits for the stop byte until the deadline; false when it passed.
    bool stoppedWithin(std::chrono::milliseconds wait) const;

    std::function<void(int)> onSignal_;
    std::optional<std::chrono::milliseconds> exitWithin_;
    int readEnd_ = -1;
    int writeEnd_ = -1;
    struct sigaction previousTerm_ {};
    struct sigaction previousInt_ {};
    std::thread watcher_;
};

} // namespace hushmeadows
