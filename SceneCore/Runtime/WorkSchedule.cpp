#include "SceneCore/Runtime/WorkSchedule.h"

#include <atomic>

namespace hushmeadows {

struct WorkSchedule::Token final : Cancellable {
    std::atomic<bool> cancelled{false};
    void cancel() override { cancelled.store(true); }
    bool isCancelled() const override { return cancelled.load(); }
};

std::shared_ptr<Cancellable> WorkSchedule::add(double due, double interval, std::function<void()> work)
{
    auto token = std::make_shared<Token>();
    std::lock_guard lock(mutex_);
    entries_.insert(Entry{due, nextSequence_++, interval, token, std::make_shared<std::function<void()>>(std::move(work))});
    return token;
}

void WorkSchedule::dropCancelledLocked() const
{
    for (auto it = entries_.begin(); it != entries_.end();) {
        if (it->token->isCancelled())
            it = entries_.erase(it);
        else
            ++it;
    }
}

std::optional<WorkSchedule::Due> WorkSchedule::takeDue(double time)
{
    std::lock_guard lock(mutex_);
    dropCancelledLocked();
    if (entries_.empty() || entries_.begin()->due > time)
        return std::nullopt;
    Entry entry = *entries_.begin();
    entries_.erase(entries_.begin());
    if (entry.interval > 0)
        entries_.insert(Entry{entry.due + entry.interval, nextSequence_++, entry.interval, entry.token, entry.work});
    // The token is checked again at run time so that work cancelled by an
    // earlier item of the same pass does not run.
    auto token = entry.token;
    auto work = entry.work;
    return Due{entry.due, [token, work] {
                   if (!token->isCancelled())
                       (*work)();
               }};
}

std::optional<double> WorkSchedule::nextDueTime() const
{
    std::lock_guard lock(mutex_);
    dropCancelledLocked();
    if (entries_.empty())
        return std::nullopt;
    return entries_.begin()->due;
}

std::size_t WorkSchedule::size() const
{
    std::lock_guard lock(mutex_);
    dropCancelledLocked();
    return entries_.size();
}

void WorkSchedule::clear()
{
    std::lock_guard lock(mutex_);
    entries_.clear();
}

} // namespace hushmeadows
