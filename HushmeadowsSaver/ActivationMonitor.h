#pragma once

#include <functional>
#include <string>

namespace hushmeadows {

// The last thing the system's screen saver said about itself: started (and
// whether from the system's settings) or stopped. One per process: the host
// makes it once, with a way to connect its own signals to the monitor's
// calls, and hands it to every view, which install() it; only the first
// install connects.
class ActivationMonitor {
public:
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

    // connect starts the host's delivery of screenSaverDidStart/DidStop; it
    // may call them at once (a host that knows it was started for real).
    explicit ActivationMonitor(std::function<void(ActivationMonitor&)> connect = {});

    // Connects once; later calls do nothing. The connection lives as long as
    // the monitor.
    void install();
    bool isInstalled() const { return installed_; }

    // The host's calls, on the main thread.
    void screenSaverDidStart(bool fromPreferences);
    void screenSaverDidStop();

    const State& state() const { return state_; }

private:
    std::function<void(ActivationMonitor&)> connect_;
    State state_ = State::unknown();
    bool installed_ = false;
};

} // namespace hushmeadows
