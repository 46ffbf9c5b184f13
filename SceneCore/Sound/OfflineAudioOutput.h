#pragma once

#include "SceneCore/Sound/AudioOutput.h"
#include "SceneCore/Sound/PCMBuffer.h"

#include <cstdint>
#include <vector>

namespace hushmeadows {

// An output with no device: whoever holds it pulls the mix, quantum by
// quantum, into buffers (files, tests). Its rate is the one it was started at.
class OfflineAudioOutput final : public AudioOutput {
public:
    explicit OfflineAudioOutput(std::uint32_t maximumFrameCount);

    std::expected<void, std::string> start(AudioRenderSource& source, double sampleRate) override;
    void pause() override { source_ = nullptr; }
    void stop() override { source_ = nullptr; }
    // No device, so nothing ever changes behind the owner's back.
    void setDeviceChangeHandler(std::function<void()>) override {}

    // Renders the next `frames` frames into the buffer (mono or stereo) and
    // sets its frameLength; silence while nothing is started. The error is a
    // readable text.
    std::expected<void, std::string> pull(std::uint32_t frames, PCMBuffer& buffer);

private:
    AudioRenderSource* source_ = nullptr;
    std::uint32_t maximumFrameCount_;
    std::vector<float> scratch_;
};

} // namespace hushmeadows
