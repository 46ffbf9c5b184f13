#pragma once

#include <optional>
#include <string>

namespace hushmeadows {

struct Notification {
    std::string name;
    std::optional<std::string> object;
};

// Where the screen saver announces itself to other programs (the companion
// application): the system's distributed centre on macOS; on Linux nobody
// listens yet, so the host's centre only logs.
class NotificationCenter {
public:
    virtual ~NotificationCenter() = default;
    virtual void post(const Notification& notification) = 0;
};

} // namespace hushmeadows
