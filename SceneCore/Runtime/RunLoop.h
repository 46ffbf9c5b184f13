#pragma once

#include <functional>
#include <memory>

namespace hushmeadows {

// A handle to delayed or repeating work on a run loop. Cancelling is
// idempotent and takes effect before the next time the work would run.
class Cancellable {
public:
    virtual ~Cancellable() = default;
    virtual void cancel() = 0;
    virtual bool isCancelled() const = 0;
};

// The main thread's run loop. All state of the core lives on the thread that
// runs it; "main thread" in the core means "the RunLoop you were given".
// post() may be called from any thread; everything else from the loop's own.
class RunLoop {
public:
    virtual ~RunLoop() = default;

    // Runs work on the loop's thread, after the work already posted.
    virtual void post(std::function<void()> work) = 0;

    // Runs work once, delay seconds from now, unless cancelled first.
    virtual std::shared_ptr<Cancellable> postAfter(double delay, std::function<void()> work) = 0;

    // Runs work every interval seconds until cancelled. The first run is one
    // interval from now.
    virtual std::shared_ptr<Cancellable> scheduleRepeating(double interval, std::function<void()> work) = 0;

    // Monotonic seconds; the clock of fades and frame times.
    virtual double mediaTime() const = 0;
};

} // namespace hushmeadows
