#pragma once

#include "SceneCore/Runtime/Image.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace hushmeadows {

// Recycles the pixel buffers of video frames: a buffer that nobody but the
// pool holds any more is handed out again, so a steady stream of frames of
// one size allocates nothing. Safe to use from any thread.
class ImagePool {
public:
    // A buffer of the given size and format, opaque, with unspecified pixels.
    // It returns to the pool when the last holder lets go of it.
    std::shared_ptr<Image> take(int width, int height, PixelFormat format);

    // Buffers the pool holds, in use or free.
    std::size_t size() const;

private:
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<Image>> images_;
};

} // namespace hushmeadows
