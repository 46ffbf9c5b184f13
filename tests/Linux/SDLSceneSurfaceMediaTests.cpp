#include "Platforms/Linux/SDLSceneSurface.h"
#include "tests/support/FixtureKit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <set>
#include <string>

namespace hushmeadows {
namespace {

// Offscreen surfaces: SDL_CreateRGBSurfaceWithFormat needs no video driver.
struct OwnedSurface {
    SDL_Surface* surface;
    OwnedSurface(int width, int height, Uint32 format) : surface(SDL_CreateRGBSurfaceWithFormat(0, width, height, 32, format)) {}
    ~OwnedSurface() { SDL_FreeSurface(surface); }
    OwnedSurface(const OwnedSurface&) = delete;
    OwnedSurface& operator=(const OwnedSurface&) = delete;
};

ColorRGB8 colorAt(const SDL_Surface* surface, int x, int y)
{
    const auto* at = static_cast<const std::uint8_t*>(surface->pixels) + static_cast<std::size_t>(y) * static_cast<std::size_t>(surface->pitch)
        + static_cast<std::size_t>(x) * surface->format->BytesPerPixel;
    Uint32 value = 0;
    if (surface->format->BytesPerPixel == 2) {
        Uint16 narrow;
        std::memcpy(&narrow, at, 2);
        value = narrow;
    } else {
        std::memcpy(&value, at, 4);
    }
    ColorRGB8 color;
    SDL_GetRGB(value, surface->format, &color.red, &color.green, &color.blue);
    return color;
}

// The colour as the surface's format can hold it.
ColorRGB8 asStored(const SDL_Surface* surface, ColorRGB8 color)
{
    ColorRGB8 stored;
    SDL_GetRGB(SDL_MapRGB(surface->format, color.red, color.green, color.blue), surface->format, &stored.red, &stored.green, &stored.blue);
    return stored;
}

std::string text(ColorRGB8 color)
{
    char buffer[8];
    std::snprintf(buffer, sizeof buffer, "#%02x%02x%02x", color.red, color.green, color.blue);
    return buffer;
}

ColorRGB8 pixelOf(const Image& image, int x, int y)
{
    const std::uint8_t* p = image.row(y) + static_cast<std::size_t>(x) * 4;
    if (image.format == PixelFormat::rgba8)
        return {p[0], p[1], p[2]};
    return {p[2], p[1], p[0]};
}

// Every pixel of the surface against the expectation; stops at the first
// few differences so a failure stays readable.
void expectPixels(const SDL_Surface* surface, const std::function<ColorRGB8(int, int)>& expected)
{
    int wrong = 0;
    for (int y = 0; y < surface->h && wrong < 5; ++y)
        for (int x = 0; x < surface->w && wrong < 5; ++x) {
            std::string want = text(asStored(surface, expected(x, y)));
            std::string got = text(colorAt(surface, x, y));
            if (want != got) {
                ++wrong;
                ADD_FAILURE() << "pixel " << x << "," << y << " is " << got << ", expected " << want;
            }
        }
}

Image stripImage(std::vector<ColorRGB8> colors, bool vertical)
{
    const int length = static_cast<int>(colors.size());
    Image strip = vertical ? Image::blank(1, length, PixelFormat::rgba8) : Image::blank(length, 1, PixelFormat::rgba8);
    for (int i = 0; i < length; ++i) {
        std::uint8_t* p = strip.pixels.data() + static_cast<std::size_t>(i) * 4;
        p[0] = colors[static_cast<std::size_t>(i)].red;
        p[1] = colors[static_cast<std::size_t>(i)].green;
        p[2] = colors[static_cast<std::size_t>(i)].blue;
        p[3] = 255;
    }
    return strip;
}

class WholeScaleTargets : public ::testing::TestWithParam<Uint32> {};

// The window's own format, the opposite byte order (the BGRA artwork is
// converted) and a 16-bit surface (drawn on a canvas and converted by SDL).
INSTANTIATE_TEST_SUITE_P(SDLSceneSurface, WholeScaleTargets,
                         ::testing::Values(SDL_PIXELFORMAT_XRGB8888, SDL_PIXELFORMAT_RGBA32, SDL_PIXELFORMAT_RGB565),
                         [](const auto& info) { return std::string(SDL_GetPixelFormatName(info.param) + 16); });

TEST_P(WholeScaleTargets, NearestWholeScaleGivesBlocksCroppedAtTheEdgeOverBlack)
{
    OwnedSurface target(14, 12, GetParam());
    ASSERT_NE(target.surface, nullptr) << SDL_GetError();
    SDLSceneSurface surface(target.surface);
    EXPECT_EQ(surface.boundsSize(), (Size{14, 12}));
    EXPECT_EQ(surface.backingScale(), 1.0);

    auto poster = std::make_shared<Image>(testing::posterImage(5, 3, PixelFormat::bgra8));
    // One half-transparent pixel shows over black.
    poster->row(1)[2 * 4 + 3] = 128;
    // Scale 3, hanging one pixel off the left edge.
    const PixelRect frame{-1, 2, 15, 9};
    surface.setArtwork(poster, frame, Magnification::nearest);
    ASSERT_TRUE(surface.render());

    const Image reference = testing::posterImage(5, 3, PixelFormat::rgba8);
    expectPixels(target.surface, [&](int x, int y) -> ColorRGB8 {
        if (x < frame.x || x >= frame.x + frame.width || y < frame.y || y >= frame.y + frame.height)
            return {};
        const int sx = (x - frame.x) / 3, sy = (y - frame.y) / 3;
        ColorRGB8 color = pixelOf(reference, sx, sy);
        if (sx == 2 && sy == 1)
            color = {static_cast<std::uint8_t>((color.red * 128 + 127) / 255), static_cast<std::uint8_t>((color.green * 128 + 127) / 255),
                     static_cast<std::uint8_t>((color.blue * 128 + 127) / 255)};
        return color;
    });
}

TEST(SDLSceneSurface, StripBarsMapRowsAndColumnsToStripPixelsAndColourBarsFill)
{
    OwnedSurface target(20, 10, SDL_PIXELFORMAT_XRGB8888);
    SDLSceneSurface surface(target.surface);
    const ColorRGB8 red{200, 0, 0}, green{0, 200, 0}, blue{0, 0, 200}, grey{90, 90, 90};
    const ColorRGB8 c0{10, 20, 30}, c1{40, 50, 60}, c2{70, 80, 90}, c3{100, 110, 120};

    MarginBar left; // rows 2 … 7 show the three strip pixels two rows each
    left.rect = {0, 2, 4, 6};
    left.fill = MarginBar::Fill::strip;
    left.strip = std::make_shared<Image>(stripImage({red, green, blue}, true));
    left.spanStart = 2;
    left.spanLength = 6;

    MarginBar right = left; // a span that begins above the view, as a cropped picture's does
    right.rect = {16, 0, 4, 8};
    right.strip = std::make_shared<Image>(stripImage({c0, c1, c2, c3}, true));
    right.spanStart = -4;
    right.spanLength = 12;

    MarginBar top; // columns 4 … 15 across a four-pixel strip
    top.rect = {4, 0, 12, 2};
    top.fill = MarginBar::Fill::strip;
    top.strip = std::make_shared<Image>(stripImage({c0, c1, c2, c3}, false));
    top.stripIsVertical = false;
    top.spanStart = 4;
    top.spanLength = 12;

    MarginBar corner;
    corner.rect = {16, 8, 10, 10}; // reaches past the view: clipped
    corner.color = grey;

    surface.setMargins({left, right, top, corner});
    ASSERT_TRUE(surface.render());
    const std::vector<ColorRGB8> sides{red, green, blue};
    const std::vector<ColorRGB8> steps{c0, c1, c2, c3};
    expectPixels(target.surface, [&](int x, int y) -> ColorRGB8 {
        if (x < 4 && y >= 2 && y < 8)
            return sides[static_cast<std::size_t>((y - 2) * 3 / 6)];
        if (x >= 16 && y < 8)
            return steps[static_cast<std::size_t>((y + 4) * 4 / 12)];
        if (x >= 4 && x < 16 && y < 2)
            return steps[static_cast<std::size_t>((x - 4) * 4 / 12)];
        if (x >= 16 && y >= 8)
            return grey;
        return {};
    });

    // Nothing changed: nothing is drawn. The same bars again are no change.
    EXPECT_FALSE(surface.render());
    surface.setMargins({left, right, top, corner});
    EXPECT_FALSE(surface.needsRender());

    surface.clear();
    ASSERT_TRUE(surface.render());
    expectPixels(target.surface, [](int, int) { return ColorRGB8{}; });
}

TEST(SDLSceneSurface, FractionalNearestKeepsEverySourcePixelInOrderInRunsOfTwoOrThree)
{
    OwnedSurface target(12, 7, SDL_PIXELFORMAT_XRGB8888);
    SDLSceneSurface surface(target.surface);
    auto poster = std::make_shared<const Image>(testing::posterImage(4, 2, PixelFormat::bgra8));
    const PixelRect frame{1, 1, 10, 5}; // 2.5 across and down
    surface.setArtwork(poster, frame, Magnification::nearest);
    ASSERT_TRUE(surface.render());

    auto runsOf = [](const std::vector<ColorRGB8>& line) {
        std::vector<std::pair<ColorRGB8, int>> runs;
        for (const auto& color : line) {
            if (runs.empty() || !(runs.back().first == color))
                runs.emplace_back(color, 0);
            ++runs.back().second;
        }
        return runs;
    };
    for (int y = frame.y; y < frame.y + frame.height; ++y) {
        std::vector<ColorRGB8> line;
        for (int x = frame.x; x < frame.x + frame.width; ++x)
            line.push_back(colorAt(target.surface, x, y));
        auto runs = runsOf(line);
        ASSERT_EQ(runs.size(), 4u) << "row " << y;
        const int sy = runs[0].first == pixelOf(*poster, 0, 0) ? 0 : 1;
        for (int sx = 0; sx < 4; ++sx) {
            EXPECT_EQ(text(runs[static_cast<std::size_t>(sx)].first), text(pixelOf(*poster, sx, sy))) << "row " << y;
            EXPECT_TRUE(runs[static_cast<std::size_t>(sx)].second == 2 || runs[static_cast<std::size_t>(sx)].second == 3) << "row " << y;
        }
    }
    std::vector<ColorRGB8> column;
    for (int y = frame.y; y < frame.y + frame.height; ++y)
        column.push_back(colorAt(target.surface, frame.x, y));
    auto runs = runsOf(column);
    ASSERT_EQ(runs.size(), 2u);
    EXPECT_EQ(text(runs[0].first), text(pixelOf(*poster, 0, 0)));
    EXPECT_EQ(text(runs[1].first), text(pixelOf(*poster, 0, 1)));
    // Outside the frame: black.
    for (int x = 0; x < 12; ++x) {
        EXPECT_EQ(text(colorAt(target.surface, x, 0)), "#000000");
        EXPECT_EQ(text(colorAt(target.surface, x, 6)), "#000000");
    }
    EXPECT_EQ(text(colorAt(target.surface, 0, 3)), "#000000");
    EXPECT_EQ(text(colorAt(target.surface, 11, 3)), "#000000");
}

TEST(SDLSceneSurface, LinearMagnificationBlendsBetweenNeighbours)
{
    OwnedSurface target(10, 4, SDL_PIXELFORMAT_XRGB8888);
    SDLSceneSurface surface(target.surface);
    auto image = std::make_shared<Image>(Image::blank(2, 2, PixelFormat::bgra8));
    for (int y = 0; y < 2; ++y) {
        std::memset(image->row(y), 0, 4);
        std::memset(image->row(y) + 4, 255, 4);
        image->row(y)[3] = 255;
    }
    surface.setArtwork(image, {0, 0, 10, 4}, Magnification::linear);
    ASSERT_TRUE(surface.render());
    for (int y = 0; y < 4; ++y) {
        int previous = -1;
        std::set<int> levels;
        for (int x = 0; x < 10; ++x) {
            const ColorRGB8 color = colorAt(target.surface, x, y);
            EXPECT_EQ(color.red, color.blue);
            EXPECT_GE(color.red, previous) << "row " << y << " column " << x;
            previous = color.red;
            levels.insert(color.red);
        }
        EXPECT_LT(colorAt(target.surface, 0, y).red, 40);
        EXPECT_GT(colorAt(target.surface, 9, y).red, 215);
        EXPECT_GE(levels.size(), 5u) << "row " << y << " is not blended";
    }
}

// A picture hanging over the edges must show exactly the part of it that
// would be there if the surface were larger: rendered once whole into a big
// surface and once cropped into a small one, the two agree wherever they
// overlap, to within the rounding of where a fractional block or sample
// lands (under one pixel).
class CroppedStretch : public ::testing::TestWithParam<Magnification> {};

INSTANTIATE_TEST_SUITE_P(SDLSceneSurface, CroppedStretch, ::testing::Values(Magnification::nearest, Magnification::linear),
                         [](const auto& info) { return std::string(info.param == Magnification::nearest ? "nearest" : "linear"); });

TEST_P(CroppedStretch, CroppedPictureLinesUpWithTheWholeOne)
{
    const bool nearest = GetParam() == Magnification::nearest;
    // Nearest: every pixel distinct. Linear: a smooth ramp, which bilinear
    // sampling reproduces without overshoot, so a shifted sample lies within
    // the range of the samples around it.
    auto poster = std::make_shared<Image>(testing::posterImage(9, 7, PixelFormat::bgra8));
    if (!nearest)
        for (int y = 0; y < 7; ++y)
            for (int x = 0; x < 9; ++x) {
                std::uint8_t* p = poster->row(y) + static_cast<std::size_t>(x) * 4;
                p[2] = static_cast<std::uint8_t>(x * 30);
                p[1] = static_cast<std::uint8_t>(y * 35);
                p[0] = static_cast<std::uint8_t>((x + y) * 12);
            }
    const int dx = 12, dy = 9;
    OwnedSurface whole(40, 30, SDL_PIXELFORMAT_XRGB8888);
    SDLSceneSurface big(whole.surface);
    big.setArtwork(poster, {5, 4, 25, 19}, GetParam()); // 2.78 × 2.71
    ASSERT_TRUE(big.render());
    OwnedSurface part(14, 10, SDL_PIXELFORMAT_XRGB8888);
    SDLSceneSurface small(part.surface);
    small.setArtwork(poster, {5 - dx, 4 - dy, 25, 19}, GetParam()); // cut off on the left, top and right
    ASSERT_TRUE(small.render());

    static constexpr std::array<std::pair<int, int>, 9> around{
        {{0, 0}, {-1, 0}, {1, 0}, {0, -1}, {0, 1}, {-1, -1}, {1, 1}, {-1, 1}, {1, -1}}};
    int exact = 0;
    for (int y = 0; y < 10; ++y)
        for (int x = 0; x < 14; ++x) {
            const ColorRGB8 got = colorAt(part.surface, x, y);
            const ColorRGB8 same = colorAt(whole.surface, x + dx, y + dy);
            if (got == same) {
                ++exact;
                continue;
            }
            bool explained = false;
            if (nearest) {
                for (auto [nx, ny] : around)
                    explained = explained || got == colorAt(whole.surface, x + dx + nx, y + dy + ny);
            } else {
                std::array<int, 3> low{255, 255, 255}, high{0, 0, 0};
                for (auto [nx, ny] : around) {
                    const ColorRGB8 c = colorAt(whole.surface, x + dx + nx, y + dy + ny);
                    const std::array<int, 3> v{c.red, c.green, c.blue};
                    for (std::size_t i = 0; i < 3; ++i) {
                        low[i] = std::min(low[i], v[i]);
                        high[i] = std::max(high[i], v[i]);
                    }
                }
                const std::array<int, 3> g{got.red, got.green, got.blue};
                explained = true;
                for (std::size_t i = 0; i < 3; ++i)
                    explained = explained && g[i] >= low[i] - 1 && g[i] <= high[i] + 1;
            }
            EXPECT_TRUE(explained) << "pixel " << x << "," << y << " is " << text(got) << ", the whole picture has " << text(same);
        }
    // Rounding only moves nearest blocks where they meet: most pixels agree.
    if (nearest) {
        EXPECT_GE(exact, 14 * 10 * 2 / 3);
    }
}

} // namespace
} // namespace hushmeadows
