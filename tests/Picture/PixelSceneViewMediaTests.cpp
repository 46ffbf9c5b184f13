#include "Platforms/Linux/FFmpegImageDecoder.h"
#include "SceneCore/Picture/PixelSceneView.h"
#include "SceneCore/Runtime/ManualRunLoop.h"
#include "tests/support/FixtureKit.h"
#include "tests/support/LogCapture.h"
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
    int clears = 0;

    Size boundsSize() const override { return bounds; }
    double backingScale() const override { return scale; }
    void setArtwork(std::shared_ptr<const Image> image, PixelRect rect, Magnification m) override
    {
        artwork = std::move(image);
        frame = rect;
        magnification = m;
    }
    void setMargins(std::vector<MarginBar> b) override { bars = std::move(b); }
    void clear() override
    {
        artwork.reset();
        bars.clear();
        ++clears;
    }
};

class PixelSceneViewTest : public ::testing::Test {
protected:
    ManualRunLoop loop;
    testing::ManualSerialQueue* queue = nullptr;
    std::unique_ptr<PosterStore> posters;
    RecordingSurface surface;
    testing::TempDir dir;

    void SetUp() override
    {
        auto owned = std::make_unique<testing::ManualSerialQueue>(PosterStore::queueLabel);
        queue = owned.get();
        posters = std::make_unique<PosterStore>(loop, std::move(owned), std::make_shared<FFmpegImageDecoder>());
    }

    WorldPackage world(const std::string& id, std::optional<std::string> poster = "poster.png", bool pixelArt = true,
                       std::optional<std::string> matte = std::nullopt, WorldManifest::Scaling scaling = WorldManifest::Scaling::aspectFill)
    {
        WorldManifest m;
        m.id = id;
        m.name = id;
        m.visual.file = "loop.mp4";
        m.visual.poster = poster;
        m.visual.pixelArt = pixelArt;
        m.visual.matte = matte;
        m.visual.scaling = scaling;
        auto root = dir / (id + ".hushmeadow");
        if (poster)
            testing::copyFile(testing::poster(640, 360), root / *poster);
        return WorldPackage(root, m, {});
    }

    void decode()
    {
        queue->runAll();
        loop.runPending();
    }
};

TEST_F(PixelSceneViewTest, FillsTheViewAtAWholeScaleWithNearestSampling)
{
    PixelSceneView view(surface, *posters);
    surface.bounds = {1920, 1080};
    view.load(world("calm"));
    view.play();
    EXPECT_EQ(surface.artwork, nullptr);
    decode();
    ASSERT_NE(surface.artwork, nullptr);
    EXPECT_EQ(surface.artwork->width, 640);
    EXPECT_EQ(surface.frame, (PixelRect{0, 0, 1920, 1080}));
    EXPECT_EQ(surface.magnification, Magnification::nearest);
    EXPECT_TRUE(surface.bars.empty());
    EXPECT_EQ(view.framesDisplayed(), 1);
    EXPECT_TRUE(view.isPlaying());
    ASSERT_TRUE(view.lastLayout());
    EXPECT_DOUBLE_EQ(view.lastLayout()->scale, 3.0);
}

TEST_F(PixelSceneViewTest, WholeSceneLeavesMarginsDressedWithTheEdges)
{
    PixelSceneView view(surface, *posters);
    surface.bounds = {1300, 760};
    view.setFillsView(false);
    view.load(world("calm", "poster.png", true, std::nullopt, WorldManifest::Scaling::aspectFit));
    decode();
    // 2× snaps from 2.03: 1280 × 720 with the larger half of the spare pixels left and top.
    EXPECT_EQ(surface.frame, (PixelRect{10, 20, 1280, 720}));
    // Four edge bars, then the four corners.
    ASSERT_EQ(surface.bars.size(), 8u);
    const MarginBar& left = surface.bars[0];
    EXPECT_EQ(left.rect, (PixelRect{0, 20, 10, 720}));
    EXPECT_EQ(left.fill, MarginBar::Fill::strip);
    EXPECT_TRUE(left.stripIsVertical);
    EXPECT_EQ(left.spanStart, 20);
    EXPECT_EQ(left.spanLength, 720);
    ASSERT_NE(left.strip, nullptr);
    EXPECT_EQ(left.strip->height, 360);
    EXPECT_EQ(surface.bars[1].rect, (PixelRect{1290, 20, 10, 720}));
    const MarginBar& top = surface.bars[2];
    EXPECT_EQ(top.rect, (PixelRect{10, 0, 1280, 20}));
    EXPECT_FALSE(top.stripIsVertical);
    EXPECT_EQ(top.spanStart, 10);
    EXPECT_EQ(top.spanLength, 1280);
    EXPECT_EQ(top.strip->width, 640);
    EXPECT_EQ(surface.bars[3].rect, (PixelRect{10, 740, 1280, 20}));
    EXPECT_EQ(surface.bars[4].rect, (PixelRect{0, 0, 10, 20}));
    EXPECT_EQ(surface.bars[4].fill, MarginBar::Fill::color);
    EXPECT_EQ(surface.bars[7].rect, (PixelRect{1290, 740, 10, 20}));

    // Turning pixel-perfect off lays the picture out again at once, at the
    // exact fit scale 2.03125, with the odd spare pixel going to the top.
    view.setPixelPerfect(false);
    EXPECT_EQ(surface.frame, (PixelRect{0, 15, 1300, 731}));
}

TEST_F(PixelSceneViewTest, MatteColoursEveryBarAndSmoothArtIsFilteredLinearly)
{
    PixelSceneView view(surface, *posters);
    surface.bounds = {1300, 760};
    view.setFillsView(false);
    view.load(world("lake", "poster.png", false, "#1A2B3C", WorldManifest::Scaling::aspectFit));
    decode();
    EXPECT_EQ(surface.magnification, Magnification::linear);
    ASSERT_FALSE(surface.bars.empty());
    for (const auto& bar : surface.bars) {
        EXPECT_EQ(bar.fill, MarginBar::Fill::color);
        EXPECT_EQ(bar.color, (ColorRGB8{0x1A, 0x2B, 0x3C}));
    }
}

TEST_F(PixelSceneViewTest, MarginBarsAroundACroppedOrFittedPicture)
{
    WorldManifest::Visual plain;
    // A picture wider than the view overhangs on both sides: only top and bottom bars.
    auto bars = PixelSceneView::marginBars({-50, 100, 1400, 500}, {1300, 760}, plain, nullptr);
    ASSERT_EQ(bars.size(), 2u);
    EXPECT_EQ(bars[0].rect, (PixelRect{0, 0, 1300, 100}));
    EXPECT_EQ(bars[1].rect, (PixelRect{0, 600, 1300, 160}));
    // No strips (no poster): black bars.
    EXPECT_EQ(bars[0].fill, MarginBar::Fill::color);
    EXPECT_EQ(bars[0].color, (ColorRGB8{0, 0, 0}));

    WorldManifest::Visual autoMatte;
    autoMatte.matte = "auto";
    auto entry = std::make_shared<PosterStore::Entry>();
    entry->image = Image::blank(10, 10, PixelFormat::rgba8);
    for (std::size_t i = 0; i < entry->image.pixels.size(); i += 4) {
        entry->image.pixels[i] = 200;
        entry->image.pixels[i + 3] = 255;
    }
    entry->strips = EdgeStrips::make(entry->image, 3);
    bars = PixelSceneView::marginBars({10, 0, 100, 100}, {120, 100}, autoMatte, entry);
    ASSERT_EQ(bars.size(), 2u);
    for (const auto& bar : bars)
        EXPECT_EQ(bar.color, (ColorRGB8{200, 0, 0}));
}

TEST_F(PixelSceneViewTest, NoPosterIsSaidAndStaleDecodesAreIgnored)
{
    testing::LogCapture log;
    PixelSceneView view(surface, *posters);
    view.load(world("bare", std::nullopt));
    EXPECT_THAT(log.lines("picture"), ::testing::ElementsAre("World bare has no poster; the picture stays black until its video plays"));
    EXPECT_EQ(surface.artwork, nullptr);

    // A world replaced before its poster arrives never shows it.
    view.load(world("first"));
    view.load(world("second", "other.png"));
    queue->runAll();
    loop.runPending();
    ASSERT_NE(surface.artwork, nullptr);
    EXPECT_EQ(view.framesDisplayed(), 1);

    view.tearDown();
    EXPECT_EQ(surface.artwork, nullptr);
    EXPECT_FALSE(view.isPlaying());

    // A decode that completes after teardown changes nothing.
    view.load(world("third", "third.png"));
    view.tearDown();
    decode();
    EXPECT_EQ(surface.artwork, nullptr);
}

TEST_F(PixelSceneViewTest, BackingScaleCountsDevicePixels)
{
    PixelSceneView view(surface, *posters);
    surface.bounds = {960, 540};
    surface.scale = 2;
    view.load(world("calm"));
    decode();
    EXPECT_EQ(surface.frame, (PixelRect{0, 0, 1920, 1080}));
}

} // namespace
} // namespace hushmeadows
