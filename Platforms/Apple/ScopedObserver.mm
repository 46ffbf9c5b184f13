#import "Platforms/Apple/ScopedObserver.h"

#include <atomic>

namespace hushmeadows {

namespace {
std::atomic<long> liveObservers{0};
}

ScopedObserver::ScopedObserver(NSNotificationCenter* center, NSNotificationName name, id object, NSOperationQueue* queue,
                               void (^block)(NSNotification* note))
    : center_(center)
    , token_([center addObserverForName:name object:object queue:queue usingBlock:block])
{
    ++liveObservers;
}

ScopedObserver::~ScopedObserver()
{
    [center_ removeObserver:token_];
    --liveObservers;
}

long ScopedObserver::liveCount() { return liveObservers.load(); }

} // namespace hushmeadows
