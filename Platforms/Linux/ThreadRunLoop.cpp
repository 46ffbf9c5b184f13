#include "Platforms/Linux/ThreadRunLoop.h"

#include <algorithm>
#include <chrono>

namespace hushmeadows {

namespace {
double monotonicSeconds()
{
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}
} // namespace

ThreadRunLoop::ThreadRunLoop() = default;

double ThreadRunLoop::mediaTime() const { return monotonicSeconds(); }

void ThreadRunLoop::post(std::function<void()> work)
{
    schedule_.add(mediaTime(), 0, std::move(work));
    wake();
}

std::shared_ptr<Cancellable> ThreadRunLoop::postAfter(double delay, std::function<void()> work)
{
    auto token = schedule_.add(mediaTime() + std::max(delay, 0.0), 0, std::move(work));
    wake();
    return token;
}

std::shared_ptr<Cancellable> ThreadRunLoop::scheduleRepeating(double interval, std::function<void()> work)
{
    double step = std::max(interval, 1e-4);
    auto token = schedule_.add(mediaTime() + step, step, std::move(work));
    wake();
    return token;
}

void ThreadRunLoop::wake()
{
    {
        std::lock_guard lock(mutex_);
        woken_ = true;
    }
    wakeUp_.notify_one();
}

void ThreadRunLoop::setEventPump(std::function<void(double)> pump) { pump_ = std::move(pump); }

void ThreadRunLoop::runOnce(double maxWait)
{
    double now = mediaTime();
    while (auto due = schedule_.takeDue(now)) {
        due->work();
        if (quit_.load())
            return;
    }
    double wait = maxWait;
    if (auto next = schedule_.nextDueTime())
        wait = std::clamp(*next - mediaTime(), 0.0, maxWait);
    if (pump_) {
        pump_(wait);
        return;
    }
    std::unique_lock lock(mutex_);
    wakeUp_.wait_for(lock, std::chrono::duration<double>(wait), [this] { return woken_ || quit_.load(); });
    woken_ = false;
}

void ThreadRunLoop::run()
{
    quit_.store(false);
    while (!quit_.load())
        runOnce(0.25);
}

bool ThreadRunLoop::runUntil(const std::function<bool()>& predicate, double timeout)
{
    double end = mediaTime() + timeout;
    quit_.store(false);
    while (!predicate()) {
        double left = end - mediaTime();
        if (left <= 0 || quit_.load())
            return predicate();
        runOnce(std::min(left, 0.05));
    }
    return true;
}

void ThreadRunLoop::quit()
{
    quit_.store(true);
    wake();
}

} // namespace hushmeadows
