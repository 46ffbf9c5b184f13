#pragma once

#include "SceneCore/Runtime/RunLoop.h"
#include "SceneCore/Sound/AudioGraph.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>

namespace hushmeadows {

// A player node of the software graph (SoftwareAudioEngine).
//
// Its schedule is a list of entries guarded by the graph's one mutex. Every
// thread that is not the render thread holds that mutex only for constant-time
// work: entries are built (allocated) before taking it and spliced in, and
// finished entries are spliced out to be destroyed after letting it go. The
// render thread holds it for one render quantum and, when an entry has been
// played out, splices it onto the graph's finished list, so that it never
// allocates or frees: the main run loop drains that list, runs the
// completions and releases the buffers.
class SoftwarePlayerNode final : public AudioPlayerNode {
public:
    struct Entry {
        std::shared_ptr<const PCMBuffer> buffer;
        std::function<void()> completion;
        std::uint32_t frames = 0; // the buffer's frameLength when it was scheduled
        bool loops = false;
    };

    // What an engine and its nodes share.
    struct Graph {
        explicit Graph(RunLoop& loop) : mainLoop(loop) {}

        RunLoop& mainLoop;
        std::mutex mutex;
        // Played-out or dropped entries, oldest first, waiting for the main loop.
        std::list<Entry> finished;
        // Set (under mutex) when finished gained entries; lets the main loop
        // check without taking the lock.
        std::atomic<bool> hasFinished{false};
        // A drain has been posted and has not run yet.
        std::atomic<bool> drainPosted{false};

        // Runs the completions of finished entries, in the order they finished,
        // and releases their buffers. Main thread.
        void drain();
        // Makes sure a drain runs soon on the main loop. Not for the render thread.
        static void postDrain(const std::shared_ptr<Graph>& graph);
    };

    explicit SoftwarePlayerNode(std::shared_ptr<Graph> graph);
    ~SoftwarePlayerNode() override;

    float volume() const override { return volume_.load(std::memory_order_relaxed); }
    void setVolume(float volume) override { volume_.store(volume, std::memory_order_relaxed); }

    void scheduleBuffer(std::shared_ptr<const PCMBuffer> buffer, std::function<void()> completion = {}) override;
    void scheduleBuffer(std::shared_ptr<const PCMBuffer> buffer, Loops) override;

    void play() override;
    void stop() override;
    bool isPlaying() const override;

    // Adds the node's next `frames` frames, times gain, to interleaved stereo.
    // Render thread, with the graph's mutex held; never allocates or frees.
    void mixInto(float* interleaved, int frames, float gain) noexcept;

    const std::shared_ptr<Graph>& graph() const { return graph_; }

private:
    void append(Entry entry);

    std::shared_ptr<Graph> graph_;
    std::atomic<float> volume_{1.0f};
    // Guarded by graph_->mutex.
    std::list<Entry> pending_;
    std::uint32_t cursor_ = 0; // frames of the first pending entry already played
    bool playing_ = false;
};

} // namespace hushmeadows
