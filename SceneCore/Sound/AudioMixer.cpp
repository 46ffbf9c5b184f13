#include "SceneCore/Sound/AudioMixer.h"

#include "SceneCore/Runtime/Precondition.h"

#include <algorithm>

namespace hushmeadows {

namespace {

// Removes one configuration-change handler when cancelled.
class ObserverHandle final : public Cancellable {
public:
    ObserverHandle(std::weak_ptr<AudioMixer*> mixer, std::function<void()> remove)
        : mixer_(std::move(mixer))
        , remove_(std::move(remove))
    {
    }

    void cancel() override
    {
        if (cancelled_)
            return;
        cancelled_ = true;
        if (auto alive = mixer_.lock())
            remove_();
    }
    bool isCancelled() const override { return cancelled_; }

private:
    std::weak_ptr<AudioMixer*> mixer_;
    std::function<void()> remove_;
    bool cancelled_ = false;
};

} // namespace

AudioMixer::AudioMixer(RunLoop& mainLoop, std::shared_ptr<AudioOutput> output, double sampleRate)
    : mainLoop_(mainLoop)
    , output_(std::move(output))
    , sampleRate_(sampleRate)
    , finished_(std::make_shared<std::atomic<bool>>(false))
    , self_(std::make_shared<AudioMixer*>(this))
{
    HM_PRECONDITION(output_ != nullptr, "a mixer plays through an output");
    HM_PRECONDITION(sampleRate > 0, "a mixer needs a positive sample rate");
    publish();
    output_->setDeviceChangeHandler([weak = std::weak_ptr<AudioMixer*>(self_), &mainLoop] {
        mainLoop.post([weak] {
            if (auto self = weak.lock())
                (*self)->deviceChanged();
        });
    });
}

AudioMixer::~AudioMixer()
{
    self_.reset();
    output_->stop();
    output_->setDeviceChangeHandler({});
    if (drainTimer_)
        drainTimer_->cancel();
    // Nothing renders any more: every entry can be taken now. Completions
    // still owed run on the loop, after the mixer is gone.
    auto done = std::make_shared<std::vector<AudioPlayer::Entry>>();
    for (auto* list : {&players_, &removed_})
        for (const auto& player : *list) {
            player->stop();
            player->reclaim(true, *done);
        }
    if (!done->empty())
        mainLoop_.post([done] {
            for (AudioPlayer::Entry& entry : *done) {
                entry.buffer.reset();
                if (entry.completion)
                    entry.completion();
            }
        });
}

std::shared_ptr<AudioPlayer> AudioMixer::addPlayer()
{
    auto player = std::shared_ptr<AudioPlayer>(new AudioPlayer(finished_));
    players_.push_back(player);
    publish();
    return player;
}

void AudioMixer::removePlayer(const std::shared_ptr<AudioPlayer>& player)
{
    auto it = std::ranges::find(players_, player);
    if (it == players_.end())
        return;
    players_.erase(it);
    publish();
    player->stop();
    removed_.push_back(player);
    drainSoon();
}

void AudioMixer::stopAllPlayers()
{
    for (const auto& player : players_)
        player->stop();
    drainSoon();
}

void AudioMixer::publish()
{
    snapshots_.push_back(std::make_unique<const Snapshot>(Snapshot{players_}));
    live_.store(snapshots_.back().get(), std::memory_order_seq_cst);
    collectSnapshots();
}

void AudioMixer::collectSnapshots()
{
    const Snapshot* walking = rendering_.load(std::memory_order_seq_cst);
    const Snapshot* live = snapshots_.back().get();
    std::erase_if(snapshots_, [&](const auto& snapshot) { return snapshot.get() != live && snapshot.get() != walking; });
}

std::expected<void, std::string> AudioMixer::start()
{
    if (running_)
        return {};
    // Nothing renders until the output starts: the first quantum ramps from
    // the present level, not from whatever was heard before a pause or a loss.
    heardOutputGain_ = -1.0f;
    if (auto started = output_->start(*this, sampleRate_); !started)
        return started;
    running_ = true;
    if (!drainTimer_) {
        drainTimer_ = mainLoop_.scheduleRepeating(drainInterval, [weak = std::weak_ptr<AudioMixer*>(self_)] {
            auto self = weak.lock();
            if (!self)
                return;
            AudioMixer& mixer = **self;
            if (mixer.snapshots_.size() > 1)
                mixer.collectSnapshots();
            if (mixer.finished_->load(std::memory_order_acquire))
                mixer.drain(); // last: a completion may end the mixer
        });
    }
    return {};
}

void AudioMixer::pause()
{
    output_->pause();
    running_ = false;
}

void AudioMixer::stop()
{
    output_->stop();
    running_ = false;
    if (drainTimer_) {
        drainTimer_->cancel();
        drainTimer_.reset();
    }
    // What finished before the stop is still owed its completion.
    drainSoon();
}

void AudioMixer::drainSoon()
{
    if (*drainPosted_ || !finished_->load(std::memory_order_acquire))
        return;
    *drainPosted_ = true;
    mainLoop_.post([weak = std::weak_ptr<AudioMixer*>(self_), posted = drainPosted_] {
        *posted = false;
        if (auto self = weak.lock())
            (*self)->drain();
    });
}

void AudioMixer::drain()
{
    finished_->store(false, std::memory_order_relaxed);
    // A player that the snapshot under way does not hold is out of the render
    // thread's reach: the next quantum sees its drops before anything else.
    const Snapshot* walking = rendering_.load(std::memory_order_seq_cst);
    auto unreachable = [walking](const std::shared_ptr<AudioPlayer>& player) {
        return walking == nullptr || std::ranges::find(walking->players, player) == walking->players.end();
    };
    std::vector<AudioPlayer::Entry> done;
    bool owed = false;
    for (const auto& player : players_)
        owed |= !player->reclaim(unreachable(player), done);
    std::erase_if(removed_, [&](const std::shared_ptr<AudioPlayer>& player) {
        bool settled = player->reclaim(unreachable(player), done);
        owed |= !settled;
        return settled;
    });
    if (owed)
        finished_->store(true, std::memory_order_relaxed); // the render thread acknowledges them soon
    for (AudioPlayer::Entry& entry : done) {
        entry.buffer.reset(); // let go first, so that the completion may reuse or free it
        if (entry.completion)
            entry.completion();
    }
}

void AudioMixer::deviceChanged()
{
    // The device is gone or replaced: let go of it; start() opens the current one.
    stop();
    auto observers = observers_; // a handler may add or cancel handlers
    for (auto& [id, handler] : observers)
        if (observers_.contains(id))
            handler();
}

std::shared_ptr<Cancellable> AudioMixer::observeConfigurationChange(std::function<void()> handler)
{
    std::uint64_t id = nextObserver_++;
    observers_.emplace(id, std::move(handler));
    return std::make_shared<ObserverHandle>(self_, [this, id] { observers_.erase(id); });
}

void AudioMixer::render(float* interleaved, int frames) noexcept
{
    auto samples = 2 * static_cast<std::ptrdiff_t>(std::max(frames, 0));
    std::fill(interleaved, interleaved + samples, 0.0f);
    // Announce the snapshot before trusting it, so that the main thread keeps it.
    const Snapshot* snapshot = nullptr;
    do {
        snapshot = live_.load(std::memory_order_seq_cst);
        rendering_.store(snapshot, std::memory_order_seq_cst);
    } while (snapshot != live_.load(std::memory_order_seq_cst));
    for (const auto& player : snapshot->players)
        player->mixInto(interleaved, frames);
    rendering_.store(nullptr, std::memory_order_release);

    float target = outputVolume();
    float from = heardOutputGain_ < 0 ? target : heardOutputGain_;
    heardOutputGain_ = target;
    if (from == 1.0f && target == 1.0f)
        return;
    float step = (target - from) / static_cast<float>(std::max(frames, 1));
    for (int frame = 0; frame < frames; ++frame) {
        float gain = from + step * static_cast<float>(frame + 1);
        interleaved[2 * frame] *= gain;
        interleaved[2 * frame + 1] *= gain;
    }
}

} // namespace hushmeadows
