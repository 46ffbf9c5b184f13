#pragma once

#include "SceneCore/Picture/Geometry.h"
#include "SceneCore/Picture/NearestUpscaler.h"
#include "SceneCore/Runtime/Image.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace hushmeadows {

struct ColorRGB8 {
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;
    bool operator==(const ColorRGB8&) const = default;
};

// How a picture is magnified onto device pixels.
enum class Magnification { nearest, linear };

// One bar of a margin around a picture that does not cover the view: either
// a plain colour, or an edge strip of the picture stretched across the bar.
// A vertical strip (the left or right edge, 1 × H) runs along the picture's
// height: row y of the bar shows strip pixel (y − spanStart) × H ÷ spanLength.
// A horizontal strip (top or bottom, W × 1) runs along its width likewise.
struct MarginBar {
    PixelRect rect; // device pixels, top-left origin
    enum class Fill { color, strip } fill = Fill::color;
    ColorRGB8 color;
    std::shared_ptr<const Image> strip;
    bool stripIsVertical = true;
    int spanStart = 0;
    int spanLength = 0;

    bool operator==(const MarginBar&) const = default;
};

// Where the scene view draws: an artwork layer and its margin bars, over
// black. On Linux a window surface we fill ourselves; on macOS layers.
class SceneSurface {
public:
    virtual ~SceneSurface() = default;

    // The view's size in points and device pixels per point.
    virtual Size boundsSize() const = 0;
    virtual double backingScale() const = 0;

    // The picture at `frame` (device pixels, top-left origin; it may overhang
    // the view, which crops it).
    virtual void setArtwork(std::shared_ptr<const Image> image, PixelRect frame, Magnification magnification) = 0;
    // The next frame of the picture showing: the same size, at the same
    // place, differing from it only inside `changed` (source pixels, as
    // FrameDamage finds them). A surface that can redraw and present part
    // of a picture does only that; any other shows the new picture whole.
    virtual void updateArtwork(std::shared_ptr<const Image> image, const std::vector<PixelRect>& changed) = 0;
    virtual void setMargins(std::vector<MarginBar> bars) = 0;
    // Back to black: no artwork, no bars.
    virtual void clear() = 0;
};

} // namespace hushmeadows
