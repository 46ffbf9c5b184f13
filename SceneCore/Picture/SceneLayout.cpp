#include "SceneCore/Picture/SceneLayout.h"

#include <algorithm>
#include <cmath>

namespace hushmeadows {

namespace {

constexpr double snapUpTolerance = 1.05;  // a snap up may enlarge by 5 %
constexpr double snapDownTolerance = 0.9; // a snap down may shrink by 10 %

enum class Rounding { up, down };

double rounded(double value, Rounding direction)
{
    return direction == Rounding::up ? std::ceil(value) : std::floor(value);
}

// Offset of the picture's leading edge from the bounds' leading edge along one
// axis, in device pixels: centred when it fits, otherwise with the focus at the
// centre but never uncovering either side. Halves round away from zero, so an
// odd spare pixel goes to the leading (left or top) margin.
double leadingOffset(double bounds, double picture, double focus)
{
    double offset;
    if (picture <= bounds) {
        offset = (bounds - picture) * 0.5;
    } else {
        offset = bounds * 0.5 - picture * focus;
        offset = std::max(offset, bounds - picture);
        offset = std::min(offset, 0.0);
    }
    return std::round(offset);
}

} // namespace

bool SceneLayout::Result::isWholePixelScale() const
{
    return scale == std::round(scale) && scale >= 1.0;
}

SceneLayout::Result SceneLayout::compute(const Input& input)
{
    const double b = input.backingScale > 1.0 ? input.backingScale : 1.0;
    const double cw = input.contentSize.width;
    const double ch = input.contentSize.height;
    // Written as negated "greater than" tests so that NaN lands here too.
    if (!(cw > 0) || !(ch > 0))
        return {};
    const double pw = input.boundsSize.width * b;
    const double ph = input.boundsSize.height * b;
    if (!(pw > 0) || !(ph > 0))
        return {};

    const double rx = pw / cw;
    const double ry = ph / ch;
    const double fill = std::max(rx, ry);
    const double fit = std::min(rx, ry);
    const double safeFit = std::min(pw / (cw * input.safeArea.width), ph / (ch * input.safeArea.height));

    // A world that protects its safe area is framed one step more carefully
    // than the user's choice alone: fill becomes bounded cover, whole scene
    // becomes fit.
    enum class Path { fit, cover, boundedCover };
    Path path;
    if (input.scaling == WorldManifest::Scaling::aspectFit || (input.protectsSafeArea && !input.alwaysFill))
        path = Path::fit;
    else if (input.alwaysFill && !input.protectsSafeArea)
        path = Path::cover;
    else
        path = Path::boundedCover;

    double s = 0;
    Rounding direction = Rounding::down;
    switch (path) {
    case Path::cover:
        s = fill;
        if (input.pixelPerfect && fill >= 1.0 && std::ceil(fill) <= fill * snapUpTolerance)
            s = std::ceil(fill);
        direction = fill <= s ? Rounding::up : Rounding::down;
        break;
    case Path::boundedCover:
        s = std::min(safeFit, fill);
        if (input.pixelPerfect && s >= 1.0) {
            if (s == fill && std::ceil(s) <= safeFit)
                s = std::ceil(s);
            else if (std::floor(s) >= fill) // only ever picks s itself; kept so
                s = std::floor(s);          // that a scale below fill stays fractional
        }
        direction = fill <= s ? Rounding::up : Rounding::down;
        break;
    case Path::fit:
        s = fit;
        if (input.pixelPerfect && fit >= 1.0 && std::floor(fit) >= 1.0 && std::floor(fit) / fit >= snapDownTolerance)
            s = std::floor(fit);
        direction = Rounding::down;
        break;
    }

    const double width = rounded(cw * s, direction);
    const double height = rounded(ch * s, direction);
    const double x = leadingOffset(pw, width, input.focus.x);
    const double top = leadingOffset(ph, height, input.focus.y);
    const double y = (ph - height) - top; // bottom-left origin

    return {Rect{{x / b, y / b}, {width / b, height / b}}, s};
}

} // namespace hushmeadows
