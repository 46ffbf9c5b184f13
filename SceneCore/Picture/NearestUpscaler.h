#pragma once

#include "SceneCore/Runtime/Image.h"

#include <cstddef>
#include <cstdint>

namespace hushmeadows {

// Read-only 4-byte pixels somewhere in memory, rows from the top. A region of
// a larger picture is the same thing with the pointer moved to its corner.
struct ConstPixelPlane {
    const std::uint8_t* data = nullptr;
    std::size_t bytesPerRow = 0;
    int width = 0;
    int height = 0;

    static ConstPixelPlane of(const Image& image) { return {image.pixels.data(), image.bytesPerRow, image.width, image.height}; }
};

struct PixelPlane {
    std::uint8_t* data = nullptr;
    std::size_t bytesPerRow = 0;
    int width = 0;
    int height = 0;

    static PixelPlane of(Image& image) { return {image.pixels.data(), image.bytesPerRow, image.width, image.height}; }
};

// Destination pixels, x and y from the top left.
struct PixelRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    bool isEmpty() const { return width <= 0 || height <= 0; }
    bool operator==(const PixelRect&) const = default;
};

// Nearest-neighbour magnification by a whole factor, for drawing a frame into
// a window surface on the software path: each source pixel becomes a
// scale × scale block. A row is widened once (each pixel repeated `scale`
// times) and then copied down for the block's other rows, so the cost is close
// to that of writing the destination once.
//
// Pixels are copied as 4-byte units, so the channel order (BGRA from the video
// source, or any other) passes through unchanged. Fractional scales do not
// come here: the layout only snaps pixel-art worlds to whole scales, and other
// scales go through the renderer's own filtered scaling.
class NearestUpscaler {
public:
    NearestUpscaler() = delete;

    // Writes `source`, magnified by `scale` (≥ 1), with its top-left corner at
    // `originX`, `originY` of `destination` (negative when the picture
    // overhangs, as the cover layout crops). Only pixels inside the destination
    // are written; margins are left as they were. Returns the rectangle that
    // was written (empty when the picture misses the destination). Source and
    // destination must not overlap.
    static PixelRect upscale(ConstPixelPlane source, int scale, PixelPlane destination, int originX, int originY);
};

} // namespace hushmeadows
