#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace hushmeadows {

// An audio file's format and true length, as a probe or a header states them.
struct AudioFileInfo {
    double sampleRate = 0;
    int channelCount = 0;
    std::int64_t lengthFrames = 0; // the true stream length, in frames at sampleRate

    // Beyond what any audio device or resampler setting here is made for: a
    // header that claims more is damaged or hostile.
    static constexpr int highestSampleRate = 768'000;
    static constexpr int mostChannels = 32;

    // Why a sound in this format cannot be played, in words a person can act
    // on; nothing when it can.
    static std::optional<std::string> formatProblem(double sampleRate, int channelCount)
    {
        if (!(sampleRate > 0 && sampleRate <= highestSampleRate))
            return "its sample rate of " + std::to_string(static_cast<long long>(sampleRate)) + " Hz is beyond the "
                + std::to_string(highestSampleRate) + " Hz the saver can play";
        if (channelCount < 1 || channelCount > mostChannels)
            return "it has " + std::to_string(channelCount) + " channels, more than the " + std::to_string(mostChannels)
                + " the saver can mix";
        return std::nullopt;
    }
};

} // namespace hushmeadows
