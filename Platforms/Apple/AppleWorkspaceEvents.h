#pragma once

#include "HushmeadowsSaver/SystemPowerEvents.h"
#include "SceneCore/Picture/SceneView.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace hushmeadows {

// The workspace's sleep and wake notifications (on NSWorkspace's own
// notification centre, not the default one): the machine going to sleep and
// waking, the displays going to sleep and waking. observe() hears only the
// going to sleep, with the notification's name, which must cut the sound;
// observeSuspensions() hears both, as a scene view's Suspension reasons.
// The four observers are added once, with this object, and removed with it.
// Main thread only.
class AppleWorkspaceEvents final : public SystemPowerEvents {
public:
    using SuspensionHandler = std::function<void(Suspension reason, bool suspended)>;
    using Token = std::uint64_t;

    AppleWorkspaceEvents();
    ~AppleWorkspaceEvents() override;
    AppleWorkspaceEvents(const AppleWorkspaceEvents&) = delete;
    AppleWorkspaceEvents& operator=(const AppleWorkspaceEvents&) = delete;

    void observe(Handler handler) override;
    Token observeSuspensions(SuspensionHandler handler);
    void removeSuspensionObserver(Token token);

    // Whether the machine or the displays sleep now (systemSleep,
    // displaySleep; false for the other reasons).
    bool holds(Suspension reason) const;

private:
    struct Observers;
    void deliver(Suspension reason, bool suspended, const std::string& name);

    std::unique_ptr<Observers> observers_;
    std::vector<Handler> handlers_;
    std::map<Token, SuspensionHandler> suspensionHandlers_;
    Token next_ = 1;
    bool systemAsleep_ = false;
    bool displaysAsleep_ = false;
};

} // namespace hushmeadows
