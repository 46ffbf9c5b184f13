#include "SceneCore/Runtime/ImageHeader.h"

#include <cstdint>

namespace hushmeadows {

namespace {

std::uint32_t bigEndian(std::string_view bytes, std::size_t at, int count)
{
    std::uint32_t value = 0;
    for (int i = 0; i < count; ++i)
        value = (value << 8) | static_cast<unsigned char>(bytes[at + static_cast<std::size_t>(i)]);
    return value;
}

std::optional<PixelSize> sized(std::uint32_t width, std::uint32_t height)
{
    if (width == 0 || height == 0 || width > 0x7FFFFFFF || height > 0x7FFFFFFF)
        return std::nullopt;
    return PixelSize{static_cast<int>(width), static_cast<int>(height)};
}

std::optional<PixelSize> pngSize(std::string_view head, std::string_view tail)
{
    constexpr std::string_view iend("\0\0\0\0IEND\xAE\x42\x60\x82", 12);
    if (head.size() < 24 || head.substr(12, 4) != "IHDR" || bigEndian(head, 8, 4) != 13 || !tail.ends_with(iend))
        return std::nullopt;
    return sized(bigEndian(head, 16, 4), bigEndian(head, 20, 4));
}

std::optional<PixelSize> jpegSize(std::string_view head, std::string_view tail)
{
    if (!tail.ends_with("\xFF\xD9"))
        return std::nullopt;
    // Segments follow the start-of-image marker until a start-of-frame one.
    std::size_t at = 2;
    while (at + 4 <= head.size()) {
        if (static_cast<unsigned char>(head[at]) != 0xFF)
            return std::nullopt;
        auto marker = static_cast<unsigned char>(head[at + 1]);
        if (marker == 0xFF) { // fill byte
            ++at;
            continue;
        }
        std::uint32_t length = bigEndian(head, at + 2, 2);
        if (length < 2)
            return std::nullopt;
        bool startOfFrame = marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
        if (startOfFrame) {
            if (at + 9 > head.size())
                return std::nullopt;
            return sized(bigEndian(head, at + 7, 2), bigEndian(head, at + 5, 2));
        }
        at += 2 + length;
    }
    return std::nullopt;
}

} // namespace

std::optional<PixelSize> imageHeaderSize(std::string_view head, std::string_view tail)
{
    if (head.starts_with(std::string_view("\x89PNG\r\n\x1A\n", 8)))
        return pngSize(head, tail);
    if (head.starts_with("\xFF\xD8"))
        return jpegSize(head, tail);
    return std::nullopt;
}

} // namespace hushmeadows
