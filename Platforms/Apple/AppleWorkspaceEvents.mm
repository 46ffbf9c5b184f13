#import "Platforms/Apple/AppleWorkspaceEvents.h"

#import "Platforms/Apple/ApplePaths.h"
#import "Platforms/Apple/ScopedObserver.h"

#import <AppKit/AppKit.h>

#include "Platforms/Apple/ExceptionBarrier.h"

#include <array>

namespace hushmeadows {

struct AppleWorkspaceEvents::Observers {
    std::array<std::unique_ptr<ScopedObserver>, 4> observers;
};

AppleWorkspaceEvents::AppleWorkspaceEvents() : observers_(std::make_unique<Observers>())
{
    NSNotificationCenter* center = [NSWorkspace sharedWorkspace].notificationCenter;
    AppleWorkspaceEvents* owner = this;
    auto watch = [&](NSNotificationName name, Suspension reason, bool suspended) {
        return std::make_unique<ScopedObserver>(center, name, nil, [NSOperationQueue mainQueue], ^(NSNotification* note) {
            std::string noteName = utf8Text(note.name);
            exceptionBarrier("workspace notification", [owner, reason, suspended, &noteName] { owner->deliver(reason, suspended, noteName); });
        });
    };
    observers_->observers = {
        watch(NSWorkspaceWillSleepNotification, Suspension::systemSleep, true),
        watch(NSWorkspaceDidWakeNotification, Suspension::systemSleep, false),
        watch(NSWorkspaceScreensDidSleepNotification, Suspension::displaySleep, true),
        watch(NSWorkspaceScreensDidWakeNotification, Suspension::displaySleep, false),
    };
}

AppleWorkspaceEvents::~AppleWorkspaceEvents() = default;

void AppleWorkspaceEvents::observe(Handler handler) { handlers_.push_back(std::move(handler)); }

AppleWorkspaceEvents::Token AppleWorkspaceEvents::observeSuspensions(SuspensionHandler handler)
{
    Token token = next_++;
    suspensionHandlers_[token] = std::move(handler);
    return token;
}

void AppleWorkspaceEvents::removeSuspensionObserver(Token token) { suspensionHandlers_.erase(token); }

bool AppleWorkspaceEvents::holds(Suspension reason) const
{
    switch (reason) {
    case Suspension::systemSleep: return systemAsleep_;
    case Suspension::displaySleep: return displaysAsleep_;
    case Suspension::noWindow:
    case Suspension::occluded: return false;
    }
    return false;
}

void AppleWorkspaceEvents::deliver(Suspension reason, bool suspended, const std::string& name)
{
    (reason == Suspension::systemSleep ? systemAsleep_ : displaysAsleep_) = suspended;
    if (suspended) {
        // Copies: a handler may add or remove handlers.
        auto handlers = handlers_;
        for (auto& handler : handlers)
            handler(name);
    }
    auto suspensionHandlers = suspensionHandlers_;
    for (auto& [token, handler] : suspensionHandlers) {
        if (suspensionHandlers_.contains(token))
            handler(reason, suspended);
    }
}

} // namespace hushmeadows
