#include "tests/support/FakeAudioFile.h"

#include <algorithm>

namespace hushmeadows::testing {

FakeAudioFile::FakeAudioFile(std::int64_t length, double rate, std::shared_ptr<Shared> shared)
    : length_(length)
    , rate_(rate)
    , shared_(std::move(shared))
{
}

void FakeAudioFile::setFramePosition(std::int64_t frame) { position_ = std::clamp<std::int64_t>(frame, 0, length_); }

std::expected<void, std::string> FakeAudioFile::read(PCMBuffer& buffer, std::uint32_t frames)
{
    ++shared_->reads;
    auto count = static_cast<std::uint32_t>(std::min<std::int64_t>({frames, buffer.frameCapacity(), length_ - position_}));
    if (auto fault = shared_->faults.find(position_); fault != shared_->faults.end()) {
        Fault kind = fault->second;
        shared_->faults.erase(fault);
        if (kind == Fault::error)
            return std::unexpected(std::string("damaged block"));
        count /= 2;
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        buffer.channelData(0)[i] = left(position_ + i);
        buffer.channelData(1)[i] = right(position_ + i);
    }
    buffer.setFrameLength(count);
    position_ += count;
    return {};
}

} // namespace hushmeadows::testing
