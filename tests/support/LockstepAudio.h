#pragma once

#include "SceneCore/Runtime/ManualRunLoop.h"
#include "SceneCore/Sound/AmbientAudioEngine.h"
#include "tests/support/OfflineAudio.h"

#include <cstdint>
#include <optional>
#include <string>
#include <memory>
#include <vector>

namespace hushmeadows::testing {

// Offline listening to the ambient audio engine, in step with virtual time:
// a manual run loop and the engine services around it (offline output at
// 48 kHz stereo, decoding inline unless a background runner is given,
// streamer queues that run at once, a sleep that records instead of blocking).
class LockstepAudio {
public:
    static constexpr double sampleRate = 48000;
    static constexpr std::uint32_t stepFrames = 800; // 1/60 s
    static constexpr double step = 1.0 / 60;

    ManualRunLoop loop;
    // Each sleep of silenceNow, and the master level while it slept.
    std::vector<double> sleeps;
    std::vector<float> levelsWhileSleeping;

    AmbientAudioEngine::Services services(AudioFileOpener open, AmbientAudioEngine::BackgroundRunner background = {});
    // The engine whose master level the recording sleep reads.
    void watch(const AmbientAudioEngine* engine) { watched_ = engine; }
    // `count` quanta of stepFrames frames, each followed by the loop advanced
    // by its length unless `advance` is false.
    StereoSignal renderSteps(AmbientAudioEngine& engine, int count, bool advance = true);
    StereoSignal renderStep(AmbientAudioEngine& engine) { return renderSteps(engine, 1); }
    // One quantum, with the loop left where it is.
    StereoSignal render(AmbientAudioEngine& engine) { return renderSteps(engine, 1, false); }

private:
    const AmbientAudioEngine* watched_ = nullptr;
    std::shared_ptr<PCMBuffer> scratch_ = PCMBuffer::make(AudioFormat{sampleRate, 2}, stepFrames);
};

// A world whose music and ambience (when named) are files under root, at the given levels.
WorldPackage soundWorld(const std::filesystem::path& root, const std::string& id, std::optional<std::string> music,
                        std::optional<std::string> ambience, double musicLevel = 0.5, double ambienceLevel = 0.7);
// 0.1 s of stereo float WAV at the lockstep rate, each channel constant.
std::filesystem::path writeConstant(const std::filesystem::path& file, float left, float right);

} // namespace hushmeadows::testing
