#pragma once

#include "HushmeadowsSaver/NotificationCenter.h"

#include <string>

namespace hushmeadows {

// The last thing the system's screen saver said about itself: started (and
// whether from the system's settings) or stopped. One per process: the host
// makes it once and hands it to every view, which install() it; only the
// first install observes.
class ActivationMonitor {
public:
    static constexpr const char* didStartName = "com.apple.screensaver.didstart";
    static constexpr const char* didStopName = "com.apple.screensaver.didstop";
    static constexpr const char* runFromPrefKey = "runFromPref";

    class State {
    public:
        enum class Kind { running, unknown, stopped };

        static State running(bool fromPreferences) { return State(Kind::running, fromPreferences); }
        static State unknown() { return State(Kind::unknown, false); }
        static State stopped() { return State(Kind::stopped, false); }

        Kind kind() const { return kind_; }
        bool fromPreferences() const { return fromPreferences_; }
        // "running(fromPreferences: false)", "unknown", "stopped".
        std::string description() const;
        bool operator==(const State&) const = default;

    private:
        State(Kind kind, bool fromPreferences) : kind_(kind), fromPreferences_(fromPreferences) {}
        Kind kind_;
        bool fromPreferences_;
    };

    // Observes didstart and didstop on the centre once; later calls do
    // nothing. The observers live as long as the monitor.
    void install(NotificationCenter& distributedCenter);
    bool isInstalled() const { return installed_; }

    const State& state() const { return state_; }

private:
    State state_ = State::unknown();
    bool installed_ = false;
};

} // namespace hushmeadows
