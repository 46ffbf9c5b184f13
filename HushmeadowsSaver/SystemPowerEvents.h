#pragma once

#include <functional>
#include <string>

namespace hushmeadows {

// The machine going to sleep, or its displays going dark: either must cut the
// sound at once. The handler runs on the main thread with the signal's name.
class SystemPowerEvents {
public:
    using Handler = std::function<void(const std::string& name)>;
    virtual ~SystemPowerEvents() = default;
    virtual void observe(Handler handler) = 0;
};

} // namespace hushmeadows
