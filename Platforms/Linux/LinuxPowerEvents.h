#pragma once

#include "HushmeadowsSaver/SystemPowerEvents.h"
#include "SceneCore/Picture/SceneView.h"
#include "SceneCore/Runtime/RunLoop.h"

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace hushmeadows {

// Sleep signals on Linux: logind's PrepareForSleep on the system bus (when
// built with libsystemd) and the X display's DPMS state (when built with
// libXext; polled once a second on the main loop). Either source that is
// missing at build or run time is simply not watched. observe() hears only
// the machine or the displays going to sleep; observeSuspensions() hears
// both going to sleep and waking, as a scene view's Suspension reasons.
class LinuxPowerEvents final : public SystemPowerEvents {
public:
    static constexpr const char* sleepSignalName = "org.freedesktop.login1.Manager.PrepareForSleep";
    static constexpr const char* displaySleepName = "DPMS off";

    explicit LinuxPowerEvents(RunLoop& mainLoop);
    ~LinuxPowerEvents() override;

    void observe(Handler handler) override;
    using SuspensionHandler = std::function<void(Suspension reason, bool suspended)>;
    void observeSuspensions(SuspensionHandler handler);

    // Which sources are being watched, for the log and for tests.
    bool watchesSleep() const { return sleepThread_.joinable(); }
    bool watchesDisplaySleep() const { return display_ != nullptr; }

private:
    void startWatching();
    void deliverSleep(bool goingToSleep);
    void watchSleep();
    void pollDisplay();

    RunLoop& mainLoop_;
    std::vector<Handler> handlers_;
    std::vector<SuspensionHandler> suspensionHandlers_;
    bool watching_ = false;
    std::shared_ptr<LinuxPowerEvents*> self_;
    std::atomic<bool> stopping_{false};
    std::thread sleepThread_;
    void* display_ = nullptr; // Display*, kept opaque so X11's macros stay out of this header
    bool displayWasOn_ = true;
    std::shared_ptr<Cancellable> displayTimer_;
};

} // namespace hushmeadows
