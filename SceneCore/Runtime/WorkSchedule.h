#pragma once

#include "SceneCore/Runtime/RunLoop.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>

namespace hushmeadows {

// The time-ordered work of a run loop, independent of its clock. Entries due
// at the same time run in the order they were added. Thread-safe.
class WorkSchedule {
public:
    std::shared_ptr<Cancellable> add(double due, double interval, std::function<void()> work);

    // Removes and returns the earliest entry due at or before `time`, with its
    // due time. A repeating entry is put back one interval later.
    struct Due {
        double time;
        std::function<void()> work;
    };
    std::optional<Due> takeDue(double time);

    std::optional<double> nextDueTime() const;
    std::size_t size() const;
    void clear();

private:
    struct Token;
    struct Entry {
        double due;
        std::uint64_t sequence;
        double interval; // 0 for one-shot
        std::shared_ptr<Token> token;
        std::shared_ptr<std::function<void()>> work;
        bool operator<(const Entry& other) const
        {
            return due != other.due ? due < other.due : sequence < other.sequence;
        }
    };

    void dropCancelledLocked() const;

    mutable std::mutex mutex_;
    mutable std::set<Entry> entries_;
    std::uint64_t nextSequence_ = 0;
};

} // namespace hushmeadows
