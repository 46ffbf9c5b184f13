#pragma once

// Objective-C++ only. One block observer on a notification centre, removed
// when this object goes: every observer the saver adds goes through it, so
// none outlives its owner and the process-wide count shows whether observers
// pile up over runs.

#import <Foundation/Foundation.h>

namespace hushmeadows {

class ScopedObserver {
public:
    // Delivered on `queue` (nil: on the posting thread).
    ScopedObserver(NSNotificationCenter* center, NSNotificationName name, id object, NSOperationQueue* queue,
                   void (^block)(NSNotification* note));
    ~ScopedObserver();
    ScopedObserver(const ScopedObserver&) = delete;
    ScopedObserver& operator=(const ScopedObserver&) = delete;

    // Observers alive in the process.
    static long liveCount();

private:
    NSNotificationCenter* center_;
    id<NSObject> token_;
};

} // namespace hushmeadows
