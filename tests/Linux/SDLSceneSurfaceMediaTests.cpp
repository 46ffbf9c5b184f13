#include "Platforms/Linux/SDLSceneSurface.h"
#include "tests/support/FixtureKit.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <set>
#include <string>

namespace hushmeadows {
namespace {

// Offscreen surfaces: SDL_CreateRGBSurfaceWithFormat needs no video driver.
using OwnedSurface = std::unique_ptr<SDL_Surface, decltype(&SDL_FreeSurface)>;
OwnedSurface offscreen(int width, int height, Uint32 format = SDL_PIXELFORMAT_XRGB8888)
{
    return {SDL_CreateRGBSurfaceWithFormat(0, width, height, 32, format), &SDL_FreeSurface};
}

// A pixel of a 16- or 32-bit surface, read through its format (on a little-endian host).
ColorRGB8 colorAt(const SDL_Surface* surface, int x, int y)
{
    Uint32 value = 0;
    std::memcpy(&value, static_cast<const std::uint8_t*>(surface->pixels) + y * surface->pitch + x * surface->format->BytesPerPixel,
                surface->format->BytesPerPixel);
    ColorRGB8 color;
    SDL_GetRGB(value, surface->format, &color.red, &color.green, &color.blue);
    return color;
}

// Every pixel of the surface against the expectation, as the surface's format
// can hold it; stops at the first few differences so a failure stays readable.
void expectPixels(SDL_Surface* surface, const std::function<ColorRGB8(int, int)>& expected)
{
    int wrong = 0;
    for (int y = 0; y < surface->h && wrong < 5; ++y)
        for (int x = 0; x < surface->w && wrong < 5; ++x) {
            const ColorRGB8 e = expected(x, y);
            ColorRGB8 want;
            SDL_GetRGB(SDL_MapRGB(surface->format, e.red, e.green, e.blue), surface->format, &want.red, &want.green, &want.blue);
            const ColorRGB8 have = colorAt(surface, x, y);
            if (have != want && ++wrong)
                ADD_FAILURE() << "pixel " << x << "," << y << " is " << int(have.red) << "/" << int(have.green) << "/" << int(have.blue)
                              << ", expected " << int(want.red) << "/" << int(want.green) << "/" << int(want.blue);
        }
}

class WholeScaleTargets : public ::testing::TestWithParam<Uint32> {};

// The window's own format, the opposite byte order (the BGRA artwork is
// converted) and a 16-bit surface (drawn on a canvas and converted by SDL).
INSTANTIATE_TEST_SUITE_P(SDLSceneSurface, WholeScaleTargets,
                         ::testing::Values(SDL_PIXELFORMAT_XRGB8888, SDL_PIXELFORMAT_RGBA32, SDL_PIXELFORMAT_RGB565),
                         [](const auto& info) { return std::string(SDL_GetPixelFormatName(info.param) + 16); });

TEST_P(WholeScaleTargets, NearestWholeScaleGivesBlocksCroppedAtTheEdgeOverBlack)
{
    const OwnedSurface target = offscreen(14, 12, GetParam());
    ASSERT_NE(target, nullptr) << SDL_GetError();
    SDLSceneSurface surface(target.get());
    EXPECT_EQ(surface.boundsSize(), (Size{14, 12}));

    auto poster = std::make_shared<Image>(testing::posterImage(5, 3, PixelFormat::bgra8));
    // One half-transparent pixel shows over black.
    poster->row(1)[2 * 4 + 3] = 128;
    // Scale 3, hanging one pixel off the left edge.
    const PixelRect frame{-1, 2, 15, 9};
    surface.setArtwork(poster, frame, Magnification::nearest);
    ASSERT_TRUE(surface.render());

    const Image reference = testing::posterImage(5, 3, PixelFormat::rgba8);
    expectPixels(target.get(), [&](int x, int y) -> ColorRGB8 {
        if (x < frame.x || x >= frame.x + frame.width || y < frame.y || y >= frame.y + frame.height)
            return {};
        const int sx = (x - frame.x) / 3, sy = (y - frame.y) / 3;
        const std::uint8_t* p = reference.row(sy) + static_cast<std::size_t>(sx) * 4;
        const auto half = [&](int i) { return static_cast<std::uint8_t>(sx == 2 && sy == 1 ? (p[i] * 128 + 127) / 255 : p[i]); };
        return {half(0), half(1), half(2)};
    });
}

TEST(SDLSceneSurface, LinearMagnificationBlendsBetweenNeighbours)
{
    const OwnedSurface target = offscreen(10, 4);
    SDLSceneSurface surface(target.get());
    // Black on the left, white on the right, both opaque.
    auto image = std::make_shared<Image>(Image::blank(2, 2, PixelFormat::bgra8));
    for (int y = 0; y < 2; ++y) {
        std::memcpy(image->row(y), "\0\0\0\xff\xff\xff\xff\xff", 8);
    }
    surface.setArtwork(image, {0, 0, 10, 4}, Magnification::linear);
    ASSERT_TRUE(surface.render());
    for (int y = 0; y < 4; ++y) {
        std::set<int> levels;
        for (int x = 0; x < 10; ++x) {
            const ColorRGB8 color = colorAt(target.get(), x, y);
            EXPECT_EQ(color.red, color.blue);
            EXPECT_GE(color.red, x ? colorAt(target.get(), x - 1, y).red : 0) << "row " << y << " column " << x;
            levels.insert(color.red);
        }
        EXPECT_LT(*levels.begin(), 40);
        EXPECT_GT(*levels.rbegin(), 215);
        EXPECT_GE(levels.size(), 5u) << "row " << y << " is not blended";
    }
}

// Only the changed rectangles are magnified when the picture is drawn by a
// whole scale with nearest sampling; any other picture is drawn whole, and
// parts of several frames add up until the next render.
TEST(SDLSceneSurface, PartialUpdatesDrawOnlyTheChangedPartsOfWholeNearestPictures)
{
    struct Case {
        const char* name;
        PixelRect frame;
        Magnification magnification;
        long long drawn; // device pixels drawn for the two updates
    };
    const Case cases[] = {
        {"whole nearest", {0, 0, 80, 48}, Magnification::nearest, 32 * 32 + 32 * 16},
        {"cropped at the left", {-8, 0, 80, 48}, Magnification::nearest, 24 * 32 + 32 * 16},
        {"fractional", {0, 0, 70, 42}, Magnification::nearest, 70 * 42},
        {"linear", {0, 0, 80, 48}, Magnification::linear, 80 * 48},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const OwnedSurface target = offscreen(80, 48), reference = offscreen(80, 48);
        SDLSceneSurface surface(target.get()), whole(reference.get());
        auto first = std::make_shared<Image>(testing::posterImage(20, 12, PixelFormat::bgra8));
        surface.setArtwork(first, c.frame, c.magnification);
        ASSERT_TRUE(surface.render());
        const long long before = surface.pixelsDrawn();

        // Two frames, each changing one pixel in a different tile.
        auto second = std::make_shared<Image>(*first);
        second->row(1)[1 * 4] ^= 0xff;
        auto third = std::make_shared<Image>(*second);
        third->row(9)[10 * 4 + 1] ^= 0xff;
        surface.updateArtwork(second, {{0, 0, 8, 8}});
        surface.updateArtwork(third, {{8, 8, 8, 4}});
        ASSERT_TRUE(surface.render());
        EXPECT_EQ(surface.pixelsDrawn() - before, c.drawn);
        EXPECT_FALSE(surface.render()) << "nothing changed since";

        // What shows equals the last picture drawn whole.
        whole.setArtwork(third, c.frame, c.magnification);
        ASSERT_TRUE(whole.render());
        expectPixels(target.get(), [&](int x, int y) { return colorAt(reference.get(), x, y); });
    }
}

} // namespace
} // namespace hushmeadows
