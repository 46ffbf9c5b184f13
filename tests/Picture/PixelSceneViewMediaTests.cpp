#include "Platforms/Linux/FFmpegImageDecoder.h"
#include "Platforms/Linux/FFmpegMediaProbe.h"
#include "SceneCore/Picture/PixelSceneView.h"
#include "SceneCore/Runtime/ManualRunLoop.h"
#include "tests/support/FakeVideoFiles.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/ManualSerialQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace hushmeadows {
namespace {

// Records what the view asks of its surface.
class RecordingSurface final : public SceneSurface {
public:
    Size bounds{1280, 720};
    double scale = 1;
    std::shared_ptr<const Image> artwork;
    PixelRect frame;
    Magnification magnification = Magnification::linear;
    std::vector<MarginBar> bars;

    Size boundsSize() const override { return bounds; }
    double backingScale() const override { return scale; }
    void setArtwork(std::shared_ptr<const Image> image, PixelRect rect, Magnification m) override
    {
        artwork = std::move(image), frame = rect, magnification = m;
    }
    void updateArtwork(std::shared_ptr<const Image> image, const std::vector<PixelRect>&) override { artwork = std::move(image); }
    void setMargins(std::vector<MarginBar> b) override { bars = std::move(b); }
    void clear() override { artwork.reset(), bars.clear(); }
};

class PixelSceneViewTest : public ::testing::Test {
protected:
    ManualRunLoop loop;
    FFmpegMediaProbe probe;
    testing::ManualSerialQueue* posterQueue = nullptr;
    testing::ManualSerialQueue* videoQueue = nullptr;
    std::unique_ptr<PosterStore> posters;
    RecordingSurface surface;
    testing::TempDir dir;
    testing::FakeVideoFiles videos;

    void SetUp() override
    {
        auto owned = std::make_unique<testing::ManualSerialQueue>(PosterStore::queueLabel);
        posterQueue = owned.get();
        posters = std::make_unique<PosterStore>(loop, std::move(owned), std::make_shared<FFmpegImageDecoder>(), probe);
    }
    PixelSceneView::VideoSourceMaker videoMaker()
    {
        return [this](const std::vector<std::filesystem::path>& urls) {
            auto owned = std::make_unique<testing::ManualSerialQueue>(LoopingVideoSource::queueLabel);
            videoQueue = owned.get();
            return std::make_unique<LoopingVideoSource>(urls, loop, std::move(owned), videos.opener());
        };
    }
    // A world playing loop.mp4, with a 640 × 360 poster when it names one.
    WorldPackage world(const std::string& id, std::optional<std::string> poster = "poster.png", bool pixelArt = true,
                       std::optional<std::string> matte = std::nullopt, WorldManifest::Scaling scaling = WorldManifest::Scaling::aspectFill)
    {
        WorldManifest m;
        m.id = m.name = id;
        m.visual.file = "loop.mp4";
        m.visual.poster = poster;
        m.visual.pixelArt = pixelArt;
        m.visual.matte = matte;
        m.visual.scaling = scaling;
        const auto root = dir / (id + ".hushmeadow");
        if (poster)
            testing::copyFile(testing::poster(640, 360), root / *poster);
        return WorldPackage(root, m, {});
    }
    // Lets decodes finish and one frame time pass.
    void tick()
    {
        for (auto* queue : {posterQueue, videoQueue})
            if (queue)
                queue->runAll();
        loop.runPending();
        if (videoQueue)
            videoQueue->runAll();
        loop.advance(1.0 / 48);
    }
};

// The world's video cannot be opened here, so the poster stays.
TEST_F(PixelSceneViewTest, PosterIsLaidOutByTheFramingWithBarsFromItsEdgesOrMatte)
{
    struct Case {
        Size bounds;
        double scale;
        bool fills, pixelArt;
        std::optional<std::string> matte;
        WorldManifest::Scaling scaling;
        PixelRect frame;
        std::size_t bars;
    };
    const auto fill = WorldManifest::Scaling::aspectFill, fit = WorldManifest::Scaling::aspectFit;
    const Case cases[] = {
        {{960, 540}, 2, true, true, std::nullopt, fill, {0, 0, 1920, 1080}, 0}, // device pixels
        // 2× snapped from 2.03, the larger half of the spare pixels left and top.
        {{1300, 760}, 1, false, true, std::nullopt, fit, {10, 20, 1280, 720}, 8},
        // Smooth art is never snapped to a whole scale.
        {{1300, 760}, 1, false, false, "#1A2B3C", fit, {0, 15, 1300, 731}, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.frame.x + c.frame.y);
        videoQueue = nullptr;
        PixelSceneView view(surface, *posters, loop, videoMaker());
        surface.bounds = c.bounds;
        surface.scale = c.scale;
        view.setFillsView(c.fills);
        view.load(world("calm", "poster.png", c.pixelArt, c.matte, c.scaling));
        view.play();
        for (int i = 0; i < 3; ++i)
            tick();
        ASSERT_NE(surface.artwork, nullptr);
        EXPECT_EQ(surface.artwork->width, 640);
        EXPECT_EQ(surface.frame, c.frame);
        EXPECT_EQ(surface.magnification, c.pixelArt ? Magnification::nearest : Magnification::linear);
        ASSERT_EQ(surface.bars.size(), c.bars);
        // Sides from the strips (corners in the average), or all in the matte.
        if (c.bars) {
            EXPECT_EQ(surface.bars.front().fill, c.matte ? MarginBar::Fill::color : MarginBar::Fill::strip);
        }
        if (c.matte) {
            EXPECT_EQ(surface.bars.front().color, (ColorRGB8{0x1A, 0x2B, 0x3C}));
        }
    }
}

TEST_F(PixelSceneViewTest, StaleDecodesAreIgnored)
{
    PixelSceneView view(surface, *posters, loop);
    // A world replaced before its poster arrives never shows it.
    view.load(world("first"));
    view.load(world("second", "other.png"));
    tick();
    ASSERT_NE(surface.artwork, nullptr);
    EXPECT_EQ(view.framesDisplayed(), 1);

    // A decode that completes after teardown changes nothing.
    view.load(world("third", "third.png"));
    view.tearDown();
    tick();
    EXPECT_EQ(surface.artwork, nullptr);
    EXPECT_FALSE(view.isPlaying());
}

TEST_F(PixelSceneViewTest, VideoReplacesThePosterAndMovesOnTheTickUntilSuspendedOrTornDown)
{
    videos.frames = {{"loop.mp4", 3}};
    PixelSceneView view(surface, *posters, loop, videoMaker());
    view.load(world("calm"));
    view.play();
    // The poster stands until the first frame; then every frame in turn.
    posterQueue->runAll();
    loop.runPending();
    ASSERT_NE(surface.artwork, nullptr);
    EXPECT_EQ(surface.artwork->width, 640);
    std::vector<int> shown;
    for (int i = 0; i < 7; ++i) {
        tick();
        shown.push_back(testing::FakeVideoFiles::identify(*surface.artwork).second);
    }
    EXPECT_THAT(shown, ::testing::ElementsAre(0, 1, 2, 0, 1, 2, 0));
    EXPECT_EQ(view.loopCount(), 2);
    // Laid out by the video's own size (2 × 1 filling 1280 × 720, cropped at the sides).
    EXPECT_EQ(surface.frame, (PixelRect{-80, 0, 1440, 720}));

    for (auto reason : {Suspension::occluded, Suspension::displaySleep}) {
        view.setSuspended(reason, true);
        EXPECT_FALSE(view.isTicking());
        EXPECT_FALSE(view.isPlaying());
        const auto held = surface.artwork;
        // A hidden view keeps no timer and, once the frames already asked
        // for are in, decodes nothing.
        EXPECT_EQ(loop.pendingCount(), 0u);
        tick();
        const int read = videos.framesRead;
        tick();
        tick();
        EXPECT_EQ(videos.framesRead, read);
        EXPECT_EQ(surface.artwork, held);
        view.setSuspended(reason, false);
        EXPECT_TRUE(view.isTicking());
        tick();
        EXPECT_NE(surface.artwork, held);
    }

    view.tearDown();
    EXPECT_FALSE(view.isTicking());
    EXPECT_EQ(surface.artwork, nullptr);
    EXPECT_EQ(LoopingVideoSource::liveCount(), 0);
    EXPECT_EQ(videos.openNow, 0);
}

// A video that goes bad while playing leaves the poster, or black without
// one, never its last frame frozen; and the tick rests.
TEST_F(PixelSceneViewTest, AVideoThatFailsWhilePlayingGivesWayToThePosterOrBlack)
{
    for (bool hasPoster : {true, false}) {
        videos = {};
        videos.frames = {{"loop.mp4", 3}};
        PixelSceneView view(surface, *posters, loop, videoMaker());
        view.load(hasPoster ? world("posed") : world("bare", std::nullopt));
        view.play();
        for (int i = 0; i < 4; ++i)
            tick();
        ASSERT_NE(surface.artwork, nullptr);
        ASSERT_EQ(surface.artwork->width, 2) << "the video shows";

        videos.broken.insert("loop.mp4");
        for (int i = 0; i < 12 && view.isTicking(); ++i)
            tick();
        EXPECT_FALSE(view.isTicking());
        EXPECT_EQ(surface.artwork ? surface.artwork->width : 0, hasPoster ? 640 : 0);
        view.tearDown();
        videoQueue = nullptr;
    }
}

} // namespace
} // namespace hushmeadows
