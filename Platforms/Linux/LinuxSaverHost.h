#pragma once

#include "HushmeadowsSaver/ScreenSaverHost.h"
#include "Platforms/Linux/SDLSceneSurface.h"
#include "Platforms/Linux/X11SaverDisplay.h"
#include "SceneCore/Picture/PosterStore.h"
#include "SceneCore/Picture/SceneView.h"
#include "SceneCore/Runtime/RunLoop.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace hushmeadows {

// One screen saver view's place on Linux: an X window (the daemon's, the
// settings dialog's preview, or one we made over a monitor) drawn through an
// SDL surface.
// - implements: bounds and window frame, the monitors as screens (converted
//   to a bottom-left origin at the first monitor, as the view expects), the
//   frame timer on the run loop, scene views on the window's surface;
// - does not: layers or window levels (X has neither; the level is 0), or a
//   backing colour (the daemon's windows and ours are black already).
class LinuxSaverHost final : public ScreenSaverHost, public SceneViewFactory {
public:
    LinuxSaverHost(RunLoop& loop, X11SaverDisplay& display, std::uint64_t window, SDLSceneSurface& surface, PosterStore& posters,
                   bool preview);
    ~LinuxSaverHost() override;

    // What the frame timer calls every frame interval: the view's animateOneFrame.
    void setFrameHandler(std::function<void()> tick) { tick_ = std::move(tick); }
    // The window is gone: from now on the view has none.
    void windowWasDestroyed() { windowGone_ = true; }
    // Scene views made from now on show the world's poster and play no video.
    void showPostersOnly() { postersOnly_ = true; }
    // Draws what changed, only while a scene view shows on the window: a dark
    // or stopped view never draws.
    void render();

    bool isPreview() const override { return preview_; }
    Size bounds() const override { return surface_.boundsSize(); }
    std::optional<WindowInfo> window() const override;
    std::vector<ScreenInfo> screens() const override;
    void superStartAnimation() override;
    void superStopAnimation() override;
    bool isAnimating() const override { return timer_ != nullptr; }
    void setAnimationTimeInterval(double seconds) override { interval_ = seconds; }
    void makeBackingLayerBlack() override {}
    void addSceneView(SceneView& sceneView) override { shown_ = &sceneView; }
    void removeSceneView(SceneView& sceneView) override;

    std::unique_ptr<SceneView> makeSceneView(Size bounds) override;
    int liveSceneViews() const override;
    int liveVideoSources() const override;

    // X's top-left frames in the view's coordinates: origin at the bottom
    // left of the first monitor, y upwards.
    static Rect flipped(const Rect& frame, const Rect& firstMonitor);

private:
    RunLoop& loop_;
    X11SaverDisplay& display_;
    std::uint64_t window_;
    SDLSceneSurface& surface_;
    PosterStore& posters_;
    bool preview_;
    bool windowGone_ = false;
    bool postersOnly_ = false;
    double interval_ = 1.0 / 48.0;
    std::function<void()> tick_;
    std::shared_ptr<Cancellable> timer_;
    SceneView* shown_ = nullptr;
};

} // namespace hushmeadows
