#pragma once

#include "SceneCore/Runtime/RunLoop.h"
#include "SceneCore/Sound/AudioGraph.h"
#include "SceneCore/Sound/AudioOutput.h"
#include "SceneCore/Sound/SoftwarePlayerNode.h"

#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace hushmeadows {

// The portable audio graph: player nodes summed by one mixer into interleaved
// float stereo at the engine's sample rate, pulled by an AudioOutput (the
// device's thread calls render) or, in manual rendering mode, by
// renderOffline on the main thread.
//
// Mix: out = (sum of node sample × node volume) × outputVolume, per channel;
// mono buffers play on both channels. Volumes are read once per render
// quantum, so a change is heard from the next quantum on. No rate conversion:
// nodes are connected in the engine's rate.
//
// Threads: render takes the graph's one mutex for the quantum it mixes and
// never allocates, frees or logs (see SoftwarePlayerNode). Completions of
// played-out buffers reach the main run loop through the graph's finished
// list, drained by a timer every drainInterval while the engine runs on an
// output, and by a post after every renderOffline that finished something.
class SoftwareAudioEngine final : public AudioEngine, public AudioRenderSource {
public:
    static constexpr double defaultSampleRate = 48000;
    static constexpr double drainInterval = 0.01;

    // Without an output the engine can only render offline. The run loop must
    // outlive the engine and its nodes.
    SoftwareAudioEngine(RunLoop& mainLoop, std::shared_ptr<AudioOutput> output, double sampleRate = defaultSampleRate);
    ~SoftwareAudioEngine() override;
    SoftwareAudioEngine(const SoftwareAudioEngine&) = delete;
    SoftwareAudioEngine& operator=(const SoftwareAudioEngine&) = delete;

    std::shared_ptr<AudioPlayerNode> makePlayerNode() override;
    void attach(std::shared_ptr<AudioPlayerNode> node) override;
    void detach(const std::shared_ptr<AudioPlayerNode>& node) override;
    void connect(AudioPlayerNode& node, const AudioFormat& format) override;
    AudioMixerNode& mainMixerNode() override { return mixer_; }

    void prepare() override;
    std::expected<void, std::string> start() override;
    void pause() override;
    void stop() override;
    void reset() override;
    bool isRunning() const override { return running_; }

    std::shared_ptr<Cancellable> observeConfigurationChange(std::function<void()> handler) override;

    std::expected<void, std::string> enableManualRenderingMode(const AudioFormat& format,
                                                               std::uint32_t maximumFrameCount) override;
    std::expected<void, std::string> renderOffline(std::uint32_t frames, PCMBuffer& buffer) override;

    // Any thread; see the class comment.
    void render(float* interleaved, int frames) noexcept override;

    double sampleRate() const { return sampleRate_; }
    bool isInManualRenderingMode() const { return manualFormat_.has_value(); }
    std::size_t attachedNodeCount() const { return attached_.size(); }

private:
    class Mixer final : public AudioMixerNode {
    public:
        float outputVolume() const override { return volume_.load(std::memory_order_relaxed); }
        void setOutputVolume(float volume) override { volume_.store(volume, std::memory_order_relaxed); }

    private:
        std::atomic<float> volume_{1.0f};
    };

    struct Attached {
        std::shared_ptr<SoftwarePlayerNode> node;
        std::optional<AudioFormat> format; // set once connected
    };

    Attached* find(const AudioPlayerNode& node);
    // Rebuilds the list the render thread walks and swaps it in.
    void publishConnections();
    void deviceChanged();

    RunLoop& mainLoop_;
    std::shared_ptr<AudioOutput> output_;
    double sampleRate_;
    std::shared_ptr<SoftwarePlayerNode::Graph> graph_;
    Mixer mixer_;
    std::vector<Attached> attached_;
    // Guarded by graph_->mutex: what render mixes, in attachment order.
    std::vector<SoftwarePlayerNode*> connected_;
    bool running_ = false;
    std::optional<AudioFormat> manualFormat_;
    std::uint32_t maximumFrameCount_ = 0;
    std::vector<float> offlineScratch_;
    std::shared_ptr<Cancellable> drainTimer_;
    std::map<std::uint64_t, std::function<void()>> observers_;
    std::uint64_t nextObserver_ = 0;
    // Device callbacks and handles that outlive the engine find it gone.
    std::shared_ptr<SoftwareAudioEngine*> self_;
};

} // namespace hushmeadows
