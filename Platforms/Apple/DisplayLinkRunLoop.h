#pragma once

#include "SceneCore/Runtime/RunLoop.h"

#include <memory>

namespace hushmeadows {

// The run loop a view's picture runs on: everything goes to the main run
// loop, except repeating work, which follows the display link of the view
// (NSView's, in step with the display the view is on, and silent while the
// view is hidden or on no display). Its target is a weak proxy, so the link
// keeps neither the view nor the work alive; cancelling invalidates it.
// Without the view any more, repeating work falls back to the main run
// loop's timer. Main thread only.
class DisplayLinkRunLoop final : public RunLoop {
public:
    // view: an NSView*, held weakly; passed opaquely so this header stays
    // plain C++.
    DisplayLinkRunLoop(RunLoop& mainLoop, void* view);
    ~DisplayLinkRunLoop() override;
    DisplayLinkRunLoop(const DisplayLinkRunLoop&) = delete;
    DisplayLinkRunLoop& operator=(const DisplayLinkRunLoop&) = delete;

    void post(std::function<void()> work) override { mainLoop_.post(std::move(work)); }
    std::shared_ptr<Cancellable> postAfter(double delay, std::function<void()> work) override
    {
        return mainLoop_.postAfter(delay, std::move(work));
    }
    std::shared_ptr<Cancellable> scheduleRepeating(double interval, std::function<void()> work) override;
    double mediaTime() const override { return mainLoop_.mediaTime(); }

private:
    struct View;
    RunLoop& mainLoop_;
    std::unique_ptr<View> view_;
};

} // namespace hushmeadows
