#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace hushmeadows {

struct PixelSize {
    int width = 0;
    int height = 0;
    bool operator==(const PixelSize&) const = default;

    // The bytes the picture takes decoded at four bytes a pixel.
    std::uint64_t decodedBytes() const
    {
        return width <= 0 || height <= 0 ? 0 : static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height) * 4;
    }
};

// No picture or video frame larger than this is ever decoded: it is the whole
// poster cache (72 MiB), so a larger poster could never be kept, and a small
// file that claims a huge size must not be allowed to exhaust memory.
inline constexpr std::uint64_t maximumDecodedImageBytes = 75'497'472;

// Why a picture of this size is never decoded, in words a person can act on;
// nothing when it may be.
std::optional<std::string> decodedSizeProblem(PixelSize size);

enum class PixelFormat {
    rgba8, // bytes red, green, blue, alpha
    bgra8, // bytes blue, green, red, alpha
};

// A decoded still picture: 8 bits per component, 4 bytes per pixel, rows from
// the top. Rows may be padded (bytesPerRow ≥ 4 × width).
struct Image {
    int width = 0;
    int height = 0;
    std::size_t bytesPerRow = 0;
    PixelFormat format = PixelFormat::rgba8;
    std::vector<std::uint8_t> pixels;
    // Every alpha byte is 255, as the decoder promises for video frames: a
    // surface then never scans the pixels to find out.
    bool opaque = false;

    static Image blank(int width, int height, PixelFormat format);

    bool isEmpty() const { return width <= 0 || height <= 0; }
    PixelSize size() const { return {width, height}; }
    const std::uint8_t* row(int y) const { return pixels.data() + static_cast<std::size_t>(y) * bytesPerRow; }
    std::uint8_t* row(int y) { return pixels.data() + static_cast<std::size_t>(y) * bytesPerRow; }
    // Memory the pixels take, as a cache costs it.
    std::size_t byteCost() const { return bytesPerRow * static_cast<std::size_t>(height); }
};

} // namespace hushmeadows
