#pragma once

#include "SceneCore/Runtime/RunLoop.h"
#include "SceneCore/Sound/AudioMixer.h"
#include "SceneCore/Sound/AudioPlayer.h"
#include "SceneCore/Sound/LoopStreamer.h"
#include "SceneCore/Sound/PCMBuffer.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

namespace hushmeadows {

// One looping layer of a world's sound (its music or its ambience): the
// player of what plays now and its source, the players fading out under an
// equal-power crossfade, the players waiting to be let go, the switch asked
// for while a decode is under way, and that decode.
//
// The two kinds differ in three ways only: music may be streamed and begins
// at the file's next entry point; ambience is always held whole, and the last
// one let go stays decoded, for a quick way back to it; each logs its switch
// in its own words.
//
// Threads: main loop only. Decodes are asked of the session, which runs them
// in the background and brings the result back while the session lasts.
class AudioLayer {
public:
    enum class Kind { music, ambience };
    using Source = std::variant<std::shared_ptr<PCMBuffer>, std::shared_ptr<LoopStreamer>>;
    using URL = std::optional<std::filesystem::path>;

    // A decoded file: where it begins, and for a held buffer that begins past
    // its first frame, the rest of its first pass (played once, before the loop).
    struct Loaded {
        std::optional<Source> source;
        std::int64_t frame = 0;
        std::shared_ptr<PCMBuffer> leadIn;
    };

    // What a layer asks of the session it plays in.
    struct Session {
        RunLoop& mainLoop;
        // Decodes the file from the frame in the background; `done` runs on
        // the main loop, unless the session stopped meanwhile.
        std::function<void(const std::filesystem::path& url, std::int64_t frame, std::function<void(Loaded)> done)> load;
        // The frame a file begins at; empty: the first.
        std::function<std::int64_t(const std::filesystem::path& url)> entryFrame;
        // A streamed source that plays now gave up.
        std::function<void(const LoopStreamer* failed)> streamFailed;
        // A decode was applied, and none is under way any more.
        std::function<void()> settled;
    };

    static constexpr double crossfadeInterval = 1.0 / 60.0;

    // How far a fade that began at `start` and lasts `duration` seconds is at
    // `now`: 0 to 1, and 1 without a length.
    static double progressAt(double now, double start, double duration);
    static std::shared_ptr<LoopStreamer> streamerOf(const std::optional<Source>& source);

    AudioLayer(Kind kind, Session session);
    ~AudioLayer();
    AudioLayer(const AudioLayer&) = delete;
    AudioLayer& operator=(const AudioLayer&) = delete;

    const URL& url() const { return url_; }
    // A pending or decoding switch's target, else what plays.
    URL requestedURL() const;
    bool isDecoding() const { return decoding_.has_value(); }
    int decodesStarted() const { return decodesStarted_; }
    std::shared_ptr<LoopStreamer> streamer() const;

    // Before the session's sources are decoded: the file to load; and the
    // switch asked for meanwhile, taken.
    void expect(const URL& url) { url_ = url; }
    std::optional<URL> takePending();

    // Takes the first source into the session's new mixer (none: the layer
    // stays silent), then plays it once the mixer runs; while suspended, play
    // only sets where resume() begins.
    void attach(AudioMixer& mixer, const Loaded& loaded);
    void play(const Loaded& loaded);

    // Changes to another file while playing, crossfading over `over` seconds
    // once it is decoded; none fades the layer out. While the session loads,
    // the request waits for takePending().
    void switchTo(const URL& url, double over);

    // The layer's level: the current player gets level × sin x and each
    // outgoing one level × cos x × its own share, x being the crossfade's
    // smoothstep angle.
    void setLevel(float level);
    // Players that a paused mixer left stopped play again.
    void resumePlayers();

    // While the output is away: ends the crossfade at once, stops the player
    // and a stream, and remembers where to go on (a stream where it was, a
    // held buffer from its start). A switch meanwhile takes effect silently,
    // and resume() plays what the layer then holds. Suspending twice is once.
    void suspend();
    void resume();
    bool isSuspended() const { return resumeAt_.has_value(); }
    // Lets go of everything; true when a decode was under way.
    bool stop();

private:
    struct Fading {
        std::shared_ptr<AudioPlayer> node;
        std::optional<Source> source;
        URL url;
        float gain = 1;
    };
    struct Retiring {
        std::shared_ptr<AudioPlayer> node; // null once detached
        URL url;
        std::optional<Source> source;
    };

    void decode(const std::filesystem::path& url, double over);
    void decoded(const std::filesystem::path& url, Loaded loaded, double over);
    void crossfade(Loaded loaded, const URL& url, double over);
    void step();
    void finishCrossfade();
    void haltCrossfade();
    void applyGains();
    void startPlayer(const Loaded& loaded);
    std::shared_ptr<PCMBuffer> held(const std::filesystem::path& url) const;
    void scheduleRelease();
    void releaseRetired();

    const Kind kind_;
    Session session_;
    AudioMixer* mixer_ = nullptr;
    URL url_;
    std::shared_ptr<AudioPlayer> node_;
    std::optional<Source> source_;
    std::vector<Fading> outgoing_;
    std::vector<Retiring> retiring_;
    std::optional<URL> pending_;
    URL decoding_;
    int token_ = 0; // recognises superseded decodes
    int decodesStarted_ = 0;
    float level_ = 0;
    // The crossfade's progress, 1 outside one; its start, length and timer.
    float progress_ = 1;
    double fadeStart_ = 0;
    double fadeLength_ = 0;
    int settledTicks_ = 0; // ticks since the progress arrived at 1
    std::shared_ptr<Cancellable> fadeTimer_;
    bool releasePosted_ = false;
    // Set while suspended: what resume() plays.
    std::optional<Loaded> resumeAt_;
    // Lets timers and decodes that outlive the layer find it gone.
    std::shared_ptr<AudioLayer*> self_;
};

} // namespace hushmeadows
