#include "SceneCore/Sound/LoopStreamer.h"

#include "SceneCore/Runtime/Log.h"
#include "SceneCore/Runtime/Precondition.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace hushmeadows {

std::expected<std::unique_ptr<LoopStreamer>, std::string> LoopStreamer::make(const std::filesystem::path& url,
                                                                             const AudioFileOpener& open,
                                                                             double sampleRate,
                                                                             std::unique_ptr<SerialQueue> queue)
{
    HM_PRECONDITION(open != nullptr, "a loop streamer needs a way to open its file");
    auto file = open(url, sampleRate);
    if (!file)
        return std::unexpected(file.error());
    return make(url, std::move(*file), std::move(queue));
}

std::expected<std::unique_ptr<LoopStreamer>, std::string> LoopStreamer::make(const std::filesystem::path& url,
                                                                             std::unique_ptr<AudioFile> file,
                                                                             std::unique_ptr<SerialQueue> queue)
{
    HM_PRECONDITION(file != nullptr, "a loop streamer reads an open file");
    HM_PRECONDITION(queue != nullptr && queue->label() == queueLabel, "a loop streamer owns its own labelled serial queue");
    if (file->length() < 1)
        return std::unexpected(std::string(emptyFileError));
    return std::unique_ptr<LoopStreamer>(new LoopStreamer(url, std::move(file), std::move(queue)));
}

LoopStreamer::LoopStreamer(std::filesystem::path url, std::unique_ptr<AudioFile> file, std::unique_ptr<SerialQueue> queue)
    : url_(std::move(url))
    , name_(url_.filename().string())
    , format_(file->processingFormat())
    , length_(file->length())
    , file_(std::move(file))
    , capacity_(static_cast<std::uint32_t>(
          std::min<std::int64_t>(std::llround(bufferSeconds * format_.sampleRate), length_)))
    , consumed_(std::make_shared<Consumed>())
    , self_(std::make_shared<LoopStreamer*>(this))
    , queue_(std::move(queue))
{
}

LoopStreamer::~LoopStreamer()
{
    self_.reset();
    queue_.reset();
}

std::int64_t LoopStreamer::residentBytes() const
{
    return static_cast<std::int64_t>(capacity_) * bufferCount * format_.channelCount * static_cast<std::int64_t>(sizeof(float));
}

std::vector<LoopStreamer::BufferPtr> LoopStreamer::makeBuffers()
{
    std::vector<BufferPtr> buffers;
    for (int i = 0; i < bufferCount; ++i) {
        auto buffer = PCMBuffer::make(format_, capacity_);
        if (!buffer)
            return {};
        buffers.push_back(std::move(buffer));
    }
    return buffers;
}

bool LoopStreamer::read(PCMBuffer& buffer)
{
    for (;;) {
        auto frames = static_cast<std::uint32_t>(std::min<std::int64_t>(buffer.frameCapacity(), length_ - position_));
        file_->setFramePosition(position_);
        auto result = file_->read(buffer, frames);
        if (result && frames > 0 && buffer.frameLength() == frames) {
            position_ += frames;
            if (position_ >= length_)
                position_ = 0;
            return true;
        }
        if (!result)
            Log::audio.error("Streaming %{public}s failed at frame %lld: %{private}s", name_, position_, result.error());
        else
            Log::audio.error("Streaming %{public}s: short read at frame %lld", name_, position_);
        if (recoveredOnce_ || position_ == 0) {
            ++readErrorCount_;
            return false;
        }
        // Start the file over once: a damaged stretch may lie behind us.
        recoveredOnce_ = true;
        position_ = 0;
    }
}

bool LoopStreamer::prime(std::int64_t frame)
{
    std::lock_guard lock(mutex_);
    primed_.clear();
    position_ = std::clamp<std::int64_t>(frame, 0, length_ - 1);
    primedStart_ = position_;
    std::vector<BufferPtr> buffers = makeBuffers();
    if (buffers.empty())
        return false;
    for (const BufferPtr& buffer : buffers)
        if (!read(*buffer))
            return false;
    primed_ = std::move(buffers);
    primedPosition_ = position_;
    return true;
}

void LoopStreamer::start(std::weak_ptr<AudioPlayer> node, std::int64_t frame)
{
    queue_->async([weak = std::weak_ptr<LoopStreamer*>(self_), node = std::move(node), frame] {
        auto self = weak.lock();
        if (!self)
            return;
        LoopStreamer& streamer = **self;
        std::unique_lock lock(streamer.mutex_);
        int token = ++streamer.generation_;
        streamer.node_ = node;
        streamer.scheduledThisRun_ = 0;
        {
            std::lock_guard counted(streamer.consumed_->mutex);
            streamer.consumed_->token = token;
            streamer.consumed_->count = 0;
        }
        streamer.failed_ = false;
        // Buffers of an earlier run are no longer the listener's.
        streamer.inFlight_.clear();
        streamer.free_.clear();

        std::int64_t from = std::clamp<std::int64_t>(frame, 0, streamer.length_ - 1);
        if (!streamer.primed_.empty() && from == streamer.primedStart_) {
            streamer.position_ = streamer.primedPosition_;
            std::vector<BufferPtr> primed = std::move(streamer.primed_);
            streamer.primed_.clear();
            for (const BufferPtr& buffer : primed)
                streamer.enqueue(buffer, token);
        } else {
            streamer.primed_.clear();
            streamer.position_ = from;
            streamer.free_ = streamer.makeBuffers();
            for (int i = 0; i < bufferCount; ++i)
                streamer.scheduleNext(token);
        }
        streamer.reportFailure(lock);
    });
}

void LoopStreamer::stop()
{
    std::lock_guard lock(mutex_);
    ++generation_;
}

std::int64_t LoopStreamer::resumeFrame() const
{
    std::lock_guard lock(mutex_);
    std::int64_t ahead = std::accumulate(inFlight_.begin(), inFlight_.end(), std::int64_t{0});
    std::int64_t frame = (position_ - ahead) % length_;
    return frame < 0 ? frame + length_ : frame;
}

void LoopStreamer::setFailureHandler(std::function<void()> handler)
{
    std::lock_guard lock(mutex_);
    failureHandler_ = std::move(handler);
}

void LoopStreamer::enqueue(const BufferPtr& buffer, int token)
{
    auto node = node_.lock();
    if (!node)
        return;
    if (scheduledThisRun_ >= 1) {
        std::lock_guard counted(consumed_->mutex);
        if (consumed_->token == token && consumed_->count >= scheduledThisRun_)
            ++underrunCount_;
    }
    inFlight_.push_back(buffer->frameLength());
    ++scheduledCount_;
    ++scheduledThisRun_;
    node->scheduleBuffer(buffer, [weak = std::weak_ptr<LoopStreamer*>(self_), consumed = consumed_, buffer, token] {
        {
            std::lock_guard counted(consumed->mutex);
            if (consumed->token == token)
                ++consumed->count;
        }
        auto self = weak.lock();
        if (!self)
            return;
        (*self)->queue_->async([weak, buffer, token] {
            auto self = weak.lock();
            if (!self)
                return;
            LoopStreamer& streamer = **self;
            std::unique_lock lock(streamer.mutex_);
            streamer.bufferConsumed(buffer, token);
            streamer.reportFailure(lock);
        });
    });
}

void LoopStreamer::bufferConsumed(const BufferPtr& buffer, int token)
{
    if (token != generation_)
        return;
    if (!inFlight_.empty())
        inFlight_.erase(inFlight_.begin());
    free_.push_back(buffer);
    scheduleNext(token);
}

bool LoopStreamer::scheduleNext(int token)
{
    if (token != generation_ || failed_ || node_.expired() || free_.empty())
        return false;
    BufferPtr buffer = std::move(free_.back());
    free_.pop_back();
    if (read(*buffer)) {
        enqueue(buffer, token);
        return true;
    }
    free_.push_back(std::move(buffer));
    // The run ends here: nothing more is scheduled, and the owner hears once.
    failed_ = true;
    failurePending_ = static_cast<bool>(failureHandler_);
    return false;
}

void LoopStreamer::reportFailure(std::unique_lock<std::mutex>& lock)
{
    if (!failurePending_)
        return;
    failurePending_ = false;
    std::function<void()> handler = failureHandler_;
    lock.unlock();
    handler();
}

int LoopStreamer::scheduledCount() const
{
    std::lock_guard lock(mutex_);
    return scheduledCount_;
}

int LoopStreamer::underrunCount() const
{
    std::lock_guard lock(mutex_);
    return underrunCount_;
}

int LoopStreamer::readErrorCount() const
{
    std::lock_guard lock(mutex_);
    return readErrorCount_;
}

bool LoopStreamer::hasFailed() const
{
    std::lock_guard lock(mutex_);
    return failed_;
}

std::vector<std::uint32_t> LoopStreamer::inFlight() const
{
    std::lock_guard lock(mutex_);
    return inFlight_;
}

} // namespace hushmeadows
