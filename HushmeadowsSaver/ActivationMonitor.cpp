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

void ActivationMonitor::install(NotificationCenter& distributedCenter)
{
    if (installed_)
        return;
    installed_ = true;
    distributedCenter.addObserver(didStartName, [this](const Notification& notification) {
        bool fromPreferences = false;
        if (auto it = notification.userInfo.find(runFromPrefKey); it != notification.userInfo.end()) {
            if (const bool* flag = std::get_if<bool>(&it->second))
                fromPreferences = *flag;
        }
        state_ = State::running(fromPreferences);
        Log::saver.notice("didstart runFromPref=%{bool}d", fromPreferences);
    });
    distributedCenter.addObserver(didStopName, [this](const Notification&) { state_ = State::stopped(); });
}

} // namespace hushmeadows
