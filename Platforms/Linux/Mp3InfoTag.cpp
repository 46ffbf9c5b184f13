#include "Platforms/Linux/Mp3InfoTag.h"

namespace hushmeadows {

namespace {

std::uint32_t bigEndian(std::string_view bytes, std::size_t at, std::size_t count)
{
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < count; ++i)
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

} // namespace

std::size_t Mp3InfoTag::audioStart(std::string_view first10)
{
    if (first10.size() < 10 || !first10.starts_with("ID3"))
        return 0;
    // Four 7-bit bytes; a footer (flag 0x10) adds another 10 bytes.
    std::size_t size = 0;
    for (std::size_t at = 6; at < 10; ++at) {
        auto byte = static_cast<unsigned char>(first10[at]);
        if (byte & 0x80)
            return 0;
        size = size << 7 | byte;
    }
    return 10 + size + ((static_cast<unsigned char>(first10[5]) & 0x10) ? 10 : 0);
}

std::optional<AudioFileInfo> Mp3InfoTag::parse(std::string_view frame)
{
    if (frame.size() < 4)
        return std::nullopt;
    std::uint32_t header = bigEndian(frame, 0, 4);
    // Frame sync, a version that exists, layer III.
    int version = static_cast<int>(header >> 19 & 3); // 0: MPEG 2.5, 2: MPEG 2, 3: MPEG 1
    int rateIndex = static_cast<int>(header >> 10 & 3);
    if ((header & 0xFFE00000) != 0xFFE00000 || version == 1 || (header >> 17 & 3) != 1 || rateIndex == 3)
        return std::nullopt;
    static constexpr int mpeg1Rates[] = {44100, 48000, 32000};
    int rate = mpeg1Rates[rateIndex] >> (version == 3 ? 0 : version == 2 ? 1 : 2);
    bool mono = (header >> 6 & 3) == 3;
    bool mpeg1 = version == 3;

    // The Xing header sits where the side information of an audio frame ends.
    std::size_t at = 4 + (mpeg1 ? (mono ? 17 : 32) : (mono ? 9 : 17));
    if (frame.size() < at + 12)
        return std::nullopt;
    std::string_view tag = frame.substr(at, 4);
    std::uint32_t flags = bigEndian(frame, at + 4, 4);
    if ((tag != "Xing" && tag != "Info") || !(flags & 1))
        return std::nullopt;
    std::uint32_t frames = bigEndian(frame, at + 8, 4);
    // Frame count, byte count, table of contents, quality: each there when flagged.
    at += 12 + ((flags & 2) ? 4 : 0) + ((flags & 4) ? 100 : 0) + ((flags & 8) ? 4 : 0);
    // The LAME tag: a 9-byte encoder name, 12 bytes, then delay and padding in 12 bits each.
    if (frame.size() < at + 24)
        return std::nullopt;
    std::string_view encoder = frame.substr(at, 4);
    if (encoder != "LAME" && encoder != "Lavf" && encoder != "Lavc")
        return std::nullopt;
    std::uint32_t trim = bigEndian(frame, at + 21, 3);
    std::int64_t length = static_cast<std::int64_t>(frames) * (mpeg1 ? 1152 : 576) - (trim >> 12) - (trim & 0xFFF);
    if (frames == 0 || length < 1)
        return std::nullopt;
    return AudioFileInfo{.sampleRate = static_cast<double>(rate), .channelCount = mono ? 1 : 2, .lengthFrames = length};
}

} // namespace hushmeadows
