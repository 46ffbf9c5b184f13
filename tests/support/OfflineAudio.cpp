#include "tests/support/OfflineAudio.h"

#include "SceneCore/Sound/FloatWavWriter.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace hushmeadows::testing {

void StereoSignal::append(const PCMBuffer& buffer)
{
    const float* l = buffer.channelData(0);
    const float* r = buffer.channelCount() > 1 ? buffer.channelData(1) : l;
    left.insert(left.end(), l, l + buffer.frameLength());
    right.insert(right.end(), r, r + buffer.frameLength());
}

void StereoSignal::append(const StereoSignal& more)
{
    left.insert(left.end(), more.left.begin(), more.left.end());
    right.insert(right.end(), more.right.begin(), more.right.end());
}

bool StereoSignal::isSilent() const
{
    auto zero = [](float sample) { return sample == 0.0f; };
    return std::ranges::all_of(left, zero) && std::ranges::all_of(right, zero);
}

OfflineMixer::OfflineMixer(ManualRunLoop& loop, double sampleRate, std::uint32_t quantum)
    : loop_(loop)
    , output_(std::make_shared<OfflineAudioOutput>(quantum))
    , mixer_(loop, output_, sampleRate)
    , quantum_(quantum)
    , scratch_(PCMBuffer::make(AudioFormat{sampleRate, 2}, quantum))
{
    if (auto started = mixer_.start(); !started)
        throw std::runtime_error("start: " + started.error());
}

StereoSignal OfflineMixer::render(std::int64_t frames, const std::function<void()>& between)
{
    StereoSignal signal;
    while (frames > 0) {
        auto count = static_cast<std::uint32_t>(std::min<std::int64_t>(frames, quantum_));
        if (auto rendered = output_->pull(count, *scratch_); !rendered)
            throw std::runtime_error("pull: " + rendered.error());
        signal.append(*scratch_);
        frames -= count;
        mixer_.drainSoon();
        loop_.runPending();
        if (between)
            between();
    }
    return signal;
}

std::expected<void, std::string> ManualOutput::start(AudioRenderSource& renderSource, double)
{
    ++attempts;
    if (refusal)
        return std::unexpected(*refusal);
    source = &renderSource;
    ++starts;
    return {};
}

std::vector<float> ManualOutput::pull(int frames)
{
    std::vector<float> interleaved(2 * static_cast<std::size_t>(frames), 0.0f);
    if (AudioRenderSource* pulled = source.load())
        pulled->render(interleaved.data(), frames);
    return interleaved;
}

std::shared_ptr<PCMBuffer> makeBuffer(std::uint32_t frames, const std::function<float(std::uint32_t)>& left,
                                      const std::function<float(std::uint32_t)>& right, double sampleRate)
{
    auto buffer = PCMBuffer::make(AudioFormat{sampleRate, right ? 2 : 1}, frames);
    for (std::uint32_t i = 0; i < frames; ++i) {
        buffer->channelData(0)[i] = left(i);
        if (right)
            buffer->channelData(1)[i] = right(i);
    }
    buffer->setFrameLength(frames);
    return buffer;
}

void writeFloatWav(const std::filesystem::path& file, int sampleRate, int channels, std::int64_t frames,
                   const std::function<float(std::int64_t, int)>& sample)
{
    auto writer = FloatWavWriter::create(file, sampleRate, channels);
    if (!writer)
        throw std::runtime_error(writer.error());
    std::vector<float> frame(static_cast<std::size_t>(channels));
    for (std::int64_t i = 0; i < frames; ++i) {
        for (int c = 0; c < channels; ++c)
            frame[static_cast<std::size_t>(c)] = sample(i, c);
        writer->append(frame.data(), 1);
    }
    if (auto finished = writer->finish(); !finished)
        throw std::runtime_error(finished.error());
}

} // namespace hushmeadows::testing
