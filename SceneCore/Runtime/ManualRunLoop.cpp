#include "SceneCore/Runtime/ManualRunLoop.h"

#include <algorithm>

namespace hushmeadows {

ManualRunLoop::ManualRunLoop(double startTime) : now_(startTime) {}

void ManualRunLoop::post(std::function<void()> work)
{
    schedule_.add(now_.load(), 0, std::move(work));
}

std::shared_ptr<Cancellable> ManualRunLoop::postAfter(double delay, std::function<void()> work)
{
    return schedule_.add(now_.load() + std::max(delay, 0.0), 0, std::move(work));
}

std::shared_ptr<Cancellable> ManualRunLoop::scheduleRepeating(double interval, std::function<void()> work)
{
    double step = std::max(interval, 1e-6);
    return schedule_.add(now_.load() + step, step, std::move(work));
}

double ManualRunLoop::mediaTime() const { return now_.load(); }

void ManualRunLoop::advance(double seconds)
{
    double end = now_.load() + std::max(seconds, 0.0);
    while (auto due = schedule_.takeDue(end)) {
        now_.store(std::max(now_.load(), due->time));
        due->work();
    }
    now_.store(end);
}

void ManualRunLoop::runPending() { advance(0); }

} // namespace hushmeadows
