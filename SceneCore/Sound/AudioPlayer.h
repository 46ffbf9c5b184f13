#pragma once

#include "SceneCore/Sound/PCMBuffer.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace hushmeadows {

class AudioMixer;

// One voice of the mixer: a schedule of PCM buffers played back to back at
// the mixer's rate (no rate conversion; mono plays on both channels), with
// its own volume.
//
// Threads: the schedule is a ring of slots with three counters. Schedulers
// fill slots past `written` under the player's mutex; the render thread plays
// from `read` on and moves it past what played out, or past `dropTo` after a
// stop, without ever taking the mutex; the main loop, through the mixer,
// empties the slots behind `read`, releasing their buffers and running their
// completions. Each quantum thus costs the render thread a few atomic loads,
// and it never frees a buffer or runs a completion.
class AudioPlayer {
public:
    struct Loops {};
    // Tag for scheduleBuffer: play the buffer over and over until stopped.
    static constexpr Loops loops{};

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
    // Main thread.
    void stop();
    bool isPlaying() const { return playing_.load(std::memory_order_acquire); }

    // Adds the next `frames` frames to interleaved stereo, with the gain
    // ramped from the last quantum's end to volume(). Render thread only;
    // never allocates, frees or blocks.
    void mixInto(float* interleaved, int frames) noexcept;

private:
    friend class AudioMixer;

    struct Entry {
        std::shared_ptr<const PCMBuffer> buffer;
        std::function<void()> completion;
        std::uint32_t frames = 0; // the buffer's frameLength when it was scheduled
        bool loops = false;
    };
    static constexpr std::uint64_t slotCount = 32;

    // `finished` is raised whenever the main loop has entries to empty.
    explicit AudioPlayer(std::shared_ptr<std::atomic<bool>> finished);
    void append(Entry entry);
    // Moves overflow into free slots. Mutex held.
    void refill();
    // Empties the slots the render thread is done with, and, when it cannot
    // reach this player at all, the dropped ones too; the entries come out in
    // order. Main thread. True when every dropped entry has been taken.
    bool reclaim(bool renderCannotReach, std::vector<Entry>& done);

    std::shared_ptr<std::atomic<bool>> finished_;
    std::atomic<float> volume_{1.0f};
    std::atomic<bool> playing_{false};
    std::array<Entry, slotCount> slots_;
    std::atomic<std::uint64_t> written_{0}; // slots [read, written) hold the schedule
    std::atomic<std::uint64_t> read_{0};    // the render thread is done with every entry before it
    std::atomic<std::uint64_t> dropTo_{0};  // the render thread skips every entry before it
    std::mutex mutex_;                      // schedulers and the main loop; never the render thread
    std::uint64_t reclaimed_ = 0;           // slots before it are empty
    std::deque<Entry> overflow_;            // scheduled while every slot was taken
    std::vector<Entry> droppedOverflow_;
    // Render thread only: the next entry, frames of it already played, and
    // the gain the last quantum ended on (negative before the first one,
    // which starts at the volume).
    std::uint64_t next_ = 0;
    std::uint32_t cursor_ = 0;
    float heardGain_ = -1.0f;
};

} // namespace hushmeadows
