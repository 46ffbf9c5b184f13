#pragma once

#include "HushmeadowsSaver/SystemPowerEvents.h"
#include "SceneCore/Runtime/RunLoop.h"

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace hushmeadows {

// Sleep signals on Linux: logind's PrepareForSleep(true) on the system bus
// (when built with libsystemd) and the X display's DPMS state leaving "on"
// (when built with libXext; polled once a second on the main loop). Either
// source that is missing at build or run time is simply not watched.
class LinuxPowerEvents final : public SystemPowerEvents {
public:
    static constexpr const char* sleepSignalName = "org.freedesktop.login1.Manager.PrepareForSleep";
    static constexpr const char* displaySleepName = "DPMS off";

    explicit LinuxPowerEvents(RunLoop& mainLoop);
    ~LinuxPowerEvents() override;

    void observe(Handler handler) override;

    // Which sources are being watched, for the log and for tests.
    bool watchesSleep() const { return sleepThread_.joinable(); }
    bool watchesDisplaySleep() const { return display_ != nullptr; }

private:
    void deliver(const char* name);
    void watchSleep();
    void pollDisplay();

    RunLoop& mainLoop_;
    std::vector<Handler> handlers_;
    std::shared_ptr<LinuxPowerEvents*> self_;
    std::atomic<bool> stopping_{false};
    std::thread sleepThread_;
    void* display_ = nullptr; // Display*, kept opaque so X11's macros stay out of this header
    bool displayWasOn_ = true;
    std::shared_ptr<Cancellable> displayTimer_;
};

} // namespace hushmeadows
