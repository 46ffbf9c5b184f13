#pragma once

#include "SceneCore/Runtime/SerialQueue.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace hushmeadows {

// A serial queue on one worker thread of its own. Work still queued when the
// queue is destroyed runs before the thread ends.
class ThreadSerialQueue final : public SerialQueue {
public:
    explicit ThreadSerialQueue(std::string label);
    ~ThreadSerialQueue() override;

    const std::string& label() const override { return label_; }
    void async(std::function<void()> work) override;

private:
    void drain();

    std::string label_;
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<std::function<void()>> work_;
    bool stopping_ = false;
    std::thread worker_;
};

} // namespace hushmeadows
