#include "SceneCore/Picture/LoopingVideoSource.h"

#include "SceneCore/Runtime/Log.h"
#include "SceneCore/Worlds/WorldPackage.h"
#include "SceneCore/Runtime/Precondition.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <set>
#include <string>
#include <utility>

namespace hushmeadows {

namespace {

std::atomic<int> liveSources{0};

// Frame rate assumed for timing when a file states none.
constexpr double fallbackFrameRate = 48;
// A frame this late is not chased: after a stall (a busy machine, a stopped
// process) the clock moves to the frame instead of racing through a backlog.
constexpr double lateLimit = 0.25;
// Frame times are sums of decoder timestamps; allow for their rounding.
constexpr double timeSlack = 1e-6;

std::string fileName(const std::filesystem::path& path) { return path.filename().string(); }

void logUnplayable(const std::filesystem::path& file, const std::string& problem)
{
    Log::video.error("%{public}s cannot be played: %{private}s", fileName(file), problem);
    Log::video.error("No playable video in %{public}s", fileName(file));
}

// What an opened file's header already rules out, as the media check judges it.
std::optional<std::string> headerProblem(const VideoFile& file)
{
    if (auto size = VideoFile::frameSizeProblem(file.pixelSize()))
        return size;
    if (!(file.duration() > 0))
        return videoProbeReason({VideoProbeFailure::zeroDuration, std::nullopt});
    return std::nullopt;
}

// One decoded frame on the source's timeline (seconds from the start of the
// first item), with the item it belongs to.
struct TimedFrame {
    std::shared_ptr<const Image> image;
    double time = 0;
    long item = 0;
    int urlIndex = 0;
};

} // namespace

// What the main thread and the decoding queue share. The queue alone touches
// the decoder state; the rest is guarded by the mutex.
struct LoopingVideoSource::Pipeline {
    std::vector<std::filesystem::path> urls;
    VideoFileOpener open;
    RunLoop* mainLoop = nullptr;
    std::weak_ptr<LoopingVideoSource*> owner;
    std::atomic<bool> cancelled{false};
    std::atomic<bool> decodingScheduled{false};

    std::mutex mutex;
    std::deque<TimedFrame> ready;
    std::size_t readyBytes = 0;
    // Files the main thread queued for the decoder (indices into urls).
    std::deque<int> upcoming;
    // Single-file mode: the file that loops when nothing is upcoming, or -1.
    int loopIndex = -1;

    // The decoder, on the queue only.
    ImagePool pool;
    std::unique_ptr<VideoFile> file;
    int urlIndex = 0;
    long item = -1;
    double itemStart = 0; // timeline time of the current item's first frame
    double frameInterval = 1 / fallbackFrameRate;
    std::optional<double> firstTime;
    double lastTime = 0;
    // Files whose decoding error was logged once already.
    std::set<int> errorsLogged;

    bool holdsEnough()
    {
        std::lock_guard lock(mutex);
        return ready.size() >= framesAhead || readyBytes >= bytesAhead;
    }
    void decode();
    bool startNextItem();
    void endItem(bool cleanEnd);
    void drop(int index, const std::string& problem);
};

void LoopingVideoSource::Pipeline::drop(int index, const std::string& problem)
{
    logUnplayable(urls[static_cast<std::size_t>(index)], problem);
    {
        // Not tried again until the main thread says what plays instead.
        std::lock_guard lock(mutex);
        if (loopIndex == index)
            loopIndex = -1;
    }
    mainLoop->post([owner = owner, index] {
        if (auto source = owner.lock())
            (*source)->fileFailed(index);
    });
}

bool LoopingVideoSource::Pipeline::startNextItem()
{
    for (;;) {
        int next = 0;
        {
            std::lock_guard lock(mutex);
            if (!upcoming.empty()) {
                next = upcoming.front();
                upcoming.pop_front();
            } else if (loopIndex >= 0) {
                next = loopIndex; // the looping file, opened afresh
            } else {
                return false;
            }
        }
        // It played when the source was prepared; it may have changed since.
        auto opened = open(urls[static_cast<std::size_t>(next)]);
        auto problem = opened ? headerProblem(**opened) : std::optional(opened.error());
        if (problem) {
            drop(next, *problem);
            continue;
        }
        file = std::move(*opened);
        urlIndex = next;
        double rate = file->frameRate();
        frameInterval = 1 / (rate > 0 ? rate : fallbackFrameRate);
        firstTime.reset();
        ++item;
        return true;
    }
}

void LoopingVideoSource::Pipeline::endItem(bool cleanEnd)
{
    // The next item's first frame follows the last frame after one frame's time.
    if (firstTime)
        itemStart += lastTime - *firstTime + frameInterval;
    firstTime.reset();
    bool loops = false;
    {
        std::lock_guard lock(mutex);
        loops = loopIndex == urlIndex && upcoming.empty();
    }
    // A pass cut short by an error reopens the file instead: it may have changed.
    if (loops && cleanEnd && file->rewind()) {
        ++item;
        return;
    }
    file.reset();
}

void LoopingVideoSource::Pipeline::decode()
{
    decodingScheduled.store(false);
    while (!cancelled.load()) {
        if (holdsEnough())
            return;
        if (!file && !startNextItem())
            return;
        auto frame = file->readFrame(pool);
        if (!frame || !*frame) {
            if (!firstTime) {
                // Not one frame this pass: the file is no longer playable.
                drop(urlIndex, frame ? std::string("no frame decodes") : frame.error());
                file.reset();
                continue;
            }
            if (!frame && errorsLogged.insert(urlIndex).second)
                Log::video.error("Decoding %{public}s stopped: %{private}s", fileName(urls[static_cast<std::size_t>(urlIndex)]), frame.error());
            endItem(frame.has_value());
            continue;
        }
        const double time = (*frame)->presentationTime;
        if (!firstTime) {
            firstTime = time;
            lastTime = time;
        }
        lastTime = std::max(lastTime, time);
        if (time < *firstTime)
            continue; // a frame before the item's start is never shown
        std::lock_guard lock(mutex);
        readyBytes += (*frame)->image->byteCost();
        ready.push_back({std::move((*frame)->image), itemStart + (time - *firstTime), item, urlIndex});
    }
    // Invalidated: let the file go here, on the queue that used it.
    file.reset();
}

LoopingVideoSource::LoopingVideoSource(std::vector<std::filesystem::path> urls, RunLoop& mainLoop, std::unique_ptr<SerialQueue> decodeQueue,
                                       VideoFileOpener open)
    : urls_(std::move(urls))
    , mainLoop_(mainLoop)
    , pipeline_(std::make_shared<Pipeline>())
    , self_(std::make_shared<LoopingVideoSource*>(this))
    , decodeQueue_(std::move(decodeQueue))
{
    HM_PRECONDITION(!urls_.empty(), "a video source needs at least one file");
    ++liveSources;
    pipeline_->urls = urls_;
    pipeline_->open = std::move(open);
    pipeline_->mainLoop = &mainLoop_;
    pipeline_->owner = self_;

    std::weak_ptr<LoopingVideoSource*> self = self_;
    decodeQueue_->async([pipeline = pipeline_, self, loop = &mainLoop_] {
        std::vector<int> playable;
        double frameRate = 0;
        for (std::size_t index = 0; index < pipeline->urls.size(); ++index) {
            if (pipeline->cancelled.load())
                return;
            auto file = pipeline->open(pipeline->urls[index]);
            // Playable means a first frame actually decodes.
            std::optional<std::string> problem;
            if (!file)
                problem = file.error();
            else if (auto stated = headerProblem(**file))
                problem = stated;
            else if (auto first = (*file)->readFrame(pipeline->pool); !first)
                problem = first.error();
            else if (!first->has_value())
                problem = "no frame decodes";
            if (problem) {
                logUnplayable(pipeline->urls[index], *problem);
                continue;
            }
            if (playable.empty())
                frameRate = (*file)->frameRate();
            playable.push_back(static_cast<int>(index));
        }
        loop->post([self, playable = std::move(playable), frameRate] {
            if (auto source = self.lock())
                (*source)->prepare(playable, frameRate);
        });
    });
}

LoopingVideoSource::~LoopingVideoSource()
{
    invalidate();
    --liveSources;
}

int LoopingVideoSource::liveCount() { return liveSources.load(); }

void LoopingVideoSource::prepare(const std::vector<int>& playable, double frameRate)
{
    if (isInvalidated_)
        return;
    if (frameRate > 0)
        nominalFrameRate_ = frameRate;
    if (playable.empty()) {
        didFail_ = true;
        return;
    }
    playlist_ = playable;
    prepared_ = true;
    choosePlayback();
}

void LoopingVideoSource::choosePlayback()
{
    if (playlist_.empty()) {
        // Nothing left to play: the owner falls back as when nothing was
        // playable at first, and no decoded frame is kept for nothing.
        didFail_ = true;
        order_.reset();
        queue_.clear();
        std::lock_guard lock(pipeline_->mutex);
        pipeline_->ready.clear();
        pipeline_->readyBytes = 0;
        pipeline_->upcoming.clear();
        pipeline_->loopIndex = -1;
        return;
    }
    if (playlist_.size() == 1) {
        order_.reset();
        queue_.clear();
        std::lock_guard lock(pipeline_->mutex);
        pipeline_->upcoming.clear();
        pipeline_->loopIndex = playlist_.front();
    } else {
        order_.emplace(static_cast<int>(playlist_.size()));
        topUpQueue();
    }
    scheduleDecoding();
}

void LoopingVideoSource::fileFailed(int urlIndex)
{
    if (isInvalidated_ || didFail_)
        return;
    // Its queued items never play: the one showing, first in the queue once
    // an item has become current, is another file's.
    const auto kept = queue_.begin() + (lastCurrentItem_ && !queue_.empty() ? 1 : 0);
    queue_.erase(std::remove(kept, queue_.end(), urlIndex), queue_.end());
    {
        std::lock_guard lock(pipeline_->mutex);
        std::erase(pipeline_->upcoming, urlIndex);
    }
    if (std::erase(playlist_, urlIndex) > 0)
        choosePlayback();
    else
        topUpQueue();
}

void LoopingVideoSource::topUpQueue()
{
    if (isInvalidated_ || !order_)
        return;
    while (queue_.size() < maxQueuedItems) {
        int urlIndex = playlist_[static_cast<std::size_t>(order_->next())];
        // An order made afresh after a drop knows nothing of what came before.
        if (!queue_.empty() && urlIndex == queue_.back())
            urlIndex = playlist_[static_cast<std::size_t>(order_->next())];
        queue_.push_back(urlIndex);
        std::lock_guard lock(pipeline_->mutex);
        pipeline_->upcoming.push_back(urlIndex);
    }
    scheduleDecoding();
}

void LoopingVideoSource::scheduleDecoding()
{
    if (isInvalidated_ || pipeline_->decodingScheduled.exchange(true))
        return;
    decodeQueue_->async([pipeline = pipeline_] { pipeline->decode(); });
}

void LoopingVideoSource::play()
{
    if (isInvalidated_ || wantsPlay_)
        return;
    wantsPlay_ = true;
    // The clock goes on from where pause() stopped it.
    if (position_)
        anchor_ = mainLoop_.mediaTime() - *position_;
}

void LoopingVideoSource::pause()
{
    if (isInvalidated_)
        return;
    if (wantsPlay_ && anchor_)
        position_ = mainLoop_.mediaTime() - *anchor_;
    wantsPlay_ = false;
    anchor_.reset();
}

std::shared_ptr<const Image> LoopingVideoSource::copyNewFrame(double hostTime)
{
    if (!isPlaying())
        return nullptr;
    std::vector<TimedFrame> due;
    {
        std::lock_guard lock(pipeline_->mutex);
        auto& ready = pipeline_->ready;
        if (!ready.empty()) {
            if (!anchor_)
                anchor_ = hostTime - position_.value_or(ready.front().time);
            const double now = hostTime - *anchor_;
            while (!ready.empty() && ready.front().time <= now + timeSlack) {
                pipeline_->readyBytes -= ready.front().image->byteCost();
                due.push_back(std::move(ready.front()));
                ready.pop_front();
            }
        }
    }
    if (!pipeline_->holdsEnough())
        scheduleDecoding();
    if (due.empty())
        return nullptr;
    // Every item passed counts, even one too short to be seen.
    for (const TimedFrame& frame : due) {
        if (frame.item != lastCurrentItem_) {
            currentItemChanged(frame.urlIndex);
            lastCurrentItem_ = frame.item;
        }
    }
    const TimedFrame& newest = due.back();
    lastDueTime_ = *anchor_ + newest.time;
    lastPassedOver_ = static_cast<long>(due.size()) - 1;
    if (hostTime - *anchor_ - newest.time > lateLimit)
        anchor_ = hostTime - newest.time;
    return newest.image;
}

std::optional<double> LoopingVideoSource::nextFrameDueTime() const
{
    if (!isPlaying())
        return std::nullopt;
    std::lock_guard lock(pipeline_->mutex);
    if (pipeline_->ready.empty())
        return std::nullopt;
    return anchor_ ? *anchor_ + pipeline_->ready.front().time : 0.0;
}

void LoopingVideoSource::currentItemChanged(int urlIndex)
{
    // The first item to become current completes nothing.
    if (lastCurrentItem_) {
        ++completedItems_;
        if (!queue_.empty())
            queue_.pop_front();
    }
    // A looping file is named once, not at every pass (a one-frame clip
    // passes at its frame rate).
    if (variationsPlayed_.empty() || variationsPlayed_.back() != urlIndex)
        Log::video.info("Playing %{public}s", fileName(urls_[static_cast<std::size_t>(urlIndex)]));
    variationsPlayed_.push_back(urlIndex);
    if (variationsPlayed_.size() > historyLimit)
        variationsPlayed_.pop_front();
    topUpQueue();
}

void LoopingVideoSource::invalidate()
{
    if (isInvalidated_)
        return;
    isInvalidated_ = true;
    wantsPlay_ = false;
    pipeline_->cancelled.store(true);
    {
        std::lock_guard lock(pipeline_->mutex);
        pipeline_->ready.clear();
        pipeline_->readyBytes = 0;
        pipeline_->upcoming.clear();
        pipeline_->loopIndex = -1;
    }
    order_.reset();
    playlist_.clear();
    queue_.clear();
    // Lets the decoder close its file on its own queue; nothing waits for it.
    decodeQueue_->async([pipeline = pipeline_] { pipeline->decode(); });
}

} // namespace hushmeadows
