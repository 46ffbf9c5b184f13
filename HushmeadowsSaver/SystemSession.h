#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace hushmeadows {

// A process the saver watches: the system's screen saver engine.
class WatchedProcess {
public:
    virtual ~WatchedProcess() = default;
    virtual bool isTerminated() const = 0;
};

struct RunningApplication {
    std::shared_ptr<WatchedProcess> process;
    std::string bundleIdentifier;
    std::optional<double> launchDate; // seconds since some fixed epoch
};

// What the session tells about itself: running applications, the screen
// lock, and how long since the last input.
class SystemSession {
public:
    virtual ~SystemSession() = default;
    virtual std::vector<RunningApplication> runningApplications() const = 0;
    // The session dictionary's "CGSSessionScreenIsLocked" when it is a Boolean.
    virtual std::optional<bool> screenIsLocked() const = 0;
    // Seconds since the last input event of any kind.
    virtual double idleSeconds() const = 0;
};

} // namespace hushmeadows
