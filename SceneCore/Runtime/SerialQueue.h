#pragma once

#include <functional>
#include <string>

namespace hushmeadows {

// Work that runs off the main thread, one item at a time in submission order.
// Results go back to the main thread through RunLoop::post.
class SerialQueue {
public:
    virtual ~SerialQueue() = default;
    virtual const std::string& label() const = 0;
    virtual void async(std::function<void()> work) = 0;
};

} // namespace hushmeadows
