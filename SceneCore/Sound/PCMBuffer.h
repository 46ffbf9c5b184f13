#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace hushmeadows {

// How PCM samples are laid out in time: frames per second and channels per
// frame. Samples themselves are always 32-bit float.
struct AudioFormat {
    double sampleRate = 48000;
    int channelCount = 2;

    bool operator==(const AudioFormat&) const = default;
};

// Float PCM, one contiguous plane per channel. frameLength says how many of
// the frameCapacity frames hold sound. The buffer owns its memory; it is
// allocated once and never grows.
class PCMBuffer {
public:
    // Nothing when the format is unusable (no channels, a rate that is not
    // positive) or the memory cannot be had. A capacity of 0 is allowed.
    static std::shared_ptr<PCMBuffer> make(AudioFormat format, std::uint32_t frameCapacity);

    PCMBuffer(AudioFormat format, std::uint32_t frameCapacity);

    const AudioFormat& format() const { return format_; }
    int channelCount() const { return format_.channelCount; }
    std::uint32_t frameCapacity() const { return frameCapacity_; }
    std::uint32_t frameLength() const { return frameLength_; }
    // At most frameCapacity.
    void setFrameLength(std::uint32_t frames);

    float* channelData(int channel);
    const float* channelData(int channel) const;

    // Seconds of sound the buffer holds.
    double duration() const { return frameLength_ / format_.sampleRate; }

private:
    AudioFormat format_;
    std::uint32_t frameCapacity_;
    std::uint32_t frameLength_ = 0;
    std::vector<float> samples_;
};

} // namespace hushmeadows
