#pragma once

#include "SceneCore/Runtime/Log.h"

#include <exception>
#include <utility>

namespace hushmeadows {

// Runs work that the system calls into (AppKit, notification blocks, the
// display link): no exception may unwind into the system's frames, where it
// would end the host process with every other screen saver in it. A failure is
// logged with the entry's name instead. True when the work ran to its end.
template <typename Work>
bool exceptionBarrier(const char* entry, Work&& work) noexcept
{
    try {
        std::forward<Work>(work)();
        return true;
    } catch (const std::exception& error) {
        try {
            Log::saver.error("%{public}s failed: %{private}s", entry, error.what());
        } catch (...) {
        }
    } catch (...) {
        try {
            Log::saver.error("%{public}s failed with an exception that is not a standard one", entry);
        } catch (...) {
        }
    }
    return false;
}

} // namespace hushmeadows
