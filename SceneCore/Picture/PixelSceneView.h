#pragma once

#include "SceneCore/Picture/EdgeStrips.h"
#include "SceneCore/Picture/LoopingVideoSource.h"
#include "SceneCore/Picture/PosterStore.h"
#include "SceneCore/Picture/SceneLayout.h"
#include "SceneCore/Picture/SceneSurface.h"
#include "SceneCore/Picture/SceneView.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace hushmeadows {

// The picture view: plays a world's looping video on its surface, laid out
// on every pass by the video's own pixel size, whole-pixel scaled with
// nearest-neighbour sampling for pixel art, and dresses the margins with bars
// made from the poster's edges or the world's matte colour. The poster shows
// until the first frame arrives, and for good when no video plays.
//
// While the view runs (asked to play, a world loaded, no Suspension reason
// holding it), a frame tick on the run loop pulls each frame when it falls
// due. Only the parts of a frame that differ from the one showing go to the
// surface, and a frame equal to it costs nothing more. Main thread only.
class PixelSceneView final : public SceneView {
public:
    // Makes the video source of a world's files; an empty maker shows posters only.
    using VideoSourceMaker = std::function<std::unique_ptr<LoopingVideoSource>(const std::vector<std::filesystem::path>& urls)>;

    PixelSceneView(SceneSurface& surface, PosterStore& posters, RunLoop& mainLoop, VideoSourceMaker makeSource = {});
    // The same, drawing on a surface the view owns.
    PixelSceneView(std::unique_ptr<SceneSurface> surface, PosterStore& posters, RunLoop& mainLoop, VideoSourceMaker makeSource = {});
    ~PixelSceneView() override;

    void setPixelPerfect(bool pixelPerfect) override;
    void setFillsView(bool fillsView) override;
    void load(const WorldPackage& world) override;
    void play() override;
    void setSuspended(Suspension reason, bool suspended) override;
    void pumpFrame() override;
    void tearDown() override;

    // Asked to play, a world loaded, nothing suspending it, and its video (if
    // any) not failed.
    bool isPlaying() const override { return running_ && !(source_ && source_->didFail()); }
    long loopCount() const override { return source_ ? source_->loopCount() : 0; }
    long framesDisplayed() const override { return framesDisplayed_; }
    FrameLateness::Summary frameLateness() const override { return lateness_.summary(); }
    bool isSuspended(Suspension reason) const { return (suspensions_ & bit(reason)) != 0; }
    // The frame tick runs (for tests and diagnostics).
    bool isTicking() const { return tick_ != nullptr; }
    const LoopingVideoSource* source() const { return source_.get(); }

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
    static unsigned bit(Suspension reason) { return 1u << static_cast<unsigned>(reason); }
    void showPoster(PosterStore::EntryPtr entry);
    void updateRunState();
    void scheduleTick();
    void showFrame(std::shared_ptr<const Image> frame);
    void unload();

    std::unique_ptr<SceneSurface> ownedSurface_;
    SceneSurface& surface_;
    PosterStore& posters_;
    RunLoop& mainLoop_;
    VideoSourceMaker makeSource_;
    bool pixelPerfect_ = true;
    bool fillsView_ = true;
    bool wantsPlay_ = false;
    bool running_ = false;
    unsigned suspensions_ = 0;
    std::unique_ptr<LoopingVideoSource> source_;
    std::shared_ptr<Cancellable> tick_;
    // The artwork is a video frame (the poster no longer replaces it).
    bool showsVideo_ = false;
    // Where the last layout put the artwork, so that a frame of the same
    // size takes its place without a new layout.
    std::optional<PixelRect> artworkFrame_;
    std::optional<WorldPackage> world_;
    PosterStore::EntryPtr poster_;
    std::shared_ptr<const Image> artwork_;
    std::optional<SceneLayout::Result> lastLayout_;
    long framesDisplayed_ = 0;
    FrameLateness lateness_;
    // Poster completions of an earlier world do nothing.
    std::shared_ptr<int> generation_ = std::make_shared<int>(0);
};

} // namespace hushmeadows
