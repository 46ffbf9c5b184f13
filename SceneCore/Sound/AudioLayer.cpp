#include "SceneCore/Sound/AudioLayer.h"

#include "SceneCore/Runtime/Log.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>

namespace hushmeadows {

namespace {

// Repeating timers add up their interval in floating point, so the tick meant
// for the end of a fade can land a hair before it; that tick ends the fade.
constexpr double timingTolerance = 1e-9;

// The equal-power angle of a crossfade's progress on a smoothstep time curve.
float crossfadeAngle(float progress)
{
    float p = std::clamp(progress, 0.0f, 1.0f);
    float s = p * p * (3.0f - 2.0f * p);
    return s * (std::numbers::pi_v<float> / 2);
}

std::string nameOrNone(const AudioLayer::URL& url) { return url ? url->filename().string() : std::string("none"); }

} // namespace

double AudioLayer::progressAt(double now, double start, double duration)
{
    if (!(duration > 0))
        return 1;
    double elapsed = now - start;
    if (elapsed >= duration - timingTolerance)
        return 1;
    return std::clamp(elapsed / duration, 0.0, 1.0);
}

std::shared_ptr<LoopStreamer> AudioLayer::streamerOf(const std::optional<Source>& source)
{
    if (!source)
        return nullptr;
    if (const auto* streamer = std::get_if<std::shared_ptr<LoopStreamer>>(&*source))
        return *streamer;
    return nullptr;
}

AudioLayer::AudioLayer(Kind kind, Session session)
    : kind_(kind)
    , session_(std::move(session))
    , self_(std::make_shared<AudioLayer*>(this))
{
}

AudioLayer::~AudioLayer()
{
    haltCrossfade();
    self_.reset();
}

AudioLayer::URL AudioLayer::requestedURL() const
{
    if (pending_)
        return *pending_;
    if (decoding_)
        return decoding_;
    return url_;
}

std::shared_ptr<LoopStreamer> AudioLayer::streamer() const { return streamerOf(source_); }

std::optional<AudioLayer::URL> AudioLayer::takePending()
{
    auto pending = std::move(pending_);
    pending_.reset();
    return pending;
}

// MARK: - Playing

void AudioLayer::attach(AudioMixer& mixer, const Loaded& loaded)
{
    mixer_ = &mixer;
    resumeAt_.reset();
    if (loaded.source) {
        source_ = loaded.source;
        node_ = mixer.addPlayer();
    } else {
        url_.reset();
    }
}

void AudioLayer::play(const Loaded& loaded)
{
    if (resumeAt_)
        resumeAt_ = loaded;
    else if (node_)
        startPlayer(loaded);
}

void AudioLayer::startPlayer(const Loaded& loaded)
{
    if (auto streamer = streamerOf(source_)) {
        streamer->start(node_, loaded.frame);
        // The handler runs on the streamer's queue; the decision belongs to the main loop.
        streamer->setFailureHandler([weak = std::weak_ptr<AudioLayer*>(self_), loop = &session_.mainLoop, failed = streamer.get()] {
            loop->post([weak, failed] {
                if (auto self = weak.lock())
                    (*self)->session_.streamFailed(failed);
            });
        });
    } else {
        if (loaded.leadIn)
            node_->scheduleBuffer(loaded.leadIn);
        node_->scheduleBuffer(std::get<std::shared_ptr<PCMBuffer>>(*source_), AudioPlayer::loops);
    }
    node_->play();
}

void AudioLayer::resumePlayers()
{
    auto resume = [](const std::shared_ptr<AudioPlayer>& node) {
        if (node && !node->isPlaying())
            node->play();
    };
    resume(node_);
    for (const Fading& entry : outgoing_)
        resume(entry.node);
}

void AudioLayer::suspend()
{
    if (resumeAt_)
        return;
    finishCrossfade();
    // A held buffer starts over from its first frame.
    std::int64_t frame = 0;
    if (auto streamer = streamerOf(source_)) {
        frame = streamer->resumeFrame();
        streamer->stop();
    }
    if (node_)
        node_->stop();
    resumeAt_ = Loaded{.source = source_, .frame = frame, .leadIn = nullptr};
}

void AudioLayer::resume()
{
    if (!resumeAt_)
        return;
    Loaded loaded = std::move(*resumeAt_);
    resumeAt_.reset();
    play(loaded);
}

bool AudioLayer::stop()
{
    finishCrossfade();
    if (auto streamer = streamerOf(source_))
        streamer->stop();
    for (const Retiring& entry : retiring_)
        if (entry.node)
            entry.node->stop();
    if (node_)
        node_->stop();
    mixer_ = nullptr;
    node_.reset();
    source_.reset();
    retiring_.clear();
    url_.reset();
    pending_.reset();
    resumeAt_.reset();
    ++token_;
    bool wasDecoding = decoding_.has_value();
    decoding_.reset();
    return wasDecoding;
}

// MARK: - Switching

void AudioLayer::switchTo(const URL& url, double over)
{
    if (!mixer_) { // loading: the latest request wins
        if (url == url_)
            pending_.reset();
        else
            pending_.emplace(url);
        return;
    }
    if (decoding_) {
        if (url == url_) {
            // Back to what plays: the decode under way is no longer wanted.
            ++token_;
            decoding_.reset();
            pending_.reset();
            if (session_.settled)
                session_.settled();
        } else if (url == decoding_) {
            pending_.reset();
        } else {
            pending_.emplace(url);
        }
        return;
    }
    if (url == url_)
        return;
    if (!url) {
        crossfade({}, std::nullopt, over);
        return;
    }
    if (auto buffer = held(*url)) {
        crossfade(Loaded{.source = Source{std::move(buffer)}, .frame = 0, .leadIn = nullptr}, url, over);
        return;
    }
    decode(*url, over);
}

std::shared_ptr<PCMBuffer> AudioLayer::held(const std::filesystem::path& url) const
{
    if (kind_ != Kind::ambience)
        return nullptr;
    auto bufferOf = [&](const URL& candidate, const std::optional<Source>& source) -> std::shared_ptr<PCMBuffer> {
        if (candidate != url || !source)
            return nullptr;
        const auto* buffer = std::get_if<std::shared_ptr<PCMBuffer>>(&*source);
        return buffer ? *buffer : nullptr;
    };
    for (const Fading& entry : outgoing_)
        if (auto buffer = bufferOf(entry.url, entry.source))
            return buffer;
    for (const Retiring& entry : retiring_)
        if (auto buffer = bufferOf(entry.url, entry.source))
            return buffer;
    return nullptr;
}

void AudioLayer::decode(const std::filesystem::path& url, double over)
{
    int token = ++token_;
    decoding_ = url;
    ++decodesStarted_;
    std::int64_t frame = session_.entryFrame ? session_.entryFrame(url) : 0;
    session_.load(url, frame, [weak = std::weak_ptr<AudioLayer*>(self_), token, url, over](Loaded loaded) {
        auto self = weak.lock();
        if (self && (*self)->token_ == token)
            (*self)->decoded(url, std::move(loaded), over);
    });
}

void AudioLayer::decoded(const std::filesystem::path& url, Loaded loaded, double over)
{
    decoding_.reset();
    URL target = url;
    if (pending_) {
        target = *pending_;
        pending_.reset();
    }
    if (target == url)
        crossfade(std::move(loaded), url, over);
    else if (target != url_)
        switchTo(target, over);
    if (!decoding_ && session_.settled)
        session_.settled();
}

void AudioLayer::crossfade(Loaded loaded, const URL& url, double over)
{
    if (!mixer_)
        return;
    if (progress_ >= 1)
        finishCrossfade(); // one that arrived and waits for its last ramp
    // A crossfade under way is folded into the outgoing shares, so that nothing jumps.
    float keep = 1;
    if (progress_ < 1) {
        float x = crossfadeAngle(progress_);
        for (Fading& entry : outgoing_)
            entry.gain *= std::cos(x);
        keep = std::sin(x);
    }
    haltCrossfade();
    if (node_ && resumeAt_) { // nothing is heard: the old player simply retires
        retiring_.push_back(Retiring{node_, url_, source_});
        scheduleRelease();
    } else if (node_) {
        outgoing_.push_back(Fading{node_, source_, url_, keep});
    }
    node_.reset();
    source_.reset();
    if (loaded.source) {
        source_ = loaded.source;
        node_ = mixer_->addPlayer();
        url_ = url;
    } else {
        url_.reset();
        loaded.frame = 0;
    }
    progress_ = 0;
    applyGains();
    play(loaded);
    if (kind_ == Kind::music)
        Log::audio.notice("Music switched to %{public}s from frame %lld over %.*f s", nameOrNone(url_), loaded.frame, 1, over);
    else
        Log::audio.notice("Ambience switched to %{public}s over %.*f s", nameOrNone(url_), 1, over);

    if (!(over > 0) || resumeAt_) {
        finishCrossfade();
        return;
    }
    fadeStart_ = session_.mainLoop.mediaTime();
    fadeLength_ = over;
    settledTicks_ = 0;
    fadeTimer_ = session_.mainLoop.scheduleRepeating(crossfadeInterval, [weak = std::weak_ptr<AudioLayer*>(self_)] {
        if (auto self = weak.lock())
            (*self)->step();
    });
}

void AudioLayer::step()
{
    double p = progressAt(session_.mainLoop.mediaTime(), fadeStart_, fadeLength_);
    progress_ = static_cast<float>(p);
    applyGains();
    // The outgoing players stop a tick after arriving, once the output has
    // rendered their last ramp down: stopped at once, they would end on a step.
    if (p >= 1 && ++settledTicks_ > 1)
        finishCrossfade();
}

void AudioLayer::haltCrossfade()
{
    if (fadeTimer_) {
        fadeTimer_->cancel();
        fadeTimer_.reset();
    }
}

void AudioLayer::finishCrossfade()
{
    haltCrossfade();
    bool retired = !outgoing_.empty();
    for (Fading& entry : outgoing_) {
        if (auto streamer = streamerOf(entry.source))
            streamer->stop();
        entry.node->stop();
        retiring_.push_back(Retiring{entry.node, entry.url, std::move(entry.source)});
    }
    outgoing_.clear();
    progress_ = 1;
    applyGains();
    if (retired)
        scheduleRelease();
}

// MARK: - Levels

void AudioLayer::setLevel(float level)
{
    level_ = std::clamp(level, 0.0f, 1.0f);
    applyGains();
}

void AudioLayer::applyGains()
{
    float in = 1;
    float out = 0;
    if (progress_ < 1) {
        float x = crossfadeAngle(progress_);
        in = std::sin(x);
        out = std::cos(x);
    }
    if (node_)
        node_->setVolume(level_ * in);
    for (const Fading& entry : outgoing_)
        entry.node->setVolume(out * level_ * entry.gain);
}

// MARK: - Retired players

void AudioLayer::scheduleRelease()
{
    if (releasePosted_)
        return;
    releasePosted_ = true;
    session_.mainLoop.post([weak = std::weak_ptr<AudioLayer*>(self_)] {
        if (auto self = weak.lock()) {
            (*self)->releasePosted_ = false;
            (*self)->releaseRetired();
        }
    });
}

void AudioLayer::releaseRetired()
{
    for (Retiring& entry : retiring_) {
        if (entry.node && mixer_)
            mixer_->removePlayer(entry.node);
        entry.node.reset();
    }
    // The newest ambience let go stays decoded, for a quick way back to it.
    std::size_t kept = kind_ == Kind::ambience ? 1 : 0;
    if (retiring_.size() > kept)
        retiring_.erase(retiring_.begin(), retiring_.end() - static_cast<std::ptrdiff_t>(kept));
}

} // namespace hushmeadows
