#pragma once

#include "SceneCore/Sound/AudioOutput.h"

#include <memory>

namespace hushmeadows {

// The default output device through AVAudioEngine: a source node whose render
// block pulls the render source (float stereo at the mixer's rate; the
// engine converts to the device), connected to the engine's main mixer.
// The render block takes no lock, allocates nothing and sends no
// Objective-C message. The engine's configuration-change notification (the
// device went away, or its format changed; the engine has then stopped
// itself) is reported through the device change handler.
class AppleAudioOutput final : public AudioOutput {
public:
    AppleAudioOutput();
    ~AppleAudioOutput() override;
    AppleAudioOutput(const AppleAudioOutput&) = delete;
    AppleAudioOutput& operator=(const AppleAudioOutput&) = delete;

    std::expected<void, std::string> start(AudioRenderSource& source, double sampleRate) override;
    void pause() override;
    void stop() override;
    void setDeviceChangeHandler(std::function<void()> handler) override;

private:
    struct Engine;
    std::expected<void, std::string> startEngine(AudioRenderSource& source, double sampleRate);

    std::unique_ptr<Engine> engine_;
};

} // namespace hushmeadows
