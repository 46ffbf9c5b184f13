#include "HushmeadowsSaver/SaverRuns.h"

#include "SceneCore/Runtime/Log.h"

#include <algorithm>

namespace hushmeadows {

SaverRuns::SaverRuns(std::function<void()> connectSystem)
    : connectSystem_(std::move(connectSystem))
    , activation_(freshMonitor())
{
}

ActivationMonitor SaverRuns::freshMonitor()
{
    return ActivationMonitor([this](ActivationMonitor&) {
        if (connected_)
            return;
        connected_ = true;
        if (connectSystem_)
            connectSystem_();
    });
}

void SaverRuns::join(Instance instance, std::function<void()> willStop)
{
    if (runEnded_) {
        runEnded_ = false;
        Log::saver.notice("new run: activation state of the last run (%{public}s) set aside", activation_.state().description());
        // Same object, new state: every view's reference stays valid.
        activation_ = freshMonitor();
        activation_.install();
    }
    auto it = std::ranges::find(live_, instance, &std::pair<Instance, std::function<void()>>::first);
    if (it != live_.end())
        it->second = std::move(willStop);
    else
        live_.emplace_back(instance, std::move(willStop));
}

void SaverRuns::leave(Instance instance)
{
    std::erase_if(live_, [instance](const auto& entry) { return entry.first == instance; });
}

bool SaverRuns::isLive(Instance instance) const
{
    return std::ranges::find(live_, instance, &std::pair<Instance, std::function<void()>>::first) != live_.end();
}

void SaverRuns::screenSaverWillStop()
{
    runEnded_ = true;
    // Taken out first: a handler may make its instance leave, or join again.
    auto ending = std::exchange(live_, {});
    for (auto& [instance, willStop] : ending) {
        if (willStop)
            willStop();
    }
}

void SaverRuns::screenSaverDidStart(bool fromPreferences)
{
    // Heard after the last run ended: it belongs to the new run.
    runEnded_ = false;
    activation_.screenSaverDidStart(fromPreferences);
}

void SaverRuns::screenSaverDidStop() { activation_.screenSaverDidStop(); }

} // namespace hushmeadows
