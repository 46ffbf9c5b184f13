#pragma once

#include "SceneCore/Runtime/SerialQueue.h"

#include <deque>
#include <functional>
#include <mutex>
#include <string>

namespace hushmeadows::testing {

// A serial queue that runs its work only when the test says so, on the test's
// thread, so that "before the decode finishes" is a state a test can hold.
class ManualSerialQueue final : public SerialQueue {
public:
    explicit ManualSerialQueue(std::string label) : label_(std::move(label)) {}

    const std::string& label() const override { return label_; }
    void async(std::function<void()> work) override
    {
        std::lock_guard lock(mutex_);
        work_.push_back(std::move(work));
    }

    // Runs everything queued so far, and what that queues in turn.
    void runAll()
    {
        std::unique_lock lock(mutex_);
        while (!work_.empty()) {
            auto next = std::move(work_.front());
            work_.pop_front();
            lock.unlock(); // the work may queue more
            next();
            lock.lock();
        }
    }

private:
    std::string label_;
    mutable std::mutex mutex_;
    std::deque<std::function<void()>> work_;
};

} // namespace hushmeadows::testing
