#pragma once

#include "SceneCore/Runtime/SerialQueue.h"

#include <string>

namespace hushmeadows {

// A serial queue that runs its work at once on the calling thread: for
// offline rendering, where reading ahead must never fall behind the render.
class ImmediateSerialQueue final : public SerialQueue {
public:
    explicit ImmediateSerialQueue(std::string label) : label_(std::move(label)) {}
    const std::string& label() const override { return label_; }
    void async(std::function<void()> work) override { work(); }

private:
    std::string label_;
};

} // namespace hushmeadows
