#include "SceneCore/Picture/SceneLayout.h"

#include <gtest/gtest.h>

#include <limits>

namespace hushmeadows {
namespace {

using Scaling = WorldManifest::Scaling;
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

// Content and bounds in device pixels at backing scale 1, centred focus,
// safe area 0.8 × 0.8, always filling, the safe area not protected.
SceneLayout::Input input(Size content, Size bounds, Scaling scaling = Scaling::aspectFill, bool pixelPerfect = true)
{
    return {content, bounds, 1, scaling, {0.5, 0.5}, {0.8, 0.8}, pixelPerfect, true, false};
}

SceneLayout::Result result(double x, double y, double w, double h, double scale) { return {Rect{{x, y}, {w, h}}, scale}; }

TEST(SceneLayout, WholeScalesAreTakenOnlyWithinTheirTolerance)
{
    struct Case {
        const char* what;
        SceneLayout::Input in;
        SceneLayout::Result expected;
    };
    const Case cases[] = {
        {"cover, fill exactly 3", input({640, 360}, {1920, 1080}), result(0, 0, 1920, 1080, 3)},
        {"cover, 4 is 28 % over 3.125", input({640, 360}, {2000, 1125}), result(0, 0, 2000, 1125, 3.125)},
        {"cover, 3 is 3.4 % over 2.9", input({100, 100}, {290, 290}), result(-5, -5, 300, 300, 3)},
        {"cover, no snap below 1", input({100, 100}, {97, 97}), result(0, 0, 97, 97, 0.97)},
        {"cover, not pixel-perfect", input({100, 100}, {290, 290}, Scaling::aspectFill, false), result(0, 0, 290, 290, 2.9)},
        {"fit, 2 is 98.5 % of 2.03", input({640, 360}, {1300, 760}, Scaling::aspectFit), result(10, 20, 1280, 720, 2)},
        {"fit, 1 is 95 % of 1.05", input({640, 360}, {672, 378}, Scaling::aspectFit), result(16, 9, 640, 360, 1)},
        {"fit, 2 is 89 % of 2.25", input({100, 100}, {225, 300}, Scaling::aspectFit), result(0, 37, 225, 225, 2.25)},
        {"fit, no snap below 1", input({640, 360}, {512, 288}, Scaling::aspectFit), result(0, 0, 512, 288, 0.8)},
        {"fit, not pixel-perfect", input({640, 360}, {1300, 760}, Scaling::aspectFit, false), result(0, 14, 1300, 731, 2.03125)},
    };
    for (const auto& c : cases)
        EXPECT_EQ(SceneLayout::compute(c.in), c.expected) << c.what;

    // Points at backing scale 2 are half the device pixels.
    auto in = input({640, 360}, {960, 540});
    in.backingScale = 2;
    EXPECT_EQ(SceneLayout::compute(in), result(0, 0, 960, 540, 3));
}

TEST(SceneLayout, ProtectedSafeAreaMovesFramingOneStepMoreCautious)
{
    // 500 × 250 into 1000 × 1000: fit 2, fill 4, the safe area allows 2.5. The
    // bounded 2.5 stays fractional despite pixel-perfect, rounding down.
    const auto fit = result(0, 250, 1000, 500, 2);
    const auto cover = result(-500, 0, 2000, 1000, 4);
    const auto bounded = result(-125, 187, 1250, 625, 2.5);
    struct Case {
        Scaling scaling;
        bool alwaysFill, protects;
        SceneLayout::Result expected;
    };
    for (const Case& c : {Case{Scaling::aspectFill, true, false, cover}, Case{Scaling::aspectFill, true, true, bounded},
                          Case{Scaling::aspectFill, false, false, bounded}, Case{Scaling::aspectFill, false, true, fit},
                          Case{Scaling::aspectFit, true, false, fit}, Case{Scaling::aspectFit, false, true, fit}}) {
        auto in = input({500, 250}, {1000, 1000}, c.scaling);
        in.alwaysFill = c.alwaysFill;
        in.protectsSafeArea = c.protects;
        EXPECT_EQ(SceneLayout::compute(in), c.expected) << c.alwaysFill << c.protects << (c.scaling == Scaling::aspectFit);
    }
}

TEST(SceneLayout, FocusIsCentredButNeverUncoversTheView)
{
    // 200 pixels to spare horizontally, then vertically. Focus y counts from
    // the top, the frame's y from the bottom.
    for (auto [focus, x] : {std::pair{0.0, 0.0}, {0.25, 0.0}, {0.5, -100.0}, {0.6, -140.0}, {1.0, -200.0}}) {
        auto in = input({400, 100}, {200, 100});
        in.focus = {focus, 0.5};
        EXPECT_EQ(SceneLayout::compute(in), result(x, 0, 400, 100, 1)) << "focus x " << focus;
    }
    for (auto [focus, y] : {std::pair{0.0, -200.0}, {0.25, -200.0}, {0.6, -60.0}, {0.75, 0.0}, {1.0, 0.0}}) {
        auto in = input({100, 400}, {100, 200});
        in.focus = {0.5, focus};
        EXPECT_EQ(SceneLayout::compute(in), result(0, y, 100, 400, 1)) << "focus y " << focus;
    }
}

TEST(SceneLayout, DegenerateSizesGiveTheZeroResult)
{
    for (Size content : {Size{0, 360}, {640, 0}, {-640, 360}, {nan, 360}})
        EXPECT_EQ(SceneLayout::compute(input(content, {1920, 1080})), SceneLayout::Result{}) << content.width << " × " << content.height;
    for (Size bounds : {Size{0, 0}, {1920, 0}, {-1, 1080}, {1920, nan}})
        EXPECT_EQ(SceneLayout::compute(input({640, 360}, bounds)), SceneLayout::Result{});
}

} // namespace
} // namespace hushmeadows
