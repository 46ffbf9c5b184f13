#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <string>

namespace hushmeadows {

// What an output device pulls sound from. render() runs on the device's own
// thread and must never block for long, allocate or log.
class AudioRenderSource {
public:
    virtual ~AudioRenderSource() = default;
    // Fills `frames` frames of interleaved float stereo.
    virtual void render(float* interleaved, int frames) noexcept = 0;
};

// An output device that pulls interleaved float stereo from a render source.
// Called from one thread (the main one) except where said otherwise.
class AudioOutput {
public:
    virtual ~AudioOutput() = default;

    // Opens the device when it is not open (or was lost) and starts pulling
    // from the source at the given rate. The error is a readable text; while
    // no device can be opened it fails, and the caller tries again later.
    virtual std::expected<void, std::string> start(AudioRenderSource& source, double sampleRate) = 0;
    // Stops pulling; once this returns the source is not called until start().
    virtual void pause() = 0;
    // Closes the device; once this returns the source is never called again.
    virtual void stop() = 0;

    // Called, on any thread but the render thread, when the device went away
    // or was replaced. The output is then silent until started again.
    virtual void setDeviceChangeHandler(std::function<void()> handler) = 0;
};

// Makes the output a session of sound plays through.
using AudioOutputFactory = std::function<std::shared_ptr<AudioOutput>()>;

} // namespace hushmeadows
