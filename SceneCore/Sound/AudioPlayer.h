#pragma once

#include "SceneCore/Sound/PCMBuffer.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>

namespace hushmeadows {

class AudioMixer;

// One voice of the mixer: a schedule of PCM buffers played back to back at
// the mixer's rate (no rate conversion; mono plays on both channels), with
// its own volume.
//
// Threads: the schedule is guarded by the player's own mutex. The main thread
// holds it only for constant-time splices (entries are built before taking
// it); the render thread holds it while it mixes this one player. Played-out
// and dropped entries go to the mixer's finished list, so that the render
// thread never frees a buffer or runs a completion: the main loop does both.
class AudioPlayer {
public:
    struct Loops {};
    // Tag for scheduleBuffer: play the buffer over and over until stopped.
    static constexpr Loops loops{};

    struct Entry {
        std::shared_ptr<const PCMBuffer> buffer;
        std::function<void()> completion;
        std::uint32_t frames = 0; // the buffer's frameLength when it was scheduled
        bool loops = false;
    };

    // What a mixer and its players share: the list of finished entries.
    struct Finished {
        std::mutex mutex;
        std::list<Entry> entries; // oldest first
        std::atomic<bool> any{false};

        // Takes finished entries (any thread; constant time).
        void take(std::list<Entry>& from, std::list<Entry>::iterator first, std::list<Entry>::iterator last);
        // Runs the completions in the order the entries finished and releases
        // their buffers. Main thread.
        void drain();
    };

    explicit AudioPlayer(std::shared_ptr<Finished> finished);
    AudioPlayer(const AudioPlayer&) = delete;
    AudioPlayer& operator=(const AudioPlayer&) = delete;

    // The volume the player moves to; the render thread ramps towards it
    // sample by sample across the next render quantum, so a change is never
    // heard as a step.
    float volume() const { return volume_.load(std::memory_order_relaxed); }
    void setVolume(float volume) { volume_.store(volume, std::memory_order_relaxed); }

    // Buffers play in the order scheduled, with no gap between them; the
    // buffer must not change while scheduled. Any thread. The completion runs
    // once on the main loop after the buffer's last frame was rendered, or
    // after stop() dropped it; when it runs the mixer no longer holds the buffer.
    void scheduleBuffer(std::shared_ptr<const PCMBuffer> buffer, std::function<void()> completion = {});
    // Plays the buffer over and over, gaplessly, until stopped; buffers
    // scheduled after it never play.
    void scheduleBuffer(std::shared_ptr<const PCMBuffer> buffer, Loops);

    void play();
    // Silent from the next render quantum on; drops every scheduled buffer.
    void stop();
    bool isPlaying() const;

    // Adds the next `frames` frames to interleaved stereo, with the gain
    // ramped from the last quantum's end to volume(). Render thread only;
    // never allocates or frees.
    void mixInto(float* interleaved, int frames) noexcept;

private:
    void append(Entry entry);

    std::shared_ptr<Finished> finished_;
    std::atomic<float> volume_{1.0f};
    mutable std::mutex mutex_;
    std::list<Entry> pending_;
    std::uint32_t cursor_ = 0; // frames of the first pending entry already played
    bool playing_ = false;
    // Render thread only: the gain the last quantum ended on (negative before
    // the first one, which starts at the volume).
    float heardGain_ = -1.0f;
};

} // namespace hushmeadows
