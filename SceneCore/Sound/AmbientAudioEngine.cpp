#include "SceneCore/Sound/AmbientAudioEngine.h"

#include "SceneCore/Runtime/Log.h"
#include "SceneCore/Runtime/Precondition.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace hushmeadows {

namespace {

std::string fileName(const std::filesystem::path& url) { return url.filename().string(); }

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
AudioLayer::Loaded loadMusic(const AmbientAudioEngine::Decoder& decoder, const std::optional<std::filesystem::path>& url, std::int64_t frame)
{
    AudioLayer::Loaded loaded;
    loaded.source = AmbientAudioEngine::openMusic(decoder, url, frame);
    if (!loaded.source)
        return loaded;
    if (auto streamer = AudioLayer::streamerOf(loaded.source)) {
        loaded.frame = std::clamp<std::int64_t>(frame, 0, streamer->length() - 1);
    } else {
        const auto& buffer = std::get<std::shared_ptr<PCMBuffer>>(*loaded.source);
        loaded.leadIn = tailOf(*buffer, frame);
        loaded.frame = loaded.leadIn ? frame : 0;
    }
    return loaded;
}

// Ambience is always held whole, and begins at its first frame.
AudioLayer::Loaded loadAmbience(const AmbientAudioEngine::Decoder& decoder, const std::optional<std::filesystem::path>& url)
{
    AudioLayer::Loaded loaded;
    if (url)
        if (auto buffer = AmbientAudioEngine::read(decoder, *url))
            loaded.source = AudioLayer::Source{std::move(buffer)};
    return loaded;
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
    , music_(AudioLayer::Kind::music, layerSession(AudioLayer::Kind::music))
    , ambience_(AudioLayer::Kind::ambience, layerSession(AudioLayer::Kind::ambience))
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
    return services_.offlineFormat ? services_.offlineFormat->sampleRate : services_.sampleRate;
}

AmbientAudioEngine::Decoder AmbientAudioEngine::decoder() const
{
    return Decoder{services_.openFile, graphSampleRate(), services_.makeSerialQueue, decodesCancelled_};
}

// The layers live inside the engine, so that what they call synchronously
// may hold it directly; posted work holds it weakly.
AudioLayer::Session AmbientAudioEngine::layerSession(AudioLayer::Kind kind)
{
    bool music = kind == AudioLayer::Kind::music;
    AudioLayer::Session session{
        .mainLoop = services_.mainLoop,
        .load = [this, music](const std::filesystem::path& url, std::int64_t frame, std::function<void(AudioLayer::Loaded)> done) {
            services_.runInBackground([decoder = decoder(), music, url, frame, loop = &services_.mainLoop, weak = weakSelf(),
                                       generation = generation_, done = std::move(done)] {
                AudioLayer::Loaded loaded = music ? loadMusic(decoder, url, frame) : loadAmbience(decoder, url);
                loop->post([weak, generation, done, loaded = std::move(loaded)]() mutable {
                    auto self = weak.lock();
                    if (self && (*self)->generation_ == generation)
                        done(std::move(loaded));
                });
            });
        },
        .entryFrame = {},
        .streamFailed = [this](const LoopStreamer* failed) { streamFailed(failed); },
        .settled = {},
    };
    if (music)
        session.entryFrame = [this](const std::filesystem::path& url) { return nextEntryPoint(url); };
    else
        session.settled = [this] { ambienceSettled(true); };
    return session;
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
    music_.expect(music);
    ambience_.expect(world.ambienceURL());
    lastFadeIn_ = fadeIn;
    state_ = State::loading;
    int generation = generation_;
    std::int64_t frame = music ? nextEntryPoint(*music) : 0;

    services_.runInBackground([decoder = decoder(), music, frame, ambience = world.ambienceURL(), loop = &services_.mainLoop,
                               weak = weakSelf(), generation, fadeIn] {
        LoadedSources sources{loadMusic(decoder, music, frame), loadAmbience(decoder, ambience)};
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

void AmbientAudioEngine::adopt(const WorldPackage& world)
{
    adopt(world, carriesMusicAcrossVersions(world) ? requestedMusicURL() : world.musicURL());
}

void AmbientAudioEngine::adopt(const WorldPackage& world, const std::optional<std::filesystem::path>& music)
{
    if ((state_ != State::loading && state_ != State::playing) || !world_ || world_->id() != world.id()) {
        start(world, music, lastFadeIn_);
        return;
    }
    world_ = world;
    if (music != requestedMusicURL())
        switchMusic(music, lastFadeIn_);
    if (world.ambienceURL() != requestedAmbienceURL())
        switchAmbience(world.ambienceURL(), ambienceCrossfade);
}

void AmbientAudioEngine::begin(LoadedSources sources, double fadeIn)
{
    if (!sources.music.source && !sources.ambience.source) {
        Log::audio.error("World has no playable audio");
        state_ = State::idle;
        world_.reset();
        music_.stop();
        ambience_.stop();
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
    music_.attach(*engine_, sources.music);
    ambience_.attach(*engine_, sources.ambience);

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
        outputFailed();
        return;
    }
    if (failedOutputAttempts_ > 0)
        Log::audio.notice("Audio output back after %d failed attempts", failedOutputAttempts_);
    failedOutputAttempts_ = 0;
    outputRetryDelay_ = 0;

    music_.play(sources.music);
    ambience_.play(sources.ambience);

    state_ = State::playing;
    bool streamed = music_.streamer() != nullptr;
    Log::audio.notice("Sound started: %{public}s%{public}s%{public}s", world_ ? world_->id() : std::string(),
                      std::string(streamed ? " (music streamed)" : ""), std::string(isMuted_ ? " (muted)" : ""));

    if (isMuted_)
        engine_->pause();
    else
        fadeMaster(1.0f, fadeIn, {});

    // Switches asked for while the first sources were decoding.
    if (auto target = music_.takePending(); target && *target != musicURL())
        switchMusic(*target, fadeIn);
    if (auto target = ambience_.takePending(); target && *target != ambienceURL())
        switchAmbience(*target, ambienceCrossfade);
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
    music_.setLevel(musicVolume_);
    ambience_.setLevel(ambienceVolume_);
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
    double t = AudioLayer::progressAt(services_.mainLoop.mediaTime(), fade_->start, fade_->duration);
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
    cancelFade();
    if (configObserver_) {
        configObserver_->cancel();
        configObserver_.reset();
    }
    if (outputRetry_) {
        outputRetry_->cancel();
        outputRetry_.reset();
    }
    outputRetryDelay_ = 0;
    failedOutputAttempts_ = 0;

    music_.stop();
    bool wasDecodingAmbience = ambience_.stop();
    if (engine_) {
        engine_->stop();
        engine_->stopAllPlayers();
        --activeEngines_;
    }
    engine_.reset();
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
    music_.resumePlayers();
    ambience_.resumePlayers();
    // Coming back is always gentler than going quiet: at least 0.7 s.
    fadeMaster(1.0f, 2 * std::max(fade, muteFade), {});
}

// MARK: - Output changes

void AmbientAudioEngine::recoverFromConfigurationChange()
{
    if (!engine_ || (state_ != State::playing && state_ != State::stopping))
        return;
    Log::audio.notice("Audio configuration changed; restarting engine");
    music_.suspend();
    ambience_.suspend();
    if (auto started = engine_->start(); !started) {
        Log::audio.error("Audio engine restart failed: %{private}s", started.error());
        outputFailed();
        return;
    }
    music_.resume();
    ambience_.resume();
    if (isMuted_ && state_ == State::playing)
        engine_->pause();
}

void AmbientAudioEngine::outputFailed()
{
    // A stop fading out ends now: nobody waits for this sound any more. Its
    // completion tears everything down itself.
    if (state_ == State::stopping) {
        if (fade_ && fade_->completion) {
            std::function<void()> completion = std::move(fade_->completion);
            cancelFade();
            completion();
        } else {
            stopImmediately();
        }
        return;
    }
    // Torn down, as after any failure of the output; the same sound is asked
    // for again later, with its fade-in, unless a start or stop comes first.
    std::optional<WorldPackage> world = world_;
    std::optional<std::filesystem::path> music = requestedMusicURL();
    const double fadeIn = lastFadeIn_;
    const int attempts = failedOutputAttempts_ + 1;
    const double delay = outputRetryDelay_ > 0 ? std::min(2 * outputRetryDelay_, outputRetryLongestDelay) : outputRetryFirstDelay;
    stopImmediately();
    if (!world)
        return;
    failedOutputAttempts_ = attempts;
    outputRetryDelay_ = delay;
    outputRetry_ = services_.mainLoop.postAfter(delay, [weak = weakSelf(), generation = generation_, world = std::move(*world), music, fadeIn] {
        auto self = weak.lock();
        if (!self || (*self)->generation_ != generation || !(*self)->outputRetry_)
            return;
        AmbientAudioEngine& engine = **self;
        const int failed = engine.failedOutputAttempts_;
        const double lastDelay = engine.outputRetryDelay_;
        engine.outputRetry_.reset();
        engine.start(world, music, fadeIn);
        // The attempt goes on counting from where the failures left off.
        engine.failedOutputAttempts_ = failed;
        engine.outputRetryDelay_ = lastDelay;
    });
}

// MARK: - Queries

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

// MARK: - Switching

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
    if (state_ != State::idle)
        music_.switchTo(url, over);
}

void AmbientAudioEngine::switchAmbience(const std::optional<std::filesystem::path>& url, double over)
{
    if (state_ != State::idle)
        ambience_.switchTo(url, over);
}

void AmbientAudioEngine::streamFailed(const LoopStreamer* streamer)
{
    auto current = music_.streamer();
    if (!engine_ || !current || current.get() != streamer)
        return;
    Log::audio.error("Streamed music failed; falling back to the world's own music");
    if (music_.isDecoding())
        return; // the switch under way replaces the broken stream anyway
    std::optional<std::filesystem::path> own = world_ ? world_->musicURL() : std::nullopt;
    if (own == musicURL())
        own.reset(); // the world's own music is what broke: silence it
    switchMusic(own, streamFallbackCrossfade);
}

// MARK: - Waiting for ambience

void AmbientAudioEngine::waitForAmbience(double limit, std::function<void(bool decoded)> done)
{
    if (!done)
        return;
    if (!ambience_.isDecoding()) {
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

} // namespace hushmeadows
