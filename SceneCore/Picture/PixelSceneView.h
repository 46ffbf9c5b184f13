#pragma once

#include "SceneCore/Picture/EdgeStrips.h"
#include "SceneCore/Picture/PosterStore.h"
#include "SceneCore/Picture/SceneLayout.h"
#include "SceneCore/Picture/SceneSurface.h"
#include "SceneCore/Picture/SceneView.h"

#include <memory>
#include <optional>
#include <vector>

namespace hushmeadows {

// The picture view: lays out a world's picture on its surface on every pass,
// whole-pixel scaled with nearest-neighbour sampling for pixel art, and
// dresses the margins with bars made from the picture's edges or the world's
// matte colour. Until the video pipeline runs it shows the world's poster.
// Main thread only.
class PixelSceneView final : public SceneView {
public:
    PixelSceneView(SceneSurface& surface, PosterStore& posters);
    ~PixelSceneView() override;

    void setPixelPerfect(bool pixelPerfect) override;
    void setFillsView(bool fillsView) override;
    void load(const WorldPackage& world) override;
    void play() override;
    void pumpFrame() override;
    void tearDown() override;

    bool isPlaying() const override { return wantsPlay_ && world_.has_value(); }
    long loopCount() const override { return 0; }
    long framesDisplayed() const override { return framesDisplayed_; }

    // Lays the picture out again; call when the surface's size changes.
    void layout() override;

    bool pixelPerfect() const { return pixelPerfect_; }
    bool fillsView() const { return fillsView_; }
    // The last layout applied, when there is a picture.
    const std::optional<SceneLayout::Result>& lastLayout() const { return lastLayout_; }

    static int liveCount();

    // The margin bars around `frame` inside a view of `view` device pixels.
    // With a matte: every bar in that colour ("auto": the strips' average).
    // Otherwise: left and right bars from the side strips along the
    // picture's height, top and bottom bars from the top and bottom strips
    // along its width, and the corners in the average colour. Without strips
    // the bars are black.
    static std::vector<MarginBar> marginBars(PixelRect frame, PixelSize view, const WorldManifest::Visual& visual, const PosterStore::EntryPtr& poster);

private:
    void showPoster(PosterStore::EntryPtr entry);

    SceneSurface& surface_;
    PosterStore& posters_;
    bool pixelPerfect_ = true;
    bool fillsView_ = true;
    bool wantsPlay_ = false;
    std::optional<WorldPackage> world_;
    PosterStore::EntryPtr poster_;
    std::shared_ptr<const Image> artwork_;
    std::optional<SceneLayout::Result> lastLayout_;
    long framesDisplayed_ = 0;
    // Poster completions of an earlier world do nothing.
    std::shared_ptr<int> generation_ = std::make_shared<int>(0);
};

} // namespace hushmeadows
