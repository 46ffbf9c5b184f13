#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace hushmeadows {

struct PixelSize {
    int width = 0;
    int height = 0;
    bool operator==(const PixelSize&) const = default;
};

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
