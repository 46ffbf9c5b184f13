#pragma once

#include "SceneCore/Runtime/RunLoop.h"
#include "SceneCore/Sound/PCMBuffer.h"

#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <string>

namespace hushmeadows {

// The audio graph: player nodes feeding one main mixer, rendered to the
// output device or, in manual rendering mode, into buffers on request.
// Everything here is called on the main thread unless said otherwise.

// A source of scheduled PCM buffers.
class AudioPlayerNode {
public:
    struct Loops {};
    // Tag for scheduleBuffer: play the buffer over and over until the node stops.
    static constexpr Loops loops{};

    virtual ~AudioPlayerNode() = default;

    // The node's gain, applied before the main mixer. Takes effect at the next
    // render quantum.
    virtual float volume() const = 0;
    virtual void setVolume(float volume) = 0;

    // Buffers play in the order they were scheduled, back to back with no gap
    // between them. The buffer must not be changed until the graph is done
    // with it. Safe to call from any thread.
    //
    // Plays the buffer once; completion (if any) then runs on the main run
    // loop, after the buffer's last frame has been rendered. A buffer that
    // stop() drops has its completion run too (on the main run loop, soon
    // after stop): every completion runs exactly once, and when it runs the
    // graph no longer holds the buffer.
    virtual void scheduleBuffer(std::shared_ptr<const PCMBuffer> buffer, std::function<void()> completion = {}) = 0;
    // Plays the buffer over and over, with no gap at the loop point, until the
    // node is stopped. Buffers scheduled after it never play.
    virtual void scheduleBuffer(std::shared_ptr<const PCMBuffer> buffer, Loops) = 0;

    // Starts consuming scheduled buffers (at the next render quantum).
    virtual void play() = 0;
    // Stops playing and drops every scheduled buffer; from the next render
    // quantum on the node is silent. Scheduling and play() start it anew.
    virtual void stop() = 0;
    virtual bool isPlaying() const = 0;
};

// The mixer that sums every connected player node.
class AudioMixerNode {
public:
    virtual ~AudioMixerNode() = default;
    // The gain of the mix, applied after the nodes' own volumes.
    virtual float outputVolume() const = 0;
    virtual void setOutputVolume(float volume) = 0;
};

class AudioEngine {
public:
    virtual ~AudioEngine() = default;

    // A new player node for this engine; it plays once attached and connected.
    virtual std::shared_ptr<AudioPlayerNode> makePlayerNode() = 0;
    // The engine keeps attached nodes alive until they are detached.
    virtual void attach(std::shared_ptr<AudioPlayerNode> node) = 0;
    // Disconnects and releases the node; its scheduled buffers are dropped as
    // by stop().
    virtual void detach(const std::shared_ptr<AudioPlayerNode>& node) = 0;
    // Connects an attached node to the main mixer; the node's buffers are in
    // this format. Connecting again replaces the format.
    virtual void connect(AudioPlayerNode& node, const AudioFormat& format) = 0;

    virtual AudioMixerNode& mainMixerNode() = 0;

    // Gets ready to start without starting.
    virtual void prepare() = 0;
    // Starts rendering: to the output device, or in manual rendering mode
    // whenever renderOffline asks. The error is a readable text.
    virtual std::expected<void, std::string> start() = 0;
    // Stops rendering and keeps the nodes' state; start() resumes.
    virtual void pause() = 0;
    // Stops rendering and lets go of the output device; nodes keep their state.
    virtual void stop() = 0;
    // Stops every attached node (dropping what was scheduled).
    virtual void reset() = 0;
    virtual bool isRunning() const = 0;

    // Calls the handler on the main run loop whenever the output's
    // configuration changed behind the engine's back (device lost or
    // replaced). The engine has then stopped; the owner restarts it.
    // Cancelling the returned handle removes the handler.
    virtual std::shared_ptr<Cancellable> observeConfigurationChange(std::function<void()> handler) = 0;

    // From now on the engine renders only when asked, in this format (its
    // sample rate becomes the engine's), at most maximumFrameCount frames per
    // call. Only while stopped. The error is a readable text.
    virtual std::expected<void, std::string> enableManualRenderingMode(const AudioFormat& format,
                                                                       std::uint32_t maximumFrameCount) = 0;
    // Renders the next `frames` frames into the buffer (which must have the
    // manual rendering format) and sets its frameLength. Needs manual
    // rendering mode and a running engine.
    virtual std::expected<void, std::string> renderOffline(std::uint32_t frames, PCMBuffer& buffer) = 0;
};

// Makes the engines an owner needs (one per session of sound).
using AudioEngineFactory = std::function<std::unique_ptr<AudioEngine>()>;

} // namespace hushmeadows
