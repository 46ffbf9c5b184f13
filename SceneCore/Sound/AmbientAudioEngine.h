#pragma once

#include "SceneCore/Runtime/RunLoop.h"
#include "SceneCore/Runtime/SerialQueue.h"
#include "SceneCore/Sound/AudioFile.h"
#include "SceneCore/Sound/AudioLayer.h"
#include "SceneCore/Sound/AudioMixer.h"
#include "SceneCore/Sound/AudioOutput.h"
#include "SceneCore/Sound/LoopStreamer.h"
#include "SceneCore/Sound/OfflineAudioOutput.h"
#include "SceneCore/Sound/PCMBuffer.h"
#include "SceneCore/Worlds/WorldPackage.h"

#include <atomic>
#include <cstdint>
#include <expected>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace hushmeadows {

// Plays a world's sound: a session over two AudioLayers, the looping music
// and the looping ambience, mixed by an AudioMixer made for each session of
// sound. The session starts and stops, fades the master, mutes, and recovers
// when the output device changes; each layer crossfades on its own.
//
// An output that cannot be started (the sound server is gone, the device was
// unplugged) tears the sound down, as every failure does, and the same sound
// is started again after 0.5 s, 1 s, 2 s, ... up to every 10 s until it
// plays, fading in; any start or stop in between ends the waiting at once.
//
// It never fails loudly: every problem goes to the audio log and the engine
// falls back to something quieter, at worst silence.
//
// Threads: everything is called and runs on the main run loop. Files are
// decoded by background work whose results come back to the main loop; long
// music is streamed by a LoopStreamer on its own queue. Every asynchronous
// continuation carries a generation and does nothing once it has changed.
class AmbientAudioEngine {
public:
    enum class State { idle, loading, playing, stopping };

    using MusicSource = AudioLayer::Source;

    // Runs work off the main thread (any thread, any order with other work).
    using BackgroundRunner = std::function<void(std::function<void()> work)>;
    // Makes a serial queue with the given label. Called off the main thread.
    using SerialQueueFactory = std::function<std::unique_ptr<SerialQueue>(const std::string& label)>;
    // The frames at which a music file may begin (frames at the graph's rate);
    // empty when it names none.
    using EntryPointLookup = std::function<std::vector<std::int64_t>(const std::filesystem::path& music)>;

    struct Services {
        // Must outlive the engine and every engine it makes.
        RunLoop& mainLoop;
        // Makes the output each session of sound plays through, at sampleRate
        // (the mixer does not convert rates). Unused when offlineFormat is set.
        AudioOutputFactory makeOutput;
        AudioFileOpener openFile;
        BackgroundRunner runInBackground;
        SerialQueueFactory makeSerialQueue;
        // Blocks the calling thread; only silenceNow uses it.
        std::function<void(double seconds)> sleep;
        // The rate files are decoded at: the graph's rate.
        double sampleRate = 48000;
        // Set: every session plays into an offline output in this format (its
        // rate replaces sampleRate), pulled through renderOffline.
        std::optional<AudioFormat> offlineFormat;
        // May be empty: then music always begins at frame 0.
        EntryPointLookup entryPoints;
    };

    // What decoding needs; copied into background work.
    struct Decoder {
        AudioFileOpener openFile;
        double sampleRate = 48000;
        SerialQueueFactory makeSerialQueue;
        // Set once the session that asked for the decode has stopped: the
        // decode gives up between chunks, so that no stop waits on it.
        std::shared_ptr<const std::atomic<bool>> cancelled = std::make_shared<std::atomic<bool>>(false);
    };

    // The result of loading: either layer may be absent.
    struct LoadedSources {
        AudioLayer::Loaded music;
        AudioLayer::Loaded ambience;
    };

    // The running master fade.
    struct Fade {
        float from = 0;
        float to = 0;
        double start = 0;    // media time when it began
        double duration = 0; // seconds
        std::function<void()> completion;
        int settledTicks = 0; // ticks since the level arrived
    };

    static constexpr double ambienceCrossfade = 3.0;
    static constexpr double streamingThreshold = 180.0;
    // The most sound decoded whole into memory, in seconds: longer music is
    // streamed and longer ambience is refused.
    static constexpr double wholeDecodeLimit = streamingThreshold;
    static constexpr double muteFade = 0.35;
    static constexpr double fadeInterval = 1.0 / 60.0;
    // Ticks between a fade's arrival and its completion: longer than a
    // device's render quantum.
    static constexpr int fadeSettleTicks = 2;
    // Crossfade from a stream that broke to the world's own music.
    static constexpr double streamFallbackCrossfade = 2.0;
    static constexpr std::uint32_t offlineMaximumFrameCount = 4096;
    // Waits before trying a lost output again: the first, doubled after each
    // failed attempt up to the longest.
    static constexpr double outputRetryFirstDelay = 0.5;
    static constexpr double outputRetryLongestDelay = 10.0;

    explicit AmbientAudioEngine(Services services);
    ~AmbientAudioEngine();
    AmbientAudioEngine(const AmbientAudioEngine&) = delete;
    AmbientAudioEngine& operator=(const AmbientAudioEngine&) = delete;

    // Mixers (sessions of sound) alive across the process (the saver reports it as
    // "activeAudioEngines").
    static int activeEngineCount() { return activeEngines_; }

    // The world's own music (of the version given) and its ambience.
    void start(const WorldPackage& world, double fadeIn);
    // The given music (none for no music) and the world's ambience. The same
    // world while loading or playing restarts nothing; a stop in progress is
    // revoked.
    void start(const WorldPackage& world, const std::optional<std::filesystem::path>& music, double fadeIn);

    // Takes over another version of the world whose sound is loading or
    // playing without restarting it: its music (unless the music carries on
    // across versions) and its ambience come in as switches. Any other world
    // starts as with start().
    void adopt(const WorldPackage& world);
    void adopt(const WorldPackage& world, const std::optional<std::filesystem::path>& music);

    // Change one layer while loading or playing, crossfading over `over`
    // seconds once the new file is decoded. None fades the layer out.
    void switchMusic(const std::optional<std::filesystem::path>& url, double over);
    void switchAmbience(const std::optional<std::filesystem::path>& url, double over = ambienceCrossfade);

    // Fades the master out, then stops and calls completion. A start that
    // revokes the stop, an immediate stop, or another stop before the fade
    // ends drops the completion. Idle or loading: stops and completes at once.
    void stop(double fadeOut, std::function<void()> completion = {});
    void stopImmediately();
    // Blocks for `over` seconds in ten steps down to silence, then stops.
    void silenceNow(double over);

    void setMuted(bool muted, double fade);
    bool isMuted() const { return isMuted_; }
    // A change runs the mute change with muteFade, unless suppressMuteObserver.
    void setIsMuted(bool muted);
    bool suppressMuteObserver() const { return suppressMuteObserver_; }
    void setSuppressMuteObserver(bool suppress) { suppressMuteObserver_ = suppress; }

    float musicVolume() const { return musicVolume_; }
    void setMusicVolume(float volume);
    float ambienceVolume() const { return ambienceVolume_; }
    void setAmbienceVolume(float volume);

    State state() const { return state_; }
    const std::optional<WorldPackage>& world() const { return world_; }
    const std::optional<std::filesystem::path>& musicURL() const { return music_.url(); }
    const std::optional<std::filesystem::path>& ambienceURL() const { return ambience_.url(); }
    // Where each layer is heading: a pending or decoding switch's target,
    // else what plays.
    std::optional<std::filesystem::path> requestedMusicURL() const { return music_.requestedURL(); }
    std::optional<std::filesystem::path> requestedAmbienceURL() const { return ambience_.requestedURL(); }

    // The main mixer's level; 0 without an engine.
    float masterGain() const;
    bool isEngineRunning() const;
    // The output is lost and another attempt to open it is pending.
    bool isWaitingForOutput() const { return outputRetry_ != nullptr; }
    double lastFadeIn() const { return lastFadeIn_; }
    int ambienceDecodesStarted() const { return ambience_.decodesStarted(); }

    // An ambience decode is under way.
    bool isWaitingForAmbience() const { return ambience_.isDecoding(); }
    // Calls done on the main loop once the ambience decode under way has been
    // applied (true), or with false when `limit` seconds pass first or a stop
    // abandons the decode; at once, with true, when none is under way.
    void waitForAmbience(double limit, std::function<void(bool decoded)> done);

    // The manifest carries no flag for music that continues across versions.
    static bool carriesMusicAcrossVersions(const WorldPackage&) { return false; }

    // Offline use: renders the next frames of the mix into the buffer (in the
    // offline format). Silence while no engine is rendering (idle, loading,
    // paused).
    std::expected<void, std::string> renderOffline(std::uint32_t frames, PCMBuffer& buffer);

    // Decoding, as the loading work does it (any thread). Failures are logged
    // and give nothing.
    static std::optional<MusicSource> openMusic(const Decoder& decoder, const std::optional<std::filesystem::path>& url,
                                                std::int64_t frame);
    static std::shared_ptr<PCMBuffer> read(const Decoder& decoder, const std::filesystem::path& url);

private:
    struct AmbienceWaiter {
        int id = 0;
        std::function<void(bool)> done;
        std::shared_ptr<Cancellable> timer;
    };

    Decoder decoder() const;
    double graphSampleRate() const;
    std::weak_ptr<AmbientAudioEngine*> weakSelf() const { return self_; }
    AudioLayer::Session layerSession(AudioLayer::Kind kind);

    void begin(LoadedSources sources, double fadeIn);
    void applyChannelVolumes();
    void fadeMaster(float target, double duration, std::function<void()> completion);
    void stepFade();
    void cancelFade();
    void muteChanged(double fade);
    void recoverFromConfigurationChange();
    // The output could not be started: everything is torn down and, unless a
    // stop was fading out, the same sound is started again after a delay.
    void outputFailed();
    std::int64_t nextEntryPoint(const std::filesystem::path& url);
    void streamFailed(const LoopStreamer* streamer);
    void ambienceSettled(bool decoded);

    Services services_;

    State state_ = State::idle;
    std::optional<WorldPackage> world_;
    float musicVolume_ = 0.5f;
    float ambienceVolume_ = 0.7f;
    bool isMuted_ = false;
    bool suppressMuteObserver_ = false;
    std::unique_ptr<AudioMixer> engine_;
    std::shared_ptr<OfflineAudioOutput> offlineOutput_;
    AudioLayer music_;
    AudioLayer ambience_;
    double lastFadeIn_ = 2.5;
    // Per music file, the index of the next entry point; kept across stops so
    // that every session begins somewhere new.
    std::map<std::filesystem::path, std::size_t> entryCursor_;
    std::vector<AmbienceWaiter> ambienceWaiters_;
    int nextWaiterID_ = 0;
    const std::optional<AudioFormat> offlineFormat_;
    int generation_ = 0;
    std::optional<Fade> fade_;
    std::shared_ptr<Cancellable> fadeTimer_;
    std::shared_ptr<Cancellable> configObserver_;
    // While the output is lost: the next attempt, its delay (0 before the
    // first failure) and the attempts that failed so far.
    std::shared_ptr<Cancellable> outputRetry_;
    double outputRetryDelay_ = 0;
    int failedOutputAttempts_ = 0;
    // Shared with the decodes this session started.
    std::shared_ptr<std::atomic<bool>> decodesCancelled_ = std::make_shared<std::atomic<bool>>(false);

    // Lets timers, observers and posted work that outlive the engine find it gone.
    std::shared_ptr<AmbientAudioEngine*> self_;

    static inline int activeEngines_ = 0;
};

std::string_view rawValue(AmbientAudioEngine::State state);

} // namespace hushmeadows
