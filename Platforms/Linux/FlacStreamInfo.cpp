#include "Platforms/Linux/FlacStreamInfo.h"

namespace hushmeadows {

std::optional<AudioFileInfo> FlacStreamInfo::parse(std::string_view head)
{
    // "fLaC", then the first metadata block: one type byte (STREAMINFO is 0,
    // the top bit marks the last block), a 24-bit length of 34, the block.
    if (head.size() < 42 || !head.starts_with("fLaC") || (static_cast<unsigned char>(head[4]) & 0x7F) != 0)
        return std::nullopt;
    auto byte = [&](std::size_t at) { return static_cast<std::uint64_t>(static_cast<unsigned char>(head[at])); };
    if ((byte(5) << 16 | byte(6) << 8 | byte(7)) != 34)
        return std::nullopt;
    // Bytes 18-25 of the file: sample rate (20 bits), channels - 1 (3),
    // bits per sample - 1 (5), total samples (36).
    std::uint64_t packed = 0;
    for (std::size_t at = 18; at < 26; ++at)
        packed = packed << 8 | byte(at);
    auto sampleRate = static_cast<double>(packed >> 44);
    int channels = static_cast<int>((packed >> 41) & 0x7) + 1;
    auto frames = static_cast<std::int64_t>(packed & 0xFFFFFFFFFULL);
    if (sampleRate <= 0 || frames <= 0)
        return std::nullopt;
    return AudioFileInfo{.sampleRate = sampleRate, .channelCount = channels, .lengthFrames = frames};
}

} // namespace hushmeadows
