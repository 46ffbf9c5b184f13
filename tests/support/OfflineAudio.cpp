#include "tests/support/OfflineAudio.h"

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

OfflineGraph::OfflineGraph(ManualRunLoop& loop, double sampleRate, std::uint32_t quantum)
    : loop_(loop)
    , engine_(loop, nullptr, sampleRate)
    , quantum_(quantum)
{
    AudioFormat format{sampleRate, 2};
    if (auto enabled = engine_.enableManualRenderingMode(format, quantum); !enabled)
        throw std::runtime_error("manual rendering: " + enabled.error());
    if (auto started = engine_.start(); !started)
        throw std::runtime_error("start: " + started.error());
    scratch_ = PCMBuffer::make(format, quantum);
}

std::shared_ptr<AudioPlayerNode> OfflineGraph::addPlayer(int channels)
{
    auto node = engine_.makePlayerNode();
    engine_.attach(node);
    engine_.connect(*node, AudioFormat{engine_.sampleRate(), channels});
    return node;
}

StereoSignal OfflineGraph::render(std::int64_t frames, const std::function<void()>& between)
{
    return render(frames, quantum_, between);
}

StereoSignal OfflineGraph::render(std::int64_t frames, std::uint32_t quantum, const std::function<void()>& between)
{
    StereoSignal signal;
    signal.left.reserve(static_cast<std::size_t>(frames));
    signal.right.reserve(static_cast<std::size_t>(frames));
    quantum = std::min(quantum, quantum_);
    while (frames > 0) {
        auto count = static_cast<std::uint32_t>(std::min<std::int64_t>(frames, quantum));
        if (auto rendered = engine_.renderOffline(count, *scratch_); !rendered)
            throw std::runtime_error("renderOffline: " + rendered.error());
        signal.append(*scratch_);
        frames -= count;
        loop_.runPending();
        if (between)
            between();
    }
    return signal;
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

} // namespace hushmeadows::testing
