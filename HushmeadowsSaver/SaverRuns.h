#pragma once

#include "HushmeadowsSaver/ActivationMonitor.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

namespace hushmeadows {

// The screen saver instances alive in this process and the run they take part
// in. The modern host keeps the process and its views after a run, often
// without calling stopAnimation, and reuses them for the next run; so the
// engine's will-stop is what ends a run, for every instance at once, and what
// the activation monitor heard in an earlier run must not judge the next one.
//
// A run ends with the will-stop: every live instance gets its own will-stop
// and leaves. The first instance to join after that (a new view, or an old one
// started again) begins a new run, and the monitor starts over from unknown,
// unless the new run's didstart already came, in which case it is fresh and
// kept. Main thread only.
class SaverRuns {
public:
    using Instance = std::uint64_t;

    // connectSystem starts the delivery of the system's didstart and didstop
    // to screenSaverDidStart/DidStop; it is called once, at the first install
    // of the monitor.
    explicit SaverRuns(std::function<void()> connectSystem);
    SaverRuns(const SaverRuns&) = delete;
    SaverRuns& operator=(const SaverRuns&) = delete;

    // The monitor the views read; the same object for the life of this one.
    ActivationMonitor& activation() { return activation_; }

    // An instance takes part in the current run; willStop tears down its
    // picture and sound. Joining again replaces the handler.
    void join(Instance instance, std::function<void()> willStop);
    // Out of the run, without a will-stop (its destruction).
    void leave(Instance instance);
    bool isLive(Instance instance) const;
    std::size_t liveCount() const { return live_.size(); }

    // The engine's will-stop.
    void screenSaverWillStop();
    void screenSaverDidStart(bool fromPreferences);
    void screenSaverDidStop();

private:
    ActivationMonitor freshMonitor();

    std::function<void()> connectSystem_;
    bool connected_ = false;
    ActivationMonitor activation_;
    std::vector<std::pair<Instance, std::function<void()>>> live_;
    bool runEnded_ = false;
};

} // namespace hushmeadows
