#include "SceneCore/Sound/SoftwareAudioEngine.h"

#include "SceneCore/Runtime/Precondition.h"

#include <algorithm>

namespace hushmeadows {

namespace {

// Removes one configuration-change handler when cancelled.
class ObserverHandle final : public Cancellable {
public:
    ObserverHandle(std::weak_ptr<SoftwareAudioEngine*> engine, std::function<void(std::uint64_t)> remove, std::uint64_t id)
        : engine_(std::move(engine))
        , remove_(std::move(remove))
        , id_(id)
    {
    }

    void cancel() override
    {
        if (cancelled_)
            return;
        cancelled_ = true;
        if (auto alive = engine_.lock())
            remove_(id_);
    }
    bool isCancelled() const override { return cancelled_; }

private:
    std::weak_ptr<SoftwareAudioEngine*> engine_;
    std::function<void(std::uint64_t)> remove_;
    std::uint64_t id_;
    bool cancelled_ = false;
};

std::string describe(const AudioFormat& format)
{
    return std::to_string(format.channelCount) + " channel(s) at " + std::to_string(static_cast<long long>(format.sampleRate)) + " Hz";
}

} // namespace

SoftwareAudioEngine::SoftwareAudioEngine(RunLoop& mainLoop, std::shared_ptr<AudioOutput> output, double sampleRate)
    : mainLoop_(mainLoop)
    , output_(std::move(output))
    , sampleRate_(sampleRate)
    , graph_(std::make_shared<SoftwarePlayerNode::Graph>(mainLoop))
    , self_(std::make_shared<SoftwareAudioEngine*>(this))
{
    HM_PRECONDITION(sampleRate > 0, "an audio engine needs a positive sample rate");
    if (output_) {
        output_->setDeviceChangeHandler([weak = std::weak_ptr<SoftwareAudioEngine*>(self_), &mainLoop] {
            mainLoop.post([weak] {
                if (auto self = weak.lock())
                    (*self)->deviceChanged();
            });
        });
    }
}

SoftwareAudioEngine::~SoftwareAudioEngine()
{
    self_.reset();
    if (output_) {
        output_->stop();
        output_->setDeviceChangeHandler({});
    }
    if (drainTimer_)
        drainTimer_->cancel();
    {
        std::lock_guard lock(graph_->mutex);
        connected_.clear();
    }
    // Nodes still held elsewhere keep their schedule; the ones only the engine
    // held go now, together with their buffers.
    attached_.clear();
    SoftwarePlayerNode::Graph::postDrain(graph_);
}

std::shared_ptr<AudioPlayerNode> SoftwareAudioEngine::makePlayerNode()
{
    return std::make_shared<SoftwarePlayerNode>(graph_);
}

SoftwareAudioEngine::Attached* SoftwareAudioEngine::find(const AudioPlayerNode& node)
{
    auto it = std::ranges::find_if(attached_, [&](const Attached& entry) { return entry.node.get() == &node; });
    return it == attached_.end() ? nullptr : &*it;
}

void SoftwareAudioEngine::attach(std::shared_ptr<AudioPlayerNode> node)
{
    auto software = std::dynamic_pointer_cast<SoftwarePlayerNode>(node);
    HM_PRECONDITION(software && software->graph() == graph_, "only nodes made by this engine can be attached to it");
    if (find(*software))
        return;
    attached_.push_back(Attached{std::move(software), std::nullopt});
}

void SoftwareAudioEngine::detach(const std::shared_ptr<AudioPlayerNode>& node)
{
    if (!node)
        return;
    auto it = std::ranges::find_if(attached_, [&](const Attached& entry) { return entry.node == node; });
    if (it == attached_.end())
        return;
    std::shared_ptr<SoftwarePlayerNode> released = std::move(it->node);
    attached_.erase(it);
    publishConnections();
    released->stop();
}

void SoftwareAudioEngine::connect(AudioPlayerNode& node, const AudioFormat& format)
{
    Attached* entry = find(node);
    HM_PRECONDITION(entry != nullptr, "a node is attached before it is connected");
    HM_PRECONDITION(format.channelCount >= 1, "a connection needs at least one channel");
    HM_PRECONDITION(format.sampleRate == sampleRate_, "the software mixer does not convert sample rates");
    bool wasConnected = entry->format.has_value();
    entry->format = format;
    if (!wasConnected)
        publishConnections();
}

void SoftwareAudioEngine::publishConnections()
{
    std::vector<SoftwarePlayerNode*> next;
    next.reserve(attached_.size());
    for (const Attached& entry : attached_)
        if (entry.format)
            next.push_back(entry.node.get());
    {
        std::lock_guard lock(graph_->mutex);
        connected_.swap(next);
    }
}

void SoftwareAudioEngine::prepare()
{
    // Everything the render path needs is allocated as nodes are connected;
    // the device is opened by start().
}

std::expected<void, std::string> SoftwareAudioEngine::start()
{
    if (running_)
        return {};
    if (!manualFormat_) {
        if (!output_)
            return std::unexpected(std::string("the engine has no output device"));
        if (auto started = output_->start(*this, sampleRate_); !started)
            return started;
        if (!drainTimer_) {
            drainTimer_ = mainLoop_.scheduleRepeating(drainInterval, [weak = std::weak_ptr<SoftwarePlayerNode::Graph>(graph_)] {
                auto graph = weak.lock();
                if (graph && graph->hasFinished.load(std::memory_order_relaxed))
                    graph->drain();
            });
        }
    }
    running_ = true;
    return {};
}

void SoftwareAudioEngine::pause()
{
    if (!manualFormat_ && output_)
        output_->pause();
    running_ = false;
}

void SoftwareAudioEngine::stop()
{
    if (!manualFormat_ && output_)
        output_->stop();
    running_ = false;
    if (drainTimer_) {
        drainTimer_->cancel();
        drainTimer_.reset();
    }
    // What finished before the stop is still owed its completion.
    if (graph_->hasFinished.load(std::memory_order_relaxed))
        SoftwarePlayerNode::Graph::postDrain(graph_);
}

void SoftwareAudioEngine::reset()
{
    for (const Attached& entry : attached_)
        entry.node->stop();
}

void SoftwareAudioEngine::deviceChanged()
{
    if (manualFormat_)
        return;
    // The device is gone or replaced: let go of it; start() opens the current one.
    stop();
    auto observers = observers_; // a handler may add or cancel handlers
    for (auto& [id, handler] : observers)
        if (observers_.contains(id))
            handler();
}

std::shared_ptr<Cancellable> SoftwareAudioEngine::observeConfigurationChange(std::function<void()> handler)
{
    std::uint64_t id = nextObserver_++;
    observers_.emplace(id, std::move(handler));
    return std::make_shared<ObserverHandle>(self_, [this](std::uint64_t key) { observers_.erase(key); }, id);
}

std::expected<void, std::string> SoftwareAudioEngine::enableManualRenderingMode(const AudioFormat& format,
                                                                                std::uint32_t maximumFrameCount)
{
    if (running_)
        return std::unexpected(std::string("manual rendering can only be enabled while the engine is stopped"));
    if (format.channelCount < 1 || format.channelCount > 2 || !(format.sampleRate > 0))
        return std::unexpected("manual rendering needs mono or stereo at a positive rate, not " + describe(format));
    if (maximumFrameCount == 0)
        return std::unexpected(std::string("manual rendering needs a maximum frame count above 0"));
    for (const Attached& entry : attached_)
        if (entry.format && entry.format->sampleRate != format.sampleRate)
            return std::unexpected("a node is connected at another rate than " + describe(format));
    if (output_)
        output_->stop();
    offlineScratch_.assign(static_cast<std::size_t>(maximumFrameCount) * 2, 0.0f);
    manualFormat_ = format;
    maximumFrameCount_ = maximumFrameCount;
    sampleRate_ = format.sampleRate;
    return {};
}

std::expected<void, std::string> SoftwareAudioEngine::renderOffline(std::uint32_t frames, PCMBuffer& buffer)
{
    if (!manualFormat_)
        return std::unexpected(std::string("the engine is not in manual rendering mode"));
    if (!running_)
        return std::unexpected(std::string("the engine is not running"));
    if (frames > maximumFrameCount_)
        return std::unexpected("cannot render " + std::to_string(frames) + " frames at once; the maximum is "
                               + std::to_string(maximumFrameCount_));
    if (buffer.format() != *manualFormat_)
        return std::unexpected("the buffer holds " + describe(buffer.format()) + ", the engine renders "
                               + describe(*manualFormat_));
    if (buffer.frameCapacity() < frames)
        return std::unexpected(std::string("the buffer is too small for the frames asked"));

    render(offlineScratch_.data(), static_cast<int>(frames));
    const float* mix = offlineScratch_.data();
    if (buffer.channelCount() == 2) {
        float* left = buffer.channelData(0);
        float* right = buffer.channelData(1);
        for (std::uint32_t i = 0; i < frames; ++i) {
            left[i] = mix[2 * i];
            right[i] = mix[2 * i + 1];
        }
    } else {
        float* mono = buffer.channelData(0);
        for (std::uint32_t i = 0; i < frames; ++i)
            mono[i] = (mix[2 * i] + mix[2 * i + 1]) * 0.5f;
    }
    buffer.setFrameLength(frames);
    if (graph_->hasFinished.load(std::memory_order_relaxed))
        SoftwarePlayerNode::Graph::postDrain(graph_);
    return {};
}

void SoftwareAudioEngine::render(float* interleaved, int frames) noexcept
{
    std::fill(interleaved, interleaved + 2 * static_cast<std::ptrdiff_t>(frames), 0.0f);
    {
        std::lock_guard lock(graph_->mutex);
        for (SoftwarePlayerNode* node : connected_)
            node->mixInto(interleaved, frames, node->volume());
    }
    float master = mixer_.outputVolume();
    if (master != 1.0f)
        for (std::ptrdiff_t i = 0; i < 2 * static_cast<std::ptrdiff_t>(frames); ++i)
            interleaved[i] *= master;
}

} // namespace hushmeadows
