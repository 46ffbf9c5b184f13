#pragma once

#include "HushmeadowsSaver/SystemSession.h"
#include "Platforms/Linux/X11SaverDisplay.h"

#include <memory>

namespace hushmeadows {

// The session as the X server and the process that launched us tell it: the
// daemon's lock state and the idle time from X, and the engine (our parent,
// when a daemon runs us on its window; none otherwise).
class LinuxSaverSession final : public SystemSession {
public:
    LinuxSaverSession(X11SaverDisplay& display, std::shared_ptr<WatchedProcess> engine);

    std::vector<EngineProcess> engineProcesses() const override;
    std::optional<bool> screenIsLocked() const override;
    double idleSeconds() const override { return display_.idleSeconds(); }

private:
    X11SaverDisplay& display_;
    std::shared_ptr<WatchedProcess> engine_;
};

} // namespace hushmeadows
