#pragma once

#include "SceneCore/Picture/Geometry.h"

#include <optional>
#include <string>
#include <vector>

namespace hushmeadows {

class SceneView;

struct ScreenInfo {
    Rect frame; // global coordinates, origin at the bottom left of the first screen
    bool operator==(const ScreenInfo&) const = default;
};

struct WindowInfo {
    Rect frame;
    long level = 0;
    std::optional<ScreenInfo> screen;
};

// What the screen saver view gets from the platform's view class and window
// system: its own geometry, the screens, the superclass's animation calls,
// and a place for the scene view.
class ScreenSaverHost {
public:
    virtual ~ScreenSaverHost() = default;

    virtual bool isPreview() const = 0;
    virtual Size bounds() const = 0;
    virtual std::optional<WindowInfo> window() const = 0;
    virtual std::vector<ScreenInfo> screens() const = 0;

    // The superclass's own animation calls.
    virtual void superStartAnimation() = 0;
    virtual void superStopAnimation() = 0;
    virtual bool isAnimating() const = 0;
    virtual void setAnimationTimeInterval(double seconds) = 0;
    // A backing layer with a black background.
    virtual void makeBackingLayerBlack() = 0;

    // The scene view as a subview filling the bounds and resizing with them.
    virtual void addSceneView(SceneView& sceneView) = 0;
    virtual void removeSceneView(SceneView& sceneView) = 0;
};

} // namespace hushmeadows
