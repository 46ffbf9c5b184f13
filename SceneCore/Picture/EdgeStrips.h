#pragma once

#include "SceneCore/Runtime/Image.h"

#include <cstdint>
#include <optional>

namespace hushmeadows {

// The colours along the four edges of a picture, for dressing the margins that
// a fitted picture leaves: each edge averaged across a thin band, smoothed
// along the edge, and kept as a one-pixel-thick image; plus the mean colour of
// all four. Computed once per decoded still, off the main thread.
struct EdgeStrips {
    struct Components {
        double red = 0;
        double green = 0;
        double blue = 0;
        bool operator==(const Components&) const = default;
    };

    // sRGB components in 0 … 1.
    struct Color {
        double red = 0;
        double green = 0;
        double blue = 0;
        double alpha = 1;
        bool operator==(const Color&) const = default;
    };

    // Strip images are rgba8, rows unpadded (4 bytes per pixel), the fourth
    // byte always 255. left and right are 1 × height, top and bottom width × 1.
    Image left;
    Image right;
    Image top;
    Image bottom;
    Components averageComponents; // mean over every pixel of the four strips

    // The strips of `image` (rgba8 or bgra8, straight alpha: the picture counts
    // as drawn over black) with bands `depth` pixels deep. Nothing when the two
    // bands of an axis would meet (2 × depth ≥ width or height), when depth is
    // not positive, or when the image's pixel buffer is too short. A depth whose
    // double does not fit in 64 bits is a programming error.
    static std::optional<EdgeStrips> make(const Image& image, std::int64_t depth);

    // averageComponents, opaque.
    Color averageColor() const { return {averageComponents.red, averageComponents.green, averageComponents.blue, 1.0}; }
};

} // namespace hushmeadows
