#include "SceneCore/Runtime/ImagePool.h"

#include <algorithm>
#include <atomic>

namespace hushmeadows {

std::shared_ptr<Image> ImagePool::take(int width, int height, PixelFormat format)
{
    std::lock_guard lock(mutex_);
    // Buffers of another size belong to an earlier file: let them go once free.
    std::erase_if(images_, [&](const std::shared_ptr<Image>& image) {
        return image.use_count() == 1 && (image->width != width || image->height != height || image->format != format);
    });
    // use_count() == 1 means only the pool holds it; nobody can take a new
    // reference except through this lock, so the answer cannot go stale.
    auto free = std::ranges::find_if(images_, [](const std::shared_ptr<Image>& image) { return image.use_count() == 1; });
    if (free != images_.end()) {
        // Pairs with the release of the last outside holder, whose reads of
        // the pixels must finish before the next frame overwrites them.
        std::atomic_thread_fence(std::memory_order_acquire);
        return *free;
    }
    auto image = std::make_shared<Image>(Image::blank(width, height, format));
    image->opaque = true;
    images_.push_back(image);
    return image;
}

std::size_t ImagePool::size() const
{
    std::lock_guard lock(mutex_);
    return images_.size();
}

} // namespace hushmeadows
