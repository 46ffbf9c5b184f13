#pragma once

#include "SceneCore/Picture/PixelSceneView.h"

#include <functional>
#include <memory>

namespace hushmeadows {

// Makes pixel scene views, each on a surface of its own.
class PixelSceneViewFactory final : public SceneViewFactory {
public:
    using SurfaceMaker = std::function<std::unique_ptr<SceneSurface>(Size bounds)>;

    PixelSceneViewFactory(SurfaceMaker makeSurface, PosterStore& posters, RunLoop& mainLoop, PixelSceneView::VideoSourceMaker makeSource)
        : makeSurface_(std::move(makeSurface)), posters_(posters), mainLoop_(mainLoop), makeSource_(std::move(makeSource))
    {
    }

    std::unique_ptr<SceneView> makeSceneView(Size bounds) override
    {
        return std::make_unique<PixelSceneView>(makeSurface_(bounds), posters_, mainLoop_, makeSource_);
    }
    int liveSceneViews() const override { return PixelSceneView::liveCount(); }
    int liveVideoSources() const override { return LoopingVideoSource::liveCount(); }

private:
    SurfaceMaker makeSurface_;
    PosterStore& posters_;
    RunLoop& mainLoop_;
    PixelSceneView::VideoSourceMaker makeSource_;
};

} // namespace hushmeadows
