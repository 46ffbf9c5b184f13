#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <variant>

namespace hushmeadows {

using NotificationValue = std::variant<bool, std::int64_t, double, std::string>;

struct Notification {
    std::string name;
    std::optional<std::string> object;
    std::map<std::string, NotificationValue> userInfo;
};

// A notification centre: the system's distributed one on macOS; on Linux the
// host turns its own signals (the XScreenSaver window, SIGTERM) into the same
// notifications. Observers are called on the main thread.
class NotificationCenter {
public:
    using Token = std::uint64_t;
    using Handler = std::function<void(const Notification&)>;

    virtual ~NotificationCenter() = default;
    virtual Token addObserver(const std::string& name, Handler handler) = 0;
    virtual void removeObserver(Token token) = 0;
    virtual void post(const Notification& notification) = 0;
};

} // namespace hushmeadows
