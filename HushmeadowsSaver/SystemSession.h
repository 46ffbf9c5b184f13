#pragma once

#include <memory>
#include <optional>
#include <vector>

namespace hushmeadows {

// A process the saver watches: the system's screen saver engine.
class WatchedProcess {
public:
    virtual ~WatchedProcess() = default;
    virtual bool isTerminated() const = 0;
};

// A process the host recognises as the screen saver engine.
struct EngineProcess {
    std::shared_ptr<WatchedProcess> process;
    std::optional<double> launchDate; // seconds since some fixed epoch
};

// What the session tells about itself: the screen saver engine's processes,
// the screen lock, and how long since the last input.
class SystemSession {
public:
    virtual ~SystemSession() = default;
    // Every process the host takes for the engine, live or ended; none when
    // the host has no engine to watch.
    virtual std::vector<EngineProcess> engineProcesses() const = 0;
    // Whether the session says its screen is locked, when it says.
    virtual std::optional<bool> screenIsLocked() const = 0;
    // Seconds since the last input event of any kind.
    virtual double idleSeconds() const = 0;
};

} // namespace hushmeadows
