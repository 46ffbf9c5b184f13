#pragma once

#include "SceneCore/Runtime/RunLoop.h"
#include "SceneCore/Sound/AudioOutput.h"
#include "SceneCore/Sound/AudioPlayer.h"

#include <atomic>
#include <map>
#include <memory>
#include <vector>

namespace hushmeadows {

// The portable mixer every platform plays through: players summed into
// interleaved float stereo at one sample rate, times the output volume,
// pulled by an AudioOutput (a device's thread, or the program itself when
// rendering offline).
//
// Mix: out = (Σ player sample × player gain) × output gain, where both gains
// move to their newest value as a per-sample linear ramp across each render
// quantum, so no gain change is ever a step.
//
// Threads: the render thread walks an immutable snapshot of the player list,
// swapped in atomically by the main thread, and takes no lock at all. What
// the players are done with is emptied on the main loop, by a timer every
// drainInterval while running and by drainSoon(): buffers are released and
// completions run there.
class AudioMixer final : public AudioRenderSource {
public:
    static constexpr double defaultSampleRate = 48000;
    static constexpr double drainInterval = 0.01;

    // The run loop must outlive the mixer and its players.
    AudioMixer(RunLoop& mainLoop, std::shared_ptr<AudioOutput> output, double sampleRate = defaultSampleRate);
    ~AudioMixer() override;
    AudioMixer(const AudioMixer&) = delete;
    AudioMixer& operator=(const AudioMixer&) = delete;

    // A new player, mixed from the next render quantum on.
    std::shared_ptr<AudioPlayer> addPlayer();
    // Stops the player (dropping its schedule) and stops mixing it.
    void removePlayer(const std::shared_ptr<AudioPlayer>& player);
    // Stops every player.
    void stopAllPlayers();
    std::size_t playerCount() const { return players_.size(); }

    float outputVolume() const { return outputVolume_.load(std::memory_order_relaxed); }
    void setOutputVolume(float volume) { outputVolume_.store(volume, std::memory_order_relaxed); }

    // Starts the output pulling. The error is a readable text.
    std::expected<void, std::string> start();
    // Stops pulling; players keep their state and start() resumes.
    void pause();
    // Stops pulling and lets go of the device; players keep their state.
    void stop();
    bool isRunning() const { return running_; }
    double sampleRate() const { return sampleRate_; }

    // Calls the handler on the main loop whenever the output's device went
    // away or was replaced; the mixer has then stopped and the owner restarts
    // it. Cancelling the handle removes the handler.
    std::shared_ptr<Cancellable> observeConfigurationChange(std::function<void()> handler);

    // Makes sure finished buffers are handed back on the next turn of the loop.
    void drainSoon();

    // The output's thread.
    void render(float* interleaved, int frames) noexcept override;

private:
    struct Snapshot {
        std::vector<std::shared_ptr<AudioPlayer>> players;
    };

    void publish();
    // Empties what the players are done with, then runs their completions.
    void drain();
    // Frees snapshots the render thread can no longer be walking.
    void collectSnapshots();
    void deviceChanged();

    RunLoop& mainLoop_;
    std::shared_ptr<AudioOutput> output_;
    double sampleRate_;
    // Raised whenever a player has entries for drain() to empty.
    std::shared_ptr<std::atomic<bool>> finished_;
    std::vector<std::shared_ptr<AudioPlayer>> players_;
    // Removed players whose dropped entries are still owed their completions.
    std::vector<std::shared_ptr<AudioPlayer>> removed_;
    std::atomic<float> outputVolume_{1.0f};
    float heardOutputGain_ = -1.0f; // render thread; start() resets it while nothing renders
    // The snapshot render reads, and the one it is walking now (null between quanta).
    std::atomic<const Snapshot*> live_{nullptr};
    std::atomic<const Snapshot*> rendering_{nullptr};
    std::vector<std::unique_ptr<const Snapshot>> snapshots_; // main thread; the last one is live
    bool running_ = false;
    std::shared_ptr<Cancellable> drainTimer_;
    std::shared_ptr<bool> drainPosted_ = std::make_shared<bool>(false);
    std::map<std::uint64_t, std::function<void()>> observers_;
    std::uint64_t nextObserver_ = 0;
    // Device callbacks and handles that outlive the mixer find it gone.
    std::shared_ptr<AudioMixer*> self_;
};

} // namespace hushmeadows
