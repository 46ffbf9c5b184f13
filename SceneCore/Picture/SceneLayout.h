#pragma once

#include "SceneCore/Picture/Geometry.h"
#include "SceneCore/Worlds/WorldManifest.h"

namespace hushmeadows {

// Where, and at what size, a world's picture goes inside a view. Pixel art is
// shown at whole device-pixel scales where that costs little: a snap up to a
// whole scale may enlarge the covering picture by at most 5 %, a snap down may
// shrink the fitted picture by at most 10 %. Placement keeps the focus point in
// view without ever uncovering the view, and every size and offset lands on
// whole device pixels. A pure computation: no state, no failure.
//
// Coordinates: the result's frame is in the view's points with the origin at
// the view's BOTTOM-LEFT corner and y growing upwards (the layer convention of
// the system this was first built for). A top-left renderer places the
// picture's top edge at bounds.height − (frame.y() + frame.height()).
struct SceneLayout {
    SceneLayout() = delete;

    struct Input {
        Size contentSize;          // one picture frame, in source pixels
        Size boundsSize;           // the view, in points
        double backingScale = 1;   // device pixels per point; ≤ 1 counts as 1
        WorldManifest::Scaling scaling = WorldManifest::Scaling::aspectFill;
        UnitPoint focus;           // the point to keep in view; y from the top
        UnitSize safeArea;         // central region that should stay visible
        bool pixelPerfect = false; // prefer whole-number scales
        bool alwaysFill = false;   // the user's framing: fill the screen, or show the whole scene
        bool protectsSafeArea = false; // the world forbids cropping its safe area

        bool operator==(const Input&) const = default;
    };

    struct Result {
        Rect frame;       // points, bottom-left origin (see above)
        double scale = 0; // device pixels per source pixel; 0 for a degenerate input

        // A whole scale of at least 1: nearest-neighbour magnification is exact.
        bool isWholePixelScale() const;

        bool operator==(const Result&) const = default;
    };

    // A zero or NaN content size or view size gives the zero frame and scale 0.
    static Result compute(const Input& input);
};

} // namespace hushmeadows
