#pragma once

#include "SceneCore/Runtime/RunLoop.h"
#include "SceneCore/Runtime/WorkSchedule.h"

#include <atomic>

namespace hushmeadows {

// A run loop on virtual time: nothing runs until the owner advances it. Tests
// use it to make a 4-second fade take no time and land exactly; offline audio
// rendering uses it to keep timers in step with the samples rendered.
class ManualRunLoop final : public RunLoop {
public:
    explicit ManualRunLoop(double startTime = 0);

    void post(std::function<void()> work) override;
    std::shared_ptr<Cancellable> postAfter(double delay, std::function<void()> work) override;
    std::shared_ptr<Cancellable> scheduleRepeating(double interval, std::function<void()> work) override;
    double mediaTime() const override;

    // Runs everything due up to now + seconds, in time order, with the clock
    // set to each item's due time while it runs; then sets the clock to the end.
    void advance(double seconds);

    // Runs what is due now (posted work included), without moving the clock.
    void runPending();

    std::size_t pendingCount() const { return schedule_.size(); }

private:
    WorkSchedule schedule_;
    std::atomic<double> now_;
};

} // namespace hushmeadows
