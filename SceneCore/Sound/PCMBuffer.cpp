#include "SceneCore/Sound/PCMBuffer.h"

#include "SceneCore/Runtime/Precondition.h"

#include <new>

namespace hushmeadows {

std::shared_ptr<PCMBuffer> PCMBuffer::make(AudioFormat format, std::uint32_t frameCapacity)
{
    if (format.channelCount < 1 || !(format.sampleRate > 0))
        return nullptr;
    try {
        return std::make_shared<PCMBuffer>(format, frameCapacity);
    } catch (const std::bad_alloc&) {
        return nullptr;
    } catch (const std::length_error&) {
        return nullptr;
    }
}

PCMBuffer::PCMBuffer(AudioFormat format, std::uint32_t frameCapacity)
    : format_(format)
    , frameCapacity_(frameCapacity)
{
    HM_PRECONDITION(format.channelCount >= 1 && format.sampleRate > 0, "a PCM buffer needs channels and a positive rate");
    samples_.assign(static_cast<std::size_t>(frameCapacity) * static_cast<std::size_t>(format.channelCount), 0.0f);
}

void PCMBuffer::setFrameLength(std::uint32_t frames)
{
    HM_PRECONDITION(frames <= frameCapacity_, "a PCM buffer cannot hold more frames than its capacity");
    frameLength_ = frames;
}

float* PCMBuffer::channelData(int channel)
{
    HM_PRECONDITION(channel >= 0 && channel < format_.channelCount, "no such channel in the PCM buffer");
    return samples_.data() + static_cast<std::size_t>(channel) * frameCapacity_;
}

const float* PCMBuffer::channelData(int channel) const
{
    HM_PRECONDITION(channel >= 0 && channel < format_.channelCount, "no such channel in the PCM buffer");
    return samples_.data() + static_cast<std::size_t>(channel) * frameCapacity_;
}

} // namespace hushmeadows
