#include "Platforms/Linux/TerminationSignals.h"

#include "SceneCore/Runtime/Precondition.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace hushmeadows {

namespace {

std::atomic<int> signalPipe{-1};

void writeSignal(int signal)
{
    const int saved = errno;
    const int fd = signalPipe.load();
    if (fd >= 0) {
        const unsigned char byte = static_cast<unsigned char>(signal);
        // Nothing to do when the pipe is full: a signal is already waiting.
        [[maybe_unused]] auto written = ::write(fd, &byte, 1);
    }
    errno = saved;
}

// The watcher stops when it reads this; no signal has number 0.
constexpr unsigned char stopByte = 0;

} // namespace

TerminationSignals::TerminationSignals(std::function<void(int)> onSignal, std::optional<std::chrono::milliseconds> exitWithin)
    : onSignal_(std::move(onSignal))
    , exitWithin_(exitWithin)
{
    int fds[2];
    HM_PRECONDITION(::pipe2(fds, O_CLOEXEC) == 0, "the signal pipe needs two file descriptors");
    readEnd_ = fds[0];
    writeEnd_ = fds[1];
    ::fcntl(writeEnd_, F_SETFL, ::fcntl(writeEnd_, F_GETFL) | O_NONBLOCK);
    int expected = -1;
    HM_PRECONDITION(signalPipe.compare_exchange_strong(expected, writeEnd_), "only one TerminationSignals may exist at a time");

    watcher_ = std::thread([this] { watch(); });

    struct sigaction action {};
    action.sa_handler = writeSignal;
    sigemptyset(&action.sa_mask);
    // Interrupted calls elsewhere in the program carry on.
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGTERM, &action, &previousTerm_);
    ::sigaction(SIGINT, &action, &previousInt_);
}

TerminationSignals::~TerminationSignals()
{
    ::sigaction(SIGTERM, &previousTerm_, nullptr);
    ::sigaction(SIGINT, &previousInt_, nullptr);
    signalPipe.store(-1);
    unsigned char byte = stopByte;
    // A full pipe empties as the watcher reads it.
    while (::write(writeEnd_, &byte, 1) < 0 && (errno == EINTR || errno == EAGAIN))
        std::this_thread::yield();
    watcher_.join();
    ::close(readEnd_);
    ::close(writeEnd_);
}

void TerminationSignals::watch()
{
    for (;;) {
        unsigned char byte = stopByte;
        const auto got = ::read(readEnd_, &byte, 1);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0 || byte == stopByte)
            return;
        onSignal_(byte);
        if (exitWithin_) {
            if (stoppedWithin(*exitWithin_))
                return;
            std::_Exit(0);
        }
    }
}

bool TerminationSignals::stoppedWithin(std::chrono::milliseconds wait) const
{
    const auto deadline = std::chrono::steady_clock::now() + wait;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return false;
        pollfd ready{readEnd_, POLLIN, 0};
        if (::poll(&ready, 1, static_cast<int>(left.count())) <= 0)
            continue; // interrupted, or the time is up (seen at the top)
        unsigned char byte = 0;
        // Further signals while the stop runs change nothing; only the stop byte ends the wait.
        if (::read(readEnd_, &byte, 1) == 1 && byte == stopByte)
            return true;
    }
}

} // namespace hushmeadows
