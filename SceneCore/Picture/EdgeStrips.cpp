#include "SceneCore/Picture/EdgeStrips.h"

#include "SceneCore/Runtime/Precondition.h"

#include <algorithm>
#include <array>
#include <limits>
#include <vector>

namespace hushmeadows {

namespace {

enum class Along { height, width };

struct Band {
    int x, y, width, height;
};

using Sum = std::array<double, 3>;

bool hasPixelsFor(const Image& image)
{
    if (image.isEmpty() || image.bytesPerRow < static_cast<std::size_t>(image.width) * 4)
        return false;
    const std::size_t needed = image.bytesPerRow * static_cast<std::size_t>(image.height - 1) + static_cast<std::size_t>(image.width) * 4;
    return image.pixels.size() >= needed;
}

// Red, green and blue of one pixel as it shows over black.
std::array<int, 3> opaqueRGB(const std::uint8_t* pixel, PixelFormat format)
{
    const int alpha = pixel[3];
    int red = format == PixelFormat::rgba8 ? pixel[0] : pixel[2];
    int green = pixel[1];
    int blue = format == PixelFormat::rgba8 ? pixel[2] : pixel[0];
    if (alpha != 255) {
        red = (red * alpha + 127) / 255;
        green = (green * alpha + 127) / 255;
        blue = (blue * alpha + 127) / 255;
    }
    return {red, green, blue};
}

std::optional<Image> makeStrip(const Image& source, Band band, Along along)
{
    if (band.width <= 0 || band.height <= 0 || band.x < 0 || band.y < 0 || band.x > source.width - band.width
        || band.y > source.height - band.height)
        return std::nullopt;

    const int length = along == Along::height ? band.height : band.width;
    const int depth = along == Along::height ? band.width : band.height;

    // prefix[i] = sum of the band's mean colour over positions 0 ..< i.
    std::vector<Sum> prefix(static_cast<std::size_t>(length) + 1, Sum{0, 0, 0});
    for (int i = 0; i < length; ++i) {
        Sum across{0, 0, 0};
        for (int k = 0; k < depth; ++k) {
            const int x = band.x + (along == Along::height ? k : i);
            const int y = band.y + (along == Along::height ? i : k);
            const auto rgb = opaqueRGB(source.row(y) + static_cast<std::size_t>(x) * 4, source.format);
            for (int c = 0; c < 3; ++c)
                across[static_cast<std::size_t>(c)] += rgb[static_cast<std::size_t>(c)];
        }
        const auto at = static_cast<std::size_t>(i);
        for (std::size_t c = 0; c < 3; ++c)
            prefix[at + 1][c] = prefix[at][c] + across[c] / depth;
    }

    // A box of 2r + 1 positions, cut short at the ends rather than padded; the
    // box widens by one pixel per 200 pixels of length.
    const int radius = length >= 200 ? length / 200 : 1;
    Image strip = along == Along::height ? Image::blank(1, length, PixelFormat::rgba8) : Image::blank(length, 1, PixelFormat::rgba8);
    std::uint8_t* out = strip.pixels.data();
    for (int i = 0; i < length; ++i) {
        const auto lo = static_cast<std::size_t>(std::max(i - radius, 0));
        const auto hi = static_cast<std::size_t>(std::min(i + radius + 1, length));
        const double span = static_cast<double>(hi - lo);
        for (std::size_t c = 0; c < 3; ++c) {
            const double mean = (prefix[hi][c] - prefix[lo][c]) / span;
            // Truncation toward zero, as the byte conversion does.
            const double value = std::clamp(static_cast<double>(static_cast<long long>(mean)), 0.0, 255.0);
            *out++ = static_cast<std::uint8_t>(value);
        }
        *out++ = 255;
    }
    return strip;
}

EdgeStrips::Components averageOf(const std::array<const Image*, 4>& strips)
{
    double red = 0, green = 0, blue = 0;
    std::size_t count = 0;
    for (const Image* strip : strips) {
        const std::size_t pixels = strip->pixels.size() / 4;
        const std::uint8_t* p = strip->pixels.data();
        for (std::size_t i = 0; i < pixels; ++i, p += 4) {
            red += p[0];
            green += p[1];
            blue += p[2];
        }
        count += pixels;
    }
    if (count == 0)
        return {};
    const double n = static_cast<double>(count);
    return {red / n / 255.0, green / n / 255.0, blue / n / 255.0};
}

} // namespace

std::optional<EdgeStrips> EdgeStrips::make(const Image& image, std::int64_t depth)
{
    constexpr auto int64Max = std::numeric_limits<std::int64_t>::max();
    constexpr auto int64Min = std::numeric_limits<std::int64_t>::min();
    HM_PRECONDITION(depth <= int64Max / 2 && depth >= int64Min / 2, "edge band depth overflows when doubled");
    if (2 * depth >= image.width || 2 * depth >= image.height)
        return std::nullopt;
    if (depth <= 0 || !hasPixelsFor(image))
        return std::nullopt;

    const int w = image.width;
    const int h = image.height;
    const int d = static_cast<int>(depth); // below width / 2, so it fits
    auto left = makeStrip(image, {0, 0, d, h}, Along::height);
    auto right = makeStrip(image, {w - d, 0, d, h}, Along::height);
    auto top = makeStrip(image, {0, 0, w, d}, Along::width);
    auto bottom = makeStrip(image, {0, h - d, w, d}, Along::width);
    if (!left || !right || !top || !bottom)
        return std::nullopt;

    EdgeStrips strips;
    strips.left = std::move(*left);
    strips.right = std::move(*right);
    strips.top = std::move(*top);
    strips.bottom = std::move(*bottom);
    strips.averageComponents = averageOf({&strips.left, &strips.right, &strips.top, &strips.bottom});
    return strips;
}

} // namespace hushmeadows
