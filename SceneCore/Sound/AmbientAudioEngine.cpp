#include "SceneCore/Sound/AmbientAudioEngine.h"

#include "SceneCore/Runtime/Log.h"
#include "SceneCore/Runtime/Precondition.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>

namespace hushmeadows {

namespace {

constexpr float halfPi = std::numbers::pi_v<float> / 2;

// Repeating timers add up their interval in floating point, so the tick meant
// for the end of a fade can land a hair before it; that tick ends the fade.
constexpr double timingTolerance = 1e-9;

double progressAt(double now, double start, double duration)
{
    if (!(duration > 0))
        return 1;
    double elapsed = now - start;
    if (elapsed >= duration - timingTolerance)
        return 1;
    return std::clamp(elapsed / duration, 0.0, 1.0);
}

// The equal-power angle of a crossfade's progress on a smoothstep time curve.
float crossfadeAngle(float progress)
{
    float p = std::clamp(progress, 0.0f, 1.0f);
    float s = p * p * (3.0f - 2.0f * p);
    return s * halfPi;
}

// A crossfade under way when a new one starts is folded into the outgoing
// gains, so that nothing jumps; returns the share the current layer keeps.
template <typename Entries>
float foldRunningCrossfade(float progress, Entries& outgoing)
{
    if (progress >= 1)
        return 1;
    float x = crossfadeAngle(progress);
    for (auto& entry : outgoing)
        entry.gain *= std::cos(x);
    return std::sin(x);
}

std::string fileName(const std::filesystem::path& url) { return url.filename().string(); }

std::string nameOrNone(const std::optional<std::filesystem::path>& url) { return url ? fileName(*url) : std::string("none"); }

std::shared_ptr<LoopStreamer> streamerOf(const std::optional<AmbientAudioEngine::MusicSource>& source)
{
    if (!source)
        return nullptr;
    if (const auto* streamer = std::get_if<std::shared_ptr<LoopStreamer>>(&*source))
        return *streamer;
    return nullptr;
}

// Decodes the whole of an open file into one buffer.
// Decodes a file whole, a second at a time: what the header says of its
// length is not trusted, memory grows only with frames that really decode, and
// never past the limit. Nothing (and no log) once cancelled.
std::shared_ptr<PCMBuffer> readWhole(AudioFile& file, const std::string& name, const std::atomic<bool>& cancelled)
{
    AudioFormat format = file.processingFormat();
    auto limit = static_cast<std::int64_t>(AmbientAudioEngine::wholeDecodeLimit * format.sampleRate);
    auto chunkFrames = static_cast<std::uint32_t>(std::max(1.0, format.sampleRate));
    auto chunk = PCMBuffer::make(format, chunkFrames);
    if (!chunk) {
        Log::audio.error("Could not read %{public}s: %{private}s", name, std::string("the file's format cannot be decoded"));
        return nullptr;
    }
    std::vector<std::vector<float>> planes(static_cast<std::size_t>(format.channelCount));
    // The stated length only sizes the first reservation, never past the limit.
    for (auto& plane : planes)
        plane.reserve(static_cast<std::size_t>(std::clamp<std::int64_t>(file.length(), 0, limit)));
    std::int64_t decoded = 0;
    file.setFramePosition(0);
    for (;;) {
        if (cancelled.load(std::memory_order_relaxed))
            return nullptr;
        if (auto result = file.read(*chunk, chunkFrames); !result) {
            Log::audio.error("Could not read %{public}s: %{private}s", name, result.error());
            return nullptr;
        }
        std::uint32_t count = chunk->frameLength();
        if (decoded + count > limit) {
            Log::audio.error("Could not read %{public}s: %{private}s", name, std::string("the sound is too long to hold whole"));
            return nullptr;
        }
        for (std::size_t c = 0; c < planes.size(); ++c)
            planes[c].insert(planes[c].end(), chunk->channelData(static_cast<int>(c)), chunk->channelData(static_cast<int>(c)) + count);
        decoded += count;
        if (count < chunkFrames)
            break;
    }
    auto buffer = decoded > 0 ? PCMBuffer::make(format, static_cast<std::uint32_t>(decoded)) : nullptr;
    if (!buffer) {
        Log::audio.error("Could not read %{public}s: %{private}s", name, std::string("the file holds no sound"));
        return nullptr;
    }
    for (std::size_t c = 0; c < planes.size(); ++c)
        std::copy(planes[c].begin(), planes[c].end(), buffer->channelData(static_cast<int>(c)));
    buffer->setFrameLength(static_cast<std::uint32_t>(decoded));
    return buffer;
}

// The rest of a buffer's first pass from a frame on, or nothing when the
// frame is not inside it past its start.
std::shared_ptr<PCMBuffer> tailOf(const PCMBuffer& buffer, std::int64_t frame)
{
    if (frame <= 0 || frame >= buffer.frameLength())
        return nullptr;
    auto frames = static_cast<std::uint32_t>(buffer.frameLength() - frame);
    auto tail = PCMBuffer::make(buffer.format(), frames);
    if (!tail)
        return nullptr;
    for (int channel = 0; channel < buffer.channelCount(); ++channel)
        std::memcpy(tail->channelData(channel), buffer.channelData(channel) + frame, frames * sizeof(float));
    tail->setFrameLength(frames);
    return tail;
}

// The music as the loading work delivers it, begun at the entry frame.
AmbientAudioEngine::LoadedSources loadMusic(const AmbientAudioEngine::Decoder& decoder, const std::optional<std::filesystem::path>& url,
                                            std::int64_t frame)
{
    AmbientAudioEngine::LoadedSources sources;
    sources.music = AmbientAudioEngine::openMusic(decoder, url, frame);
    if (!sources.music)
        return sources;
    if (auto streamer = streamerOf(sources.music)) {
        sources.musicFrame = std::clamp<std::int64_t>(frame, 0, streamer->length() - 1);
    } else {
        const auto& buffer = std::get<std::shared_ptr<PCMBuffer>>(*sources.music);
        sources.musicLeadIn = tailOf(*buffer, frame);
        sources.musicFrame = sources.musicLeadIn ? frame : 0;
    }
    return sources;
}

} // namespace

std::string_view rawValue(AmbientAudioEngine::State state)
{
    switch (state) {
    case AmbientAudioEngine::State::idle: return "idle";
    case AmbientAudioEngine::State::loading: return "loading";
    case AmbientAudioEngine::State::playing: return "playing";
    case AmbientAudioEngine::State::stopping: return "stopping";
    }
    return "idle";
}

AmbientAudioEngine::AmbientAudioEngine(Services services)
    : services_(std::move(services))
    , offlineFormat_(services_.offlineFormat)
    , self_(std::make_shared<AmbientAudioEngine*>(this))
{
    HM_PRECONDITION(services_.makeOutput != nullptr || services_.offlineFormat, "the ambient audio engine needs an output to play through");
    HM_PRECONDITION(services_.openFile != nullptr, "the ambient audio engine needs a way to open audio files");
    HM_PRECONDITION(services_.runInBackground != nullptr, "the ambient audio engine needs a way to decode in the background");
    HM_PRECONDITION(services_.makeSerialQueue != nullptr, "the ambient audio engine needs queues for streamed music");
    HM_PRECONDITION(graphSampleRate() > 0, "the ambient audio engine needs a positive sample rate");
}

AmbientAudioEngine::~AmbientAudioEngine()
{
    // Waiters hear nothing more: their owner is going away with the engine.
    for (AmbienceWaiter& waiter : ambienceWaiters_)
        if (waiter.timer)
            waiter.timer->cancel();
    ambienceWaiters_.clear();
    stopImmediately();
    self_.reset();
}

double AmbientAudioEngine::graphSampleRate() const
{
    return offlineFormat_ ? offlineFormat_->sampleRate : services_.sampleRate;
}

AmbientAudioEngine::Decoder AmbientAudioEngine::decoder() const
{
    return Decoder{services_.openFile, graphSampleRate(), services_.makeSerialQueue, decodesCancelled_};
}

// MARK: - Decoding

std::optional<AmbientAudioEngine::MusicSource> AmbientAudioEngine::openMusic(const Decoder& decoder,
                                                                             const std::optional<std::filesystem::path>& url,
                                                                             std::int64_t frame)
{
    if (!url)
        return std::nullopt;
    std::string name = fileName(*url);
    auto file = decoder.openFile(*url, decoder.sampleRate);
    if (!file) {
        Log::audio.error("Could not open %{public}s: %{private}s", name, file.error());
        return std::nullopt;
    }
    double duration = static_cast<double>((*file)->length()) / (*file)->processingFormat().sampleRate;
    if (!(duration > streamingThreshold)) {
        auto buffer = readWhole(**file, name, *decoder.cancelled);
        if (!buffer)
            return std::nullopt;
        return MusicSource{std::move(buffer)};
    }
    auto streamer = LoopStreamer::make(*url, std::move(*file), decoder.makeSerialQueue(LoopStreamer::queueLabel));
    if (!streamer) {
        Log::audio.error("Could not open %{public}s: %{private}s", name, streamer.error());
        return std::nullopt;
    }
    if (!(*streamer)->prime(frame)) {
        Log::audio.error("Could not decode %{public}s", name);
        return std::nullopt;
    }
    return MusicSource{std::shared_ptr<LoopStreamer>(std::move(*streamer))};
}

std::shared_ptr<PCMBuffer> AmbientAudioEngine::read(const Decoder& decoder, const std::filesystem::path& url)
{
    std::string name = fileName(url);
    auto file = decoder.openFile(url, decoder.sampleRate);
    if (!file) {
        Log::audio.error("Could not read %{public}s: %{private}s", name, file.error());
        return nullptr;
    }
    return readWhole(**file, name, *decoder.cancelled);
}

// MARK: - Starting

void AmbientAudioEngine::start(const WorldPackage& world, double fadeIn)
{
    start(world, world.musicURL(), fadeIn);
}

void AmbientAudioEngine::start(const WorldPackage& world, const std::optional<std::filesystem::path>& music, double fadeIn)
{
    if ((state_ == State::loading || state_ == State::playing) && world_ && *world_ == world) {
        if (music != requestedMusicURL())
            switchMusic(music, fadeIn);
        return;
    }

    if (state_ == State::stopping && engine_) {
        state_ = State::playing;
        world_ = world;
        lastFadeIn_ = fadeIn;
        if (!isMuted_)
            fadeMaster(1.0f, fadeIn, {});
        else
            muteChanged(fadeIn); // the stop's fade gives way to the mute's
        if (music != requestedMusicURL())
            switchMusic(music, fadeIn);
        auto ambience = world.ambienceURL();
        if (ambience != requestedAmbienceURL())
            switchAmbience(ambience, ambienceCrossfade);
        return;
    }

    stopImmediately();
    world_ = world;
    musicURL_ = music;
    ambienceURL_ = world.ambienceURL();
    lastFadeIn_ = fadeIn;
    state_ = State::loading;
    int generation = generation_;
    std::int64_t frame = music ? nextEntryPoint(*music) : 0;

    services_.runInBackground([decoder = decoder(), music, frame, ambience = ambienceURL_, loop = &services_.mainLoop,
                               weak = weakSelf(), generation, fadeIn] {
        LoadedSources sources = loadMusic(decoder, music, frame);
        if (ambience)
            sources.ambience = read(decoder, *ambience);
        loop->post([weak, generation, fadeIn, sources = std::move(sources)]() mutable {
            auto self = weak.lock();
            if (!self)
                return;
            AmbientAudioEngine& engine = **self;
            if (engine.generation_ != generation || engine.state_ != State::loading)
                return;
            engine.begin(std::move(sources), fadeIn);
        });
    });
}

std::shared_ptr<AudioPlayer> AmbientAudioEngine::makeNode()
{
    return engine_->addPlayer();
}

void AmbientAudioEngine::begin(LoadedSources sources, double fadeIn)
{
    if (!sources.music && !sources.ambience) {
        Log::audio.error("World has no playable audio");
        state_ = State::idle;
        world_.reset();
        musicURL_.reset();
        ambienceURL_.reset();
        pendingSwitch_.reset();
        pendingAmbience_.reset();
        return;
    }

    std::shared_ptr<AudioOutput> output;
    if (offlineFormat_) {
        offlineOutput_ = std::make_shared<OfflineAudioOutput>(offlineMaximumFrameCount);
        output = offlineOutput_;
    } else {
        output = services_.makeOutput();
    }
    HM_PRECONDITION(output != nullptr, "the output factory made no output");
    engine_ = std::make_unique<AudioMixer>(services_.mainLoop, std::move(output), graphSampleRate());

    if (sources.music) {
        musicSource_ = sources.music;
        musicNode_ = makeNode();
    } else {
        musicURL_.reset();
    }
    if (sources.ambience) {
        ambienceBuffer_ = sources.ambience;
        ambienceNode_ = makeNode();
    } else {
        ambienceURL_.reset();
    }

    engine_->setOutputVolume(0);
    ++activeEngines_;
    applyChannelVolumes();
    // Recovery may tear the mixer down; it runs on a later turn of the
    // loop, never inside the engine's own notification.
    configObserver_ = engine_->observeConfigurationChange([weak = weakSelf(), loop = &services_.mainLoop, engine = engine_.get(),
                                                           generation = generation_] {
        loop->post([weak, engine, generation] {
            auto self = weak.lock();
            if (self && (*self)->engine_.get() == engine && (*self)->generation_ == generation)
                (*self)->recoverFromConfigurationChange();
        });
    });

    if (auto started = engine_->start(); !started) {
        Log::audio.error("Audio engine failed to start: %{private}s", started.error());
        stopImmediately();
        return;
    }

    if (musicNode_)
        playMusic(musicNode_, *musicSource_, sources.musicFrame, sources.musicLeadIn);
    if (ambienceNode_)
        playAmbience(*ambienceNode_, ambienceBuffer_);

    state_ = State::playing;
    bool streamed = streamerOf(musicSource_) != nullptr;
    Log::audio.notice("Sound started: %{public}s%{public}s%{public}s", world_ ? world_->id() : std::string(),
                      std::string(streamed ? " (music streamed)" : ""), std::string(isMuted_ ? " (muted)" : ""));

    if (isMuted_)
        engine_->pause();
    else
        fadeMaster(1.0f, fadeIn, {});

    // Switches asked for while the first sources were decoding.
    if (pendingSwitch_) {
        auto target = *pendingSwitch_;
        pendingSwitch_.reset();
        if (target != musicURL_)
            switchMusic(target, fadeIn);
    }
    if (pendingAmbience_) {
        auto target = *pendingAmbience_;
        pendingAmbience_.reset();
        if (target != ambienceURL_)
            switchAmbience(target, ambienceCrossfade);
    }
}

void AmbientAudioEngine::playMusic(const std::shared_ptr<AudioPlayer>& node, const MusicSource& source, std::int64_t frame,
                                   const std::shared_ptr<PCMBuffer>& leadIn)
{
    if (auto streamer = std::get_if<std::shared_ptr<LoopStreamer>>(&source)) {
        (*streamer)->start(node, frame);
        watchForStreamFailure(*streamer);
    } else {
        if (leadIn)
            node->scheduleBuffer(leadIn);
        node->scheduleBuffer(std::get<std::shared_ptr<PCMBuffer>>(source), AudioPlayer::loops);
    }
    node->play();
}

void AmbientAudioEngine::playAmbience(AudioPlayer& node, const std::shared_ptr<PCMBuffer>& buffer)
{
    node.scheduleBuffer(buffer, AudioPlayer::loops);
    node.play();
}

// MARK: - Levels and fades

void AmbientAudioEngine::setMusicVolume(float volume)
{
    musicVolume_ = volume;
    applyChannelVolumes();
}

void AmbientAudioEngine::setAmbienceVolume(float volume)
{
    ambienceVolume_ = volume;
    applyChannelVolumes();
}

void AmbientAudioEngine::applyChannelVolumes()
{
    float m = std::clamp(musicVolume_, 0.0f, 1.0f);
    float a = std::clamp(ambienceVolume_, 0.0f, 1.0f);

    float x = crossfadeAngle(musicCrossfade_.progress);
    if (musicNode_)
        musicNode_->setVolume(m * std::sin(x));
    for (const Outgoing& entry : outgoing_)
        entry.node->setVolume(std::cos(x) * m * entry.gain);

    float in = 1;
    float out = 0;
    if (ambienceCrossfade_.progress < 1) {
        float y = crossfadeAngle(ambienceCrossfade_.progress);
        in = std::sin(y);
        out = std::cos(y);
    }
    if (ambienceNode_)
        ambienceNode_->setVolume(a * in);
    for (const OutgoingAmbience& entry : outgoingAmbience_)
        entry.node->setVolume(out * a * entry.gain);
}

void AmbientAudioEngine::fadeMaster(float target, double duration, std::function<void()> completion)
{
    cancelFade();
    if (!engine_)
        return;
    float current = engine_->outputVolume();
    if (duration > 0 && current != target) {
        fade_ = Fade{current, target, services_.mainLoop.mediaTime(), duration, std::move(completion)};
        fadeTimer_ = services_.mainLoop.scheduleRepeating(fadeInterval, [weak = weakSelf()] {
            if (auto self = weak.lock())
                (*self)->stepFade();
        });
        return;
    }
    engine_->setOutputVolume(target);
    if (completion)
        completion();
}

void AmbientAudioEngine::stepFade()
{
    if (!fade_ || !engine_) {
        cancelFade();
        return;
    }
    double t = progressAt(services_.mainLoop.mediaTime(), fade_->start, fade_->duration);
    double level = fade_->from + (static_cast<double>(fade_->to) - fade_->from) * (t * t * (3 - 2 * t));
    engine_->setOutputVolume(static_cast<float>(level));
    // What follows a fade (a pause, a stop) waits a few ticks, so that the
    // output has rendered the last ramp before the sound is cut.
    if (t >= 1 && (!fade_->completion || ++fade_->settledTicks > fadeSettleTicks)) {
        std::function<void()> completion = std::move(fade_->completion);
        cancelFade();
        if (completion)
            completion();
    }
}

void AmbientAudioEngine::cancelFade()
{
    if (fadeTimer_) {
        fadeTimer_->cancel();
        fadeTimer_.reset();
    }
    fade_.reset();
}

// MARK: - Stopping

void AmbientAudioEngine::stop(double fadeOut, std::function<void()> completion)
{
    switch (state_) {
    case State::playing:
    case State::stopping:
        if (!engine_)
            break;
        state_ = State::stopping;
        fadeMaster(0.0f, fadeOut, [weak = weakSelf(), engine = engine_.get(), generation = generation_, completion] {
            auto self = weak.lock();
            if (!self)
                return;
            AmbientAudioEngine& me = **self;
            // A start in between revoked the stop; an immediate stop made this moot.
            if (!me.engine_ || me.engine_.get() != engine || me.generation_ != generation || me.state_ != State::stopping)
                return;
            me.stopImmediately();
            if (completion)
                completion();
        });
        return;
    case State::loading:
    case State::idle:
        break;
    }
    stopImmediately();
    if (completion)
        completion();
}

void AmbientAudioEngine::stopImmediately()
{
    if (engine_)
        Log::audio.info("Sound stopped");
    ++generation_;
    decodesCancelled_->store(true, std::memory_order_relaxed);
    decodesCancelled_ = std::make_shared<std::atomic<bool>>(false);
    ++switchGeneration_;
    cancelFade();
    if (configObserver_) {
        configObserver_->cancel();
        configObserver_.reset();
    }

    finishMusicCrossfade();
    finishAmbienceCrossfade();

    if (auto streamer = streamerOf(musicSource_))
        streamer->stop();
    for (const auto& node : retiring_)
        node->stop();
    for (const RetiringAmbience& entry : retiringAmbience_)
        if (entry.node)
            entry.node->stop();
    if (musicNode_)
        musicNode_->stop();
    if (ambienceNode_)
        ambienceNode_->stop();
    if (engine_) {
        engine_->stop();
        engine_->stopAllPlayers();
        --activeEngines_;
    }

    musicNode_.reset();
    ambienceNode_.reset();
    retiring_.clear();
    retiringAmbience_.clear();
    engine_.reset();
    musicSource_.reset();
    ambienceBuffer_.reset();
    musicURL_.reset();
    ambienceURL_.reset();
    pendingSwitch_.reset();
    switchingTo_.reset();
    pendingAmbience_.reset();
    ambienceDecodingTo_.reset();
    bool wasDecodingAmbience = isDecodingAmbience_;
    isDecodingAmbience_ = false;
    world_.reset();
    state_ = State::idle;
    if (wasDecodingAmbience)
        ambienceSettled(false);
}

void AmbientAudioEngine::silenceNow(double over)
{
    cancelFade();
    if ((state_ == State::playing || state_ == State::stopping) && engine_) {
        AudioMixer& mixer = *engine_;
        float volume = mixer.outputVolume();
        if (volume > 0) {
            for (int k = 9; k >= 0; --k) {
                mixer.setOutputVolume(volume * static_cast<float>(k) / 10.0f);
                if (services_.sleep)
                    services_.sleep(over / 10);
            }
        }
    }
    stopImmediately();
}

// MARK: - Mute

void AmbientAudioEngine::setMuted(bool muted, double fade)
{
    if (muted == isMuted_)
        return;
    isMuted_ = muted;
    suppressMuteObserver_ = false;
    muteChanged(fade);
}

void AmbientAudioEngine::setIsMuted(bool muted)
{
    if (muted == isMuted_)
        return;
    isMuted_ = muted;
    if (!suppressMuteObserver_)
        muteChanged(muteFade);
}

void AmbientAudioEngine::muteChanged(double fade)
{
    if (state_ != State::playing || !engine_)
        return;
    if (isMuted_) {
        fadeMaster(0.0f, fade, [weak = weakSelf(), engine = engine_.get()] {
            auto self = weak.lock();
            if (!self)
                return;
            AmbientAudioEngine& me = **self;
            if (me.engine_ && me.engine_.get() == engine && me.isMuted_ && me.state_ == State::playing)
                me.engine_->pause();
        });
        return;
    }
    if (!engine_->isRunning()) {
        if (auto started = engine_->start(); !started)
            Log::audio.error("Audio engine resume failed: %{private}s", started.error());
    }
    auto resume = [](const std::shared_ptr<AudioPlayer>& node) {
        if (node && !node->isPlaying())
            node->play();
    };
    resume(musicNode_);
    resume(ambienceNode_);
    for (const Outgoing& entry : outgoing_)
        resume(entry.node);
    for (const OutgoingAmbience& entry : outgoingAmbience_)
        resume(entry.node);
    // Coming back is always gentler than going quiet: at least 0.7 s.
    fadeMaster(1.0f, 2 * std::max(fade, muteFade), {});
}

// MARK: - Output changes

void AmbientAudioEngine::recoverFromConfigurationChange()
{
    if (!engine_ || (state_ != State::playing && state_ != State::stopping))
        return;
    Log::audio.notice("Audio configuration changed; restarting engine");
    finishMusicCrossfade();
    finishAmbienceCrossfade();

    auto streamer = streamerOf(musicSource_);
    std::int64_t resumeFrame = 0;
    if (streamer) {
        resumeFrame = streamer->resumeFrame();
        streamer->stop();
    }
    if (musicNode_) {
        musicNode_->stop();
    }
    if (ambienceNode_) {
        ambienceNode_->stop();
    }

    if (auto started = engine_->start(); !started) {
        Log::audio.error("Audio engine restart failed: %{private}s", started.error());
        stopImmediately();
        return;
    }
    if (musicNode_)
        playMusic(musicNode_, *musicSource_, streamer ? resumeFrame : 0, nullptr);
    if (ambienceNode_)
        playAmbience(*ambienceNode_, ambienceBuffer_);
    if (isMuted_ && state_ == State::playing)
        engine_->pause();
}

// MARK: - Queries

std::optional<std::filesystem::path> AmbientAudioEngine::requestedMusicURL() const
{
    if (pendingSwitch_)
        return *pendingSwitch_;
    if (switchingTo_)
        return switchingTo_;
    return musicURL_;
}

std::optional<std::filesystem::path> AmbientAudioEngine::requestedAmbienceURL() const
{
    if (pendingAmbience_)
        return *pendingAmbience_;
    if (ambienceDecodingTo_)
        return ambienceDecodingTo_;
    return ambienceURL_;
}

float AmbientAudioEngine::masterGain() const
{
    return engine_ ? engine_->outputVolume() : 0.0f;
}

bool AmbientAudioEngine::isEngineRunning() const
{
    return engine_ && engine_->isRunning();
}

std::expected<void, std::string> AmbientAudioEngine::renderOffline(std::uint32_t frames, PCMBuffer& buffer)
{
    if (!offlineFormat_)
        return std::unexpected(std::string("the engine does not render offline"));
    if (engine_ && engine_->isRunning() && offlineOutput_) {
        auto pulled = offlineOutput_->pull(frames, buffer);
        engine_->drainSoon();
        return pulled;
    }
    if (buffer.frameCapacity() < frames)
        return std::unexpected(std::string("the buffer is too small for the frames asked"));
    for (int channel = 0; channel < buffer.channelCount(); ++channel)
        std::fill_n(buffer.channelData(channel), frames, 0.0f);
    buffer.setFrameLength(frames);
    return {};
}

// MARK: - Switching music

std::int64_t AmbientAudioEngine::nextEntryPoint(const std::filesystem::path& url)
{
    if (!services_.entryPoints)
        return 0;
    std::vector<std::int64_t> points = services_.entryPoints(url);
    if (points.empty())
        return 0;
    std::size_t& cursor = entryCursor_[url];
    std::int64_t frame = points[cursor % points.size()];
    cursor = (cursor + 1) % points.size();
    return frame;
}

void AmbientAudioEngine::switchMusic(const std::optional<std::filesystem::path>& url, double over)
{
    switch (state_) {
    case State::idle:
        return;
    case State::loading:
        if (url == musicURL_)
            pendingSwitch_.reset();
        else
            pendingSwitch_.emplace(url);
        return;
    case State::playing:
    case State::stopping:
        break;
    }
    if (!engine_)
        return;
    if (switchingTo_) {
        if (url == musicURL_) {
            // Back to what plays: the decode under way is no longer wanted.
            ++switchGeneration_;
            switchingTo_.reset();
            pendingSwitch_.reset();
        } else if (url == switchingTo_) {
            pendingSwitch_.reset();
        } else {
            pendingSwitch_.emplace(url);
        }
        return;
    }
    if (url == musicURL_)
        return;
    if (!url) {
        crossfadeMusic({}, std::nullopt, over);
        return;
    }
    decodeMusic(*url, over);
}

void AmbientAudioEngine::decodeMusic(const std::filesystem::path& url, double over)
{
    int token = ++switchGeneration_;
    switchingTo_ = url;
    int generation = generation_;
    std::int64_t frame = nextEntryPoint(url);
    services_.runInBackground([decoder = decoder(), url, frame, loop = &services_.mainLoop, weak = weakSelf(), generation, token,
                               over] {
        LoadedSources sources = loadMusic(decoder, url, frame);
        loop->post([weak, generation, token, url, over, sources = std::move(sources)]() mutable {
            auto self = weak.lock();
            if (!self)
                return;
            AmbientAudioEngine& me = **self;
            if (me.generation_ != generation || me.switchGeneration_ != token)
                return;
            me.switchingTo_.reset();
            std::optional<std::filesystem::path> target = url;
            if (me.pendingSwitch_) {
                target = *me.pendingSwitch_;
                me.pendingSwitch_.reset();
            }
            if (target == url)
                me.crossfadeMusic(std::move(sources), url, over);
            else if (target != me.musicURL_)
                me.switchMusic(target, over);
        });
    });
}

void AmbientAudioEngine::crossfadeMusic(LoadedSources sources, const std::optional<std::filesystem::path>& url, double over)
{
    if (!engine_)
        return;
    float keep = foldRunningCrossfade(musicCrossfade_.progress, outgoing_);
    musicCrossfade_.halt();
    if (musicNode_)
        outgoing_.push_back(Outgoing{musicNode_, musicSource_, keep});
    musicNode_.reset();
    musicSource_.reset();

    std::int64_t frame = 0;
    if (sources.music) {
        musicSource_ = sources.music;
        musicNode_ = makeNode();
        musicURL_ = url;
        frame = sources.musicFrame;
    } else {
        musicURL_.reset();
    }
    musicCrossfade_.progress = 0;
    applyChannelVolumes();
    if (musicNode_)
        playMusic(musicNode_, *musicSource_, frame, sources.musicLeadIn);
    Log::audio.notice("Music switched to %{public}s from frame %lld over %.*f s", nameOrNone(musicURL_), frame, 1, over);

    runCrossfade(&AmbientAudioEngine::musicCrossfade_, over, &AmbientAudioEngine::finishMusicCrossfade);
}

void AmbientAudioEngine::LayerCrossfade::halt()
{
    if (timer) {
        timer->cancel();
        timer.reset();
    }
    timing.reset();
}

void AmbientAudioEngine::runCrossfade(LayerCrossfade AmbientAudioEngine::*layer, double over, Finish finish)
{
    if (!(over > 0)) {
        (this->*finish)();
        return;
    }
    LayerCrossfade& fade = this->*layer;
    fade.timing = CrossfadeTiming{services_.mainLoop.mediaTime(), over};
    fade.timer = services_.mainLoop.scheduleRepeating(fadeInterval, [weak = weakSelf(), layer, finish] {
        if (auto self = weak.lock())
            (*self)->stepCrossfade(layer, finish);
    });
}

void AmbientAudioEngine::stepCrossfade(LayerCrossfade AmbientAudioEngine::*layer, Finish finish)
{
    LayerCrossfade& fade = this->*layer;
    if (!fade.timing) {
        (this->*finish)();
        return;
    }
    double p = progressAt(services_.mainLoop.mediaTime(), fade.timing->start, fade.timing->duration);
    fade.progress = static_cast<float>(p);
    applyChannelVolumes();
    if (p >= 1)
        (this->*finish)();
}

void AmbientAudioEngine::finishMusicCrossfade()
{
    musicCrossfade_.halt();
    bool retired = !outgoing_.empty();
    for (Outgoing& entry : outgoing_) {
        if (auto streamer = streamerOf(entry.source))
            streamer->stop();
        entry.node->stop();
        retiring_.push_back(entry.node);
    }
    outgoing_.clear();
    musicCrossfade_.progress = 1;
    applyChannelVolumes();
    if (retired)
        scheduleRetiredRelease();
}

void AmbientAudioEngine::watchForStreamFailure(const std::shared_ptr<LoopStreamer>& streamer)
{
    // The handler runs on the streamer's queue; the decision belongs to the main loop.
    streamer->setFailureHandler([weak = weakSelf(), loop = &services_.mainLoop, failed = streamer.get()] {
        loop->post([weak, failed] {
            if (auto self = weak.lock())
                (*self)->streamFailed(failed);
        });
    });
}

void AmbientAudioEngine::streamFailed(const LoopStreamer* streamer)
{
    auto current = streamerOf(musicSource_);
    if (!engine_ || !current || current.get() != streamer)
        return;
    Log::audio.error("Streamed music failed; falling back to the world's own music");
    if (switchingTo_)
        return; // the switch under way replaces the broken stream anyway
    std::optional<std::filesystem::path> own = world_ ? world_->musicURL() : std::nullopt;
    if (own == musicURL_)
        own.reset(); // the world's own music is what broke: silence it
    switchMusic(own, streamFallbackCrossfade);
}

// MARK: - Switching ambience

void AmbientAudioEngine::switchAmbience(const std::optional<std::filesystem::path>& url, double over)
{
    switch (state_) {
    case State::idle:
        return;
    case State::loading:
        if (url == ambienceURL_)
            pendingAmbience_.reset();
        else
            pendingAmbience_.emplace(url);
        return;
    case State::playing:
    case State::stopping:
        break;
    }
    if (!engine_)
        return;
    if (isDecodingAmbience_) {
        if (url == ambienceDecodingTo_)
            pendingAmbience_.reset();
        else
            pendingAmbience_.emplace(url);
        return;
    }
    if (url == ambienceURL_)
        return;
    if (!url) {
        crossfadeAmbience(nullptr, std::nullopt, over);
        return;
    }
    if (auto held = heldAmbience(*url)) {
        crossfadeAmbience(std::move(held), url, over);
        return;
    }
    decodeAmbience(*url, over);
}

std::shared_ptr<PCMBuffer> AmbientAudioEngine::heldAmbience(const std::filesystem::path& url) const
{
    for (const OutgoingAmbience& entry : outgoingAmbience_)
        if (entry.url == url && entry.buffer)
            return entry.buffer;
    for (const RetiringAmbience& entry : retiringAmbience_)
        if (entry.url == url && entry.buffer)
            return entry.buffer;
    return nullptr;
}

void AmbientAudioEngine::decodeAmbience(const std::filesystem::path& url, double over)
{
    isDecodingAmbience_ = true;
    ambienceDecodingTo_ = url;
    ++ambienceDecodesStarted_;
    int generation = generation_;
    services_.runInBackground([decoder = decoder(), url, loop = &services_.mainLoop, weak = weakSelf(), generation, over] {
        std::shared_ptr<PCMBuffer> buffer = read(decoder, url);
        loop->post([weak, generation, url, over, buffer] {
            auto self = weak.lock();
            if (!self)
                return;
            AmbientAudioEngine& me = **self;
            if (me.generation_ != generation)
                return;
            me.isDecodingAmbience_ = false;
            me.ambienceDecodingTo_.reset();
            std::optional<std::filesystem::path> target = url;
            if (me.pendingAmbience_) {
                target = *me.pendingAmbience_;
                me.pendingAmbience_.reset();
            }
            if (target == url)
                me.crossfadeAmbience(buffer, buffer ? target : std::nullopt, over);
            else if (target != me.ambienceURL_)
                me.switchAmbience(target, over);
            if (!me.isDecodingAmbience_)
                me.ambienceSettled(true);
        });
    });
}

void AmbientAudioEngine::crossfadeAmbience(std::shared_ptr<PCMBuffer> buffer, const std::optional<std::filesystem::path>& url,
                                           double over)
{
    if (!engine_)
        return;
    float keep = foldRunningCrossfade(ambienceCrossfade_.progress, outgoingAmbience_);
    ambienceCrossfade_.halt();
    if (ambienceNode_)
        outgoingAmbience_.push_back(OutgoingAmbience{ambienceNode_, ambienceBuffer_, ambienceURL_, keep});
    ambienceNode_.reset();
    ambienceBuffer_.reset();

    if (buffer) {
        ambienceBuffer_ = std::move(buffer);
        ambienceNode_ = makeNode();
        ambienceURL_ = url;
    } else {
        ambienceURL_.reset();
    }
    ambienceCrossfade_.progress = 0;
    applyChannelVolumes();
    if (ambienceNode_)
        playAmbience(*ambienceNode_, ambienceBuffer_);
    Log::audio.notice("Ambience switched to %{public}s over %.*f s", nameOrNone(ambienceURL_), 1, over);

    runCrossfade(&AmbientAudioEngine::ambienceCrossfade_, over, &AmbientAudioEngine::finishAmbienceCrossfade);
}

void AmbientAudioEngine::finishAmbienceCrossfade()
{
    ambienceCrossfade_.halt();
    bool retired = !outgoingAmbience_.empty();
    for (OutgoingAmbience& entry : outgoingAmbience_) {
        entry.node->stop();
        retiringAmbience_.push_back(RetiringAmbience{entry.node, entry.url, entry.buffer});
    }
    outgoingAmbience_.clear();
    ambienceCrossfade_.progress = 1;
    applyChannelVolumes();
    if (retired)
        scheduleRetiredRelease();
}

void AmbientAudioEngine::waitForAmbience(double limit, std::function<void(bool decoded)> done)
{
    if (!done)
        return;
    if (!isDecodingAmbience_) {
        done(true);
        return;
    }
    int id = ++nextWaiterID_;
    auto timer = services_.mainLoop.postAfter(std::max(limit, 0.0), [weak = weakSelf(), id] {
        auto self = weak.lock();
        if (!self)
            return;
        auto& waiters = (*self)->ambienceWaiters_;
        auto it = std::ranges::find_if(waiters, [id](const AmbienceWaiter& waiter) { return waiter.id == id; });
        if (it == waiters.end())
            return;
        std::function<void(bool)> expired = std::move(it->done);
        waiters.erase(it);
        expired(false);
    });
    ambienceWaiters_.push_back(AmbienceWaiter{id, std::move(done), std::move(timer)});
}

void AmbientAudioEngine::ambienceSettled(bool decoded)
{
    std::vector<AmbienceWaiter> waiters = std::move(ambienceWaiters_);
    ambienceWaiters_.clear();
    for (AmbienceWaiter& waiter : waiters) {
        if (waiter.timer)
            waiter.timer->cancel();
        // Posted, so that a waiter never runs in the middle of a state change.
        services_.mainLoop.post([done = std::move(waiter.done), decoded] { done(decoded); });
    }
}

// MARK: - Retired players

void AmbientAudioEngine::scheduleRetiredRelease()
{
    if (retiredReleasePosted_)
        return;
    retiredReleasePosted_ = true;
    services_.mainLoop.post([weak = weakSelf()] {
        if (auto self = weak.lock()) {
            (*self)->retiredReleasePosted_ = false;
            (*self)->releaseRetired();
        }
    });
}

void AmbientAudioEngine::releaseRetired()
{
    if (engine_) {
        for (const auto& node : retiring_)
            engine_->removePlayer(node);
        for (RetiringAmbience& entry : retiringAmbience_)
            if (entry.node)
                engine_->removePlayer(entry.node);
    }
    retiring_.clear();
    for (RetiringAmbience& entry : retiringAmbience_)
        entry.node.reset();
    // The newest retired ambience stays decoded, for a quick way back to it.
    if (retiringAmbience_.size() > 1)
        retiringAmbience_.erase(retiringAmbience_.begin(), retiringAmbience_.end() - 1);
}

} // namespace hushmeadows
