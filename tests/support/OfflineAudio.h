#pragma once

#include "SceneCore/Runtime/ManualRunLoop.h"
#include "SceneCore/Sound/AudioMixer.h"
#include "SceneCore/Sound/OfflineAudioOutput.h"
#include "SceneCore/Sound/PCMBuffer.h"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace hushmeadows::testing {

// Two planes of rendered sound.
struct StereoSignal {
    std::vector<float> left;
    std::vector<float> right;
    std::size_t size() const { return left.size(); }
    bool isSilent() const;
    void append(const PCMBuffer& buffer);
    void append(const StereoSignal& more);
};

// A started mixer on an offline output, pulled in quanta the way a device
// pulls, with the main loop run between quanta.
class OfflineMixer {
public:
    explicit OfflineMixer(ManualRunLoop& loop, double sampleRate = 48000, std::uint32_t quantum = 4096);
    AudioMixer& mixer() { return mixer_; }
    // Renders `frames` frames in quanta, each followed by what is due on the loop, then `between`.
    StereoSignal render(std::int64_t frames, const std::function<void()>& between = {});

private:
    ManualRunLoop& loop_;
    std::shared_ptr<OfflineAudioOutput> output_;
    AudioMixer mixer_;
    std::uint32_t quantum_;
    std::shared_ptr<PCMBuffer> scratch_;
};

// An output at the port that the test pulls itself, on any thread; `changed`
// reports a device change, and while `refusal` is set every start fails with it.
class ManualOutput final : public AudioOutput {
public:
    std::expected<void, std::string> start(AudioRenderSource& renderSource, double sampleRate) override;
    void pause() override { source = nullptr; }
    void stop() override { source = nullptr; }
    void setDeviceChangeHandler(std::function<void()> handler) override { changed = std::move(handler); }
    // Interleaved stereo; silence while not started.
    std::vector<float> pull(int frames);

    int starts = 0;   // that succeeded
    int attempts = 0; // every start
    std::optional<std::string> refusal;
    std::atomic<AudioRenderSource*> source = nullptr;
    std::function<void()> changed;
};

// A buffer whose frame i holds left(i) and, in stereo, right(i).
std::shared_ptr<PCMBuffer> makeBuffer(std::uint32_t frames, const std::function<float(std::uint32_t)>& left,
                                      const std::function<float(std::uint32_t)>& right = {}, double sampleRate = 48000);

// A WAV of 32-bit floats, decoding to exactly what was written: frame i of channel c holds sample(i, c).
void writeFloatWav(const std::filesystem::path& file, int sampleRate, int channels, std::int64_t frames,
                   const std::function<float(std::int64_t frame, int channel)>& sample);

} // namespace hushmeadows::testing
