#include "Platforms/Linux/ThreadSerialQueue.h"

#include <pthread.h>

namespace hushmeadows {

ThreadSerialQueue::ThreadSerialQueue(std::string label)
    : label_(std::move(label))
    , worker_([this] { drain(); })
{
    // Linux keeps thread names to 15 characters; the tail of the label is the
    // telling part ("posters", "loop-streamer").
    std::string shortName = label_.size() > 15 ? label_.substr(label_.size() - 15) : label_;
    pthread_setname_np(worker_.native_handle(), shortName.c_str());
}

ThreadSerialQueue::~ThreadSerialQueue()
{
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    ready_.notify_one();
    worker_.join();
}

void ThreadSerialQueue::async(std::function<void()> work)
{
    {
        std::lock_guard lock(mutex_);
        work_.push_back(std::move(work));
    }
    ready_.notify_one();
}

void ThreadSerialQueue::drain()
{
    for (;;) {
        std::function<void()> next;
        {
            std::unique_lock lock(mutex_);
            ready_.wait(lock, [this] { return stopping_ || !work_.empty(); });
            if (work_.empty())
                return;
            next = std::move(work_.front());
            work_.pop_front();
        }
        next();
    }
}

} // namespace hushmeadows
