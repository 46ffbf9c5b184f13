#pragma once

#include "SceneCore/Sound/AudioOutput.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

union SDL_Event;

namespace hushmeadows {

// The default SDL2 audio device, float32 stereo at the engine's rate
// (SDL converts when the device wants something else). SDL picks the driver
// (PulseAudio, PipeWire, ALSA, or `disk` / `dummy` through SDL_AUDIODRIVER).
// The device's callback pulls the render source; losing the device (SDL's
// device-removed event for it) is reported through the device change handler.
// Measured with SDL 2.26 and PulseAudio: when the server dies, SDL posts the
// removal at once and goes on calling the callback into a scratch buffer;
// opening fails fast ("Could not connect to PulseAudio server") until the
// server is back, and then opens a new stream on it. Retrying is the core's.
class SDLAudioOutput final : public AudioOutput {
public:
    static constexpr int framesPerCallback = 1024;

    SDLAudioOutput();
    ~SDLAudioOutput() override;
    SDLAudioOutput(const SDLAudioOutput&) = delete;
    SDLAudioOutput& operator=(const SDLAudioOutput&) = delete;

    std::expected<void, std::string> start(AudioRenderSource& source, double sampleRate) override;
    void pause() override;
    void stop() override;
    void setDeviceChangeHandler(std::function<void()> handler) override;

    // The driver SDL chose, once a device is open; empty before.
    std::string driverName() const;

private:
    static void callback(void* userdata, std::uint8_t* stream, int length);
    static int watchEvents(void* userdata, SDL_Event* event);
    void close();

    bool initialised_ = false;
    std::uint32_t device_ = 0;
    double openRate_ = 0;
    // Read by the device's thread while the device runs; set only while it is
    // paused or closed.
    AudioRenderSource* source_ = nullptr;
    std::atomic<std::uint32_t> watchedDevice_{0};
    std::mutex handlerMutex_;
    std::function<void()> handler_;
};

} // namespace hushmeadows
