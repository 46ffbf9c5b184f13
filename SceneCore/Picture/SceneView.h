#pragma once

#include "SceneCore/Picture/FrameLateness.h"
#include "SceneCore/Picture/Geometry.h"
#include "SceneCore/Worlds/WorldPackage.h"

#include <memory>

namespace hushmeadows {

// Why a scene view holds still although its owner wants it to play: it has
// no window, the machine sleeps, the displays sleep, or its window cannot be
// seen.
enum class Suspension { noWindow, systemSleep, displaySleep, occluded };

// The face of the picture view that the screen saver view drives:
// PixelSceneView on every platform.
class SceneView {
public:
    virtual ~SceneView() = default;

    virtual void setPixelPerfect(bool pixelPerfect) = 0;
    virtual void setFillsView(bool fillsView) = 0;
    virtual void load(const WorldPackage& world) = 0;
    virtual void play() = 0;
    // Adds or removes one reason to hold still; the view plays exactly when
    // asked to and no reason is left.
    virtual void setSuspended(Suspension reason, bool suspended) = 0;
    // One frame tick: pull the newest decoded frame into view.
    virtual void pumpFrame() = 0;
    // Lays the picture out again, after the view's size changed.
    virtual void layout() = 0;
    // Removes observers and unloads the world; the view is black afterwards.
    virtual void tearDown() = 0;

    virtual bool isPlaying() const = 0;
    virtual long loopCount() const = 0;
    virtual long framesDisplayed() const = 0;
    // How late the video's frames came on screen since the world was loaded.
    virtual FrameLateness::Summary frameLateness() const = 0;
};

// Makes scene views sized to a view's bounds.
class SceneViewFactory {
public:
    virtual ~SceneViewFactory() = default;
    virtual std::unique_ptr<SceneView> makeSceneView(Size bounds) = 0;
    // Live scene views and video sources, for diagnostics.
    virtual int liveSceneViews() const = 0;
    virtual int liveVideoSources() const = 0;
};

} // namespace hushmeadows
