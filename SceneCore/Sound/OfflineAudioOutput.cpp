#include "SceneCore/Sound/OfflineAudioOutput.h"

#include <algorithm>

namespace hushmeadows {

OfflineAudioOutput::OfflineAudioOutput(std::uint32_t maximumFrameCount)
    : maximumFrameCount_(maximumFrameCount)
    , scratch_(static_cast<std::size_t>(maximumFrameCount) * 2, 0.0f)
{
}

std::expected<void, std::string> OfflineAudioOutput::start(AudioRenderSource& source, double sampleRate)
{
    if (!(sampleRate > 0))
        return std::unexpected(std::string("an offline output needs a positive sample rate"));
    source_ = &source;
    return {};
}

std::expected<void, std::string> OfflineAudioOutput::pull(std::uint32_t frames, PCMBuffer& buffer)
{
    if (frames > maximumFrameCount_)
        return std::unexpected("cannot render " + std::to_string(frames) + " frames at once; the maximum is "
                               + std::to_string(maximumFrameCount_));
    if (buffer.frameCapacity() < frames || buffer.channelCount() > 2)
        return std::unexpected(std::string("the buffer is too small for the frames asked, or has more than two channels"));
    if (source_)
        source_->render(scratch_.data(), static_cast<int>(frames));
    else
        std::fill_n(scratch_.begin(), 2 * static_cast<std::size_t>(frames), 0.0f);
    // Indexed by size_t, so that the compiler need not keep 32-bit wrapping
    // and the loops vectorise.
    const float* mix = scratch_.data();
    const std::size_t count = frames;
    if (buffer.channelCount() == 2) {
        float* left = buffer.channelData(0);
        float* right = buffer.channelData(1);
        for (std::size_t i = 0; i < count; ++i) {
            left[i] = mix[2 * i];
            right[i] = mix[2 * i + 1];
        }
    } else {
        float* mono = buffer.channelData(0);
        for (std::size_t i = 0; i < count; ++i)
            mono[i] = (mix[2 * i] + mix[2 * i + 1]) * 0.5f;
    }
    buffer.setFrameLength(frames);
    return {};
}

} // namespace hushmeadows
