#pragma once

#include "SceneCore/Picture/NearestUpscaler.h"
#include "SceneCore/Runtime/Image.h"

#include <cstddef>
#include <vector>

namespace hushmeadows {

// Where a video frame differs from the frame showing, found at the source's
// own resolution (cheap there) so that only those parts are magnified and
// presented. The picture is cut into square tiles; the changed tiles of each
// band of tiles become runs, and a run that lines up with one in the band
// above extends it downwards.
struct FrameDamage {
    static constexpr int tileSize = 8;
    // Each rectangle costs a request to present: past this many, each band
    // becomes one rectangle across its changed tiles.
    static constexpr std::size_t maxRects = 96;

    enum class Kind {
        none,  // the pictures are equal: nothing to draw
        some,  // only `rects` differ
        whole, // most of it, or pictures not comparable: draw it all
    };
    Kind kind = Kind::none;
    // Source pixels, disjoint, for `some`.
    std::vector<PixelRect> rects;

    // Pictures of different sizes or formats differ whole; so do pictures of
    // which more than half the tiles changed, where rectangles save nothing.
    static FrameDamage between(const Image& shown, const Image& next);
};

} // namespace hushmeadows
