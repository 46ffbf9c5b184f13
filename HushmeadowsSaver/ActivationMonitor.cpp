#include "HushmeadowsSaver/ActivationMonitor.h"

#include "SceneCore/Runtime/Log.h"

namespace hushmeadows {

std::string ActivationMonitor::State::description() const
{
    switch (kind_) {
    case Kind::running:
        return std::string("running(fromPreferences: ") + (fromPreferences_ ? "true" : "false") + ")";
    case Kind::unknown:
        return "unknown";
    case Kind::stopped:
        return "stopped";
    }
    return "unknown";
}

ActivationMonitor::ActivationMonitor(std::function<void(ActivationMonitor&)> connect)
    : connect_(std::move(connect))
{
}

void ActivationMonitor::install()
{
    if (installed_)
        return;
    installed_ = true;
    if (connect_)
        connect_(*this);
}

void ActivationMonitor::screenSaverDidStart(bool fromPreferences)
{
    state_ = State::running(fromPreferences);
    Log::saver.notice("didstart runFromPref=%{bool}d", fromPreferences);
}

void ActivationMonitor::screenSaverDidStop() { state_ = State::stopped(); }

} // namespace hushmeadows
