#pragma once

#include <atomic>

namespace hushmeadows {

// Timer and display-link callbacks delivered in this process, the
// superclass's animation timer (animateOneFrame) included. The host keeps the
// process and its views after a run; the bundle's harness reads these to
// prove that after a will-stop none of them comes again. Plain atomics: no
// destructor runs at exit.
struct CallbackCounts {
    static inline std::atomic<long> timers{0};
    static inline std::atomic<long> displayLinks{0};
};

} // namespace hushmeadows
