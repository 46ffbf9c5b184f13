#include "Platforms/Linux/LinuxPowerEvents.h"

#include "SceneCore/Runtime/Log.h"

#if HUSHMEADOWS_HAS_LOGIND
#include <systemd/sd-bus.h>
#endif
#if HUSHMEADOWS_HAS_DPMS
#include <X11/Xlib.h>
#include <X11/extensions/dpms.h>
#endif

namespace hushmeadows {

LinuxPowerEvents::LinuxPowerEvents(RunLoop& mainLoop)
    : mainLoop_(mainLoop)
    , self_(std::make_shared<LinuxPowerEvents*>(this))
{
}

LinuxPowerEvents::~LinuxPowerEvents()
{
    stopping_.store(true);
    self_.reset();
    if (sleepThread_.joinable())
        sleepThread_.join();
    if (displayTimer_)
        displayTimer_->cancel();
#if HUSHMEADOWS_HAS_DPMS
    if (display_)
        XCloseDisplay(static_cast<Display*>(display_));
#endif
}

void LinuxPowerEvents::observe(Handler handler)
{
    handlers_.push_back(std::move(handler));
    startWatching();
}

void LinuxPowerEvents::observeSuspensions(SuspensionHandler handler)
{
    suspensionHandlers_.push_back(std::move(handler));
    startWatching();
}

void LinuxPowerEvents::startWatching()
{
    if (watching_)
        return;
    watching_ = true;
#if HUSHMEADOWS_HAS_LOGIND
    sleepThread_ = std::thread([this] { watchSleep(); });
#endif
#if HUSHMEADOWS_HAS_DPMS
    Display* display = XOpenDisplay(nullptr);
    int eventBase = 0;
    int errorBase = 0;
    if (display && DPMSQueryExtension(display, &eventBase, &errorBase) && DPMSCapable(display)) {
        display_ = display;
        std::weak_ptr<LinuxPowerEvents*> weak = self_;
        displayTimer_ = mainLoop_.scheduleRepeating(1.0, [weak] {
            if (auto alive = weak.lock())
                (*alive)->pollDisplay();
        });
    } else if (display) {
        XCloseDisplay(display);
    }
#endif
}

void LinuxPowerEvents::deliverSleep(bool goingToSleep)
{
    std::weak_ptr<LinuxPowerEvents*> weak = self_;
    mainLoop_.post([weak, goingToSleep] {
        auto alive = weak.lock();
        if (!alive)
            return;
        if (goingToSleep)
            for (const auto& handler : (*alive)->handlers_)
                handler(sleepSignalName);
        for (const auto& handler : (*alive)->suspensionHandlers_)
            handler(Suspension::systemSleep, goingToSleep);
    });
}

void LinuxPowerEvents::pollDisplay()
{
#if HUSHMEADOWS_HAS_DPMS
    CARD16 level = DPMSModeOn;
    BOOL enabled = False;
    if (!DPMSInfo(static_cast<Display*>(display_), &level, &enabled))
        return;
    bool on = level == DPMSModeOn;
    if (on == displayWasOn_)
        return;
    displayWasOn_ = on;
    // Delivered straight away: this already runs on the main loop.
    if (!on)
        for (const auto& handler : handlers_)
            handler(displaySleepName);
    for (const auto& handler : suspensionHandlers_)
        handler(Suspension::displaySleep, !on);
#endif
}

void LinuxPowerEvents::watchSleep()
{
#if HUSHMEADOWS_HAS_LOGIND
    sd_bus* bus = nullptr;
    if (sd_bus_open_system(&bus) < 0) {
        Log::audio.info("No system bus: sleep is not watched");
        return;
    }
    // No sender filter: a signal from elsewhere can at worst silence the saver.
    int added = sd_bus_add_match(bus, nullptr,
                                 "type='signal',interface='org.freedesktop.login1.Manager',member='PrepareForSleep',"
                                 "path='/org/freedesktop/login1'",
                                 [](sd_bus_message* message, void* context, sd_bus_error*) -> int {
                                     int goingToSleep = 0;
                                     if (sd_bus_message_read(message, "b", &goingToSleep) >= 0)
                                         static_cast<LinuxPowerEvents*>(context)->deliverSleep(goingToSleep != 0);
                                     return 0;
                                 },
                                 this);
    if (added < 0) {
        sd_bus_unref(bus);
        return;
    }
    while (!stopping_.load()) {
        int processed = sd_bus_process(bus, nullptr);
        if (processed < 0)
            break;
        if (processed == 0)
            sd_bus_wait(bus, 200'000); // microseconds: wake up to notice the stop
    }
    sd_bus_flush_close_unref(bus);
#endif
}

} // namespace hushmeadows
