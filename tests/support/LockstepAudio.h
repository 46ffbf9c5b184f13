#pragma once

#include "SceneCore/Runtime/ImmediateSerialQueue.h"
#include "SceneCore/Runtime/ManualRunLoop.h"
#include "SceneCore/Runtime/SerialQueue.h"
#include "SceneCore/Sound/AmbientAudioEngine.h"
#include "SceneCore/Sound/PCMBuffer.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

// Offline listening to the ambient audio engine: sound rendered in step with
// virtual time, the way a device pulls it while the main loop's timers run.
namespace hushmeadows::testing {

// Writes a WAV of 32-bit float samples, so that what decodes is exactly what
// was written: frame i of channel c holds sample(i, c).
void writeFloatWav(const std::filesystem::path& file, int sampleRate, int channels, std::int64_t frames,
                   const std::function<float(std::int64_t frame, int channel)>& sample);

using hushmeadows::ImmediateSerialQueue;

struct StereoBlock {
    std::vector<float> left;
    std::vector<float> right;
};

// A manual run loop and the engine services around it: graph engines in
// manual rendering (48 kHz stereo), decoding inline unless a background
// runner is given, streamer queues that run at once, and a sleep that
// records instead of blocking.
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

    // One quantum of stepFrames frames.
    StereoBlock render(AmbientAudioEngine& engine);
    // One quantum, then the loop advanced by its length.
    StereoBlock renderStep(AmbientAudioEngine& engine);
    // `count` steps, concatenated.
    StereoBlock renderSteps(AmbientAudioEngine& engine, int count);

private:
    const AmbientAudioEngine* watched_ = nullptr;
    std::shared_ptr<PCMBuffer> scratch_ = PCMBuffer::make(AudioFormat{sampleRate, 2}, stepFrames);
};

} // namespace hushmeadows::testing
