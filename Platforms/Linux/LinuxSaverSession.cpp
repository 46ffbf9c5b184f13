#include "Platforms/Linux/LinuxSaverSession.h"

namespace hushmeadows {

LinuxSaverSession::LinuxSaverSession(X11SaverDisplay& display, std::shared_ptr<WatchedProcess> engine)
    : display_(display)
    , engine_(std::move(engine))
{
}

std::vector<EngineProcess> LinuxSaverSession::engineProcesses() const
{
    if (!engine_)
        return {};
    return {EngineProcess{engine_, std::nullopt}};
}

std::optional<bool> LinuxSaverSession::screenIsLocked() const
{
    auto state = display_.daemonState();
    if (state == X11SaverDisplay::DaemonState::absent)
        return std::nullopt;
    return state == X11SaverDisplay::DaemonState::lock;
}

} // namespace hushmeadows
