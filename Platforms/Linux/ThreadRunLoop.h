#pragma once

#include "SceneCore/Runtime/RunLoop.h"
#include "SceneCore/Runtime/WorkSchedule.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>

namespace hushmeadows {

// The main run loop on Linux: runs posted and timed work on the thread that
// calls run(), sleeping in between. A platform event source (SDL) can be
// polled through setEventPump, which is called with the longest time it may
// block before the next timed work is due.
class ThreadRunLoop final : public RunLoop {
public:
    ThreadRunLoop();

    void post(std::function<void()> work) override;
    std::shared_ptr<Cancellable> postAfter(double delay, std::function<void()> work) override;
    std::shared_ptr<Cancellable> scheduleRepeating(double interval, std::function<void()> work) override;
    double mediaTime() const override;

    // Runs until quit() is called (from any thread).
    void run();
    // Runs until the predicate holds or `timeout` seconds pass; true when it held.
    bool runUntil(const std::function<bool()>& predicate, double timeout);
    void quit();

    // The pump must return within maxWait seconds; wake() interrupts the loop's
    // own wait, but not the pump's.
    void setEventPump(std::function<void(double maxWait)> pump);

private:
    void runOnce(double maxWait);
    void wake();

    WorkSchedule schedule_;
    std::mutex mutex_;
    std::condition_variable wakeUp_;
    bool woken_ = false;
    std::atomic<bool> quit_{false};
    std::function<void(double)> pump_;
};

} // namespace hushmeadows
