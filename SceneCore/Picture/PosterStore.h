#pragma once

#include "SceneCore/Picture/EdgeStrips.h"
#include "SceneCore/Picture/Geometry.h"
#include "SceneCore/Runtime/Image.h"
#include "SceneCore/Runtime/ImageDecoder.h"
#include "SceneCore/Runtime/MediaProbe.h"
#include "SceneCore/Runtime/RunLoop.h"
#include "SceneCore/Runtime/SerialQueue.h"

#include <filesystem>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace hushmeadows {

// Decoded posters, shared by every view that asks: each file is decoded once,
// off the main thread, with its edge strips, and kept in a cache bounded by
// the memory its bitmaps take. Everything but the decode belongs to the main
// thread.
class PosterStore {
public:
    static constexpr std::int64_t largePixelCount = 1'000'000;
    static constexpr std::size_t memoryLimit = maximumDecodedImageBytes; // 72 MiB
    static constexpr const char* queueLabel = "app.hushmeadows.posters";
    static constexpr std::int64_t stripDepth = 3;

    struct Entry {
        Image image;
        std::optional<EdgeStrips> strips;
    };
    using EntryPtr = std::shared_ptr<const Entry>;
    using Completion = std::function<void(EntryPtr)>;

    // The queue must be serial and labelled queueLabel; the store owns it.
    // Headers are read through `headers`, which must outlive the store and
    // may be used from its queue.
    PosterStore(RunLoop& mainLoop, std::unique_ptr<SerialQueue> queue, std::shared_ptr<const ImageDecoder> decoder,
                const MediaProbe& headers, PixelFormat format = PixelFormat::bgra8);
    ~PosterStore();

    // The process-wide store, made by the platform host at start-up.
    static void installShared(std::unique_ptr<PosterStore> store);
    static PosterStore& shared();
    static bool hasShared();

    // The header's pixel size only; nothing when it cannot be read.
    std::optional<Size> pixelSize(const std::filesystem::path& file) const;
    // More than largePixelCount pixels. A product that is not finite or does
    // not fit 64 bits is a programming error.
    static bool isLarge(Size size);

    // The cached poster, if any; never starts a decode.
    EntryPtr cached(const std::filesystem::path& file);
    // Calls completion on the main thread with the poster, or null when it
    // cannot be decoded: at once when cached, else when the one decode of the
    // file finishes, after every earlier waiter for it.
    void load(const std::filesystem::path& file, Completion completion);
    // Starts decoding the large posters among the files.
    void prewarm(const std::vector<std::filesystem::path>& files);

    std::size_t cachedCost() const { return totalCost_; }
    std::size_t cachedCount() const { return lru_.size(); }
    std::size_t decodesStarted() const { return decodesStarted_; }

private:
    struct Cached {
        std::filesystem::path file;
        EntryPtr entry;
        std::size_t cost;
    };

    void insert(const std::filesystem::path& file, EntryPtr entry);
    void finish(const std::filesystem::path& file, EntryPtr entry);

    RunLoop& mainLoop_;
    std::unique_ptr<SerialQueue> queue_;
    std::shared_ptr<const ImageDecoder> decoder_;
    const MediaProbe& headers_;
    PixelFormat format_;
    // Most recently used first.
    std::list<Cached> lru_;
    std::map<std::filesystem::path, std::list<Cached>::iterator> index_;
    std::size_t totalCost_ = 0;
    std::map<std::filesystem::path, std::vector<Completion>> waiting_;
    std::size_t decodesStarted_ = 0;
    // Decodes that finish after the store is gone do nothing.
    std::shared_ptr<PosterStore*> self_;
};

} // namespace hushmeadows
