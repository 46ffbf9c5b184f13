#pragma once

namespace hushmeadows {

// Plain double-precision geometry for the picture code, so that the core needs
// no platform graphics types. Units are whatever the user says (points, device
// pixels, source pixels); the types do not convert.

struct Size {
    double width = 0;
    double height = 0;
    bool operator==(const Size&) const = default;
};

struct Point {
    double x = 0;
    double y = 0;
    bool operator==(const Point&) const = default;
};

// An origin and a size; which corner the origin names is up to the user of the
// rectangle (the scene layout uses the bottom left, see SceneLayout.h).
struct Rect {
    Point origin;
    Size size;

    double x() const { return origin.x; }
    double y() const { return origin.y; }
    double width() const { return size.width; }
    double height() const { return size.height; }

    bool operator==(const Rect&) const = default;
};

} // namespace hushmeadows
