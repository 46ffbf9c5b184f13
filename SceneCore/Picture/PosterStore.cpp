#include "SceneCore/Picture/PosterStore.h"

#include "SceneCore/Runtime/Log.h"
#include "SceneCore/Runtime/Precondition.h"
#include "SceneCore/Worlds/WorldPackageError.h"

#include <cmath>

namespace hushmeadows {

namespace {
// Kept for the life of the process: its queue may still be decoding when
// the process exits.
std::unique_ptr<PosterStore>& sharedStore()
{
    static auto* store = new std::unique_ptr<PosterStore>;
    return *store;
}
} // namespace

PosterStore::PosterStore(RunLoop& mainLoop, std::unique_ptr<SerialQueue> queue, std::shared_ptr<const ImageDecoder> decoder,
                         const MediaProbe& headers, PixelFormat format)
    : mainLoop_(mainLoop)
    , queue_(std::move(queue))
    , decoder_(std::move(decoder))
    , headers_(headers)
    , format_(format)
    , self_(std::make_shared<PosterStore*>(this))
{
    HM_PRECONDITION(queue_ && decoder_, "a poster store needs a queue and a decoder");
}

PosterStore::~PosterStore()
{
    self_.reset();
    // Let the queue finish (its decodes then find the store gone) before the
    // decoder it uses goes away.
    queue_.reset();
}

void PosterStore::installShared(std::unique_ptr<PosterStore> store) { sharedStore() = std::move(store); }

PosterStore& PosterStore::shared()
{
    HM_PRECONDITION(sharedStore() != nullptr, "the shared poster store is installed by the host at start-up");
    return *sharedStore();
}

bool PosterStore::hasShared() { return sharedStore() != nullptr; }

std::optional<Size> PosterStore::pixelSize(const std::filesystem::path& file) const
{
    auto size = headers_.imagePixelSize(file);
    if (!size)
        return std::nullopt;
    return Size{static_cast<double>(size->width), static_cast<double>(size->height)};
}

bool PosterStore::isLarge(Size size)
{
    double pixels = size.width * size.height;
    HM_PRECONDITION(std::isfinite(pixels) && std::fabs(pixels) < 9.2e18, "a poster's pixel count must fit a 64-bit integer");
    return static_cast<std::int64_t>(pixels) > largePixelCount;
}

PosterStore::EntryPtr PosterStore::cached(const std::filesystem::path& file)
{
    auto it = index_.find(file);
    if (it == index_.end())
        return nullptr;
    lru_.splice(lru_.begin(), lru_, it->second);
    return it->second->entry;
}

void PosterStore::load(const std::filesystem::path& file, Completion completion)
{
    if (auto entry = cached(file)) {
        completion(entry);
        return;
    }
    if (auto waiting = waiting_.find(file); waiting != waiting_.end()) {
        waiting->second.push_back(std::move(completion));
        return;
    }
    waiting_[file].push_back(std::move(completion));
    ++decodesStarted_;

    std::weak_ptr<PosterStore*> weak = self_;
    auto decoder = decoder_;
    const MediaProbe* headers = &headers_;
    RunLoop* mainLoop = &mainLoop_;
    PixelFormat format = format_;
    queue_->async([weak, decoder, headers, mainLoop, file, format] {
        EntryPtr entry;
        // A picture too large to hold is refused from its header, before a
        // pixel is decoded; the log says why, for whoever made the package.
        auto size = headers->imagePixelSize(file);
        auto problem = size ? decodedSizeProblem(*size) : std::nullopt;
        auto image = problem ? std::nullopt : decoder->decode(file, format);
        if (image) {
            auto made = std::make_shared<Entry>();
            made->strips = EdgeStrips::make(*image, stripDepth);
            made->image = std::move(*image);
            entry = std::move(made);
        } else {
            Log::posters.error("The poster %{public}s cannot be shown: %{private}s", file.filename().string(),
                               problem.value_or(std::string(WorldPackageError::unreadableImageReason)));
        }
        mainLoop->post([weak, file, entry] {
            if (auto alive = weak.lock())
                (*alive)->finish(file, entry);
        });
    });
}

void PosterStore::finish(const std::filesystem::path& file, EntryPtr entry)
{
    if (entry)
        insert(file, entry);
    std::vector<Completion> callbacks;
    if (auto waiting = waiting_.find(file); waiting != waiting_.end()) {
        callbacks = std::move(waiting->second);
        waiting_.erase(waiting);
    }
    for (auto& callback : callbacks)
        callback(entry);
}

void PosterStore::insert(const std::filesystem::path& file, EntryPtr entry)
{
    std::size_t cost = entry->image.byteCost();
    if (auto old = index_.find(file); old != index_.end()) {
        totalCost_ -= old->second->cost;
        lru_.erase(old->second);
        index_.erase(old);
    }
    // A poster larger than the whole budget is handed out but not kept.
    if (cost > memoryLimit)
        return;
    lru_.push_front(Cached{file, std::move(entry), cost});
    index_[file] = lru_.begin();
    totalCost_ += cost;
    while (totalCost_ > memoryLimit) {
        const Cached& oldest = lru_.back();
        totalCost_ -= oldest.cost;
        index_.erase(oldest.file);
        lru_.pop_back();
    }
}

void PosterStore::prewarm(const std::vector<std::filesystem::path>& files)
{
    for (const auto& file : files) {
        auto size = pixelSize(file);
        if (!size || !isLarge(*size))
            continue;
        load(file, [](EntryPtr) {});
    }
}

} // namespace hushmeadows
