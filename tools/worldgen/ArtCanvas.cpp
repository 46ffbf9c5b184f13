#include "tools/worldgen/ArtCanvas.h"

#include <algorithm>
#include <cmath>

namespace hushmeadows::worldgen {

Rgb Rgb::mixedWith(Rgb other, double amount) const
{
    auto mix = [amount](std::uint8_t a, std::uint8_t b) {
        return static_cast<std::uint8_t>(std::lround(a + (b - a) * amount));
    };
    return {mix(r, other.r), mix(g, other.g), mix(b, other.b)};
}

ArtCanvas::ArtCanvas()
    : pixels_(static_cast<std::size_t>(width * height))
{
}

void ArtCanvas::set(int x, int y, Rgb colour)
{
    if (x < 0 || y < 0 || x >= width || y >= height)
        return;
    pixels_[static_cast<std::size_t>(y * width + x)] = colour;
}

void ArtCanvas::fillRect(int x, int y, int w, int h, Rgb colour)
{
    for (int row = y; row < y + h; ++row)
        for (int column = x; column < x + w; ++column)
            set(column, row, colour);
}

void ArtCanvas::fillDisc(double cx, double cy, double radius, Rgb colour)
{
    int top = static_cast<int>(std::floor(cy - radius));
    int bottom = static_cast<int>(std::ceil(cy + radius));
    int left = static_cast<int>(std::floor(cx - radius));
    int right = static_cast<int>(std::ceil(cx + radius));
    for (int y = top; y <= bottom; ++y) {
        for (int x = left; x <= right; ++x) {
            double dx = x + 0.5 - cx;
            double dy = y + 0.5 - cy;
            if (dx * dx + dy * dy <= radius * radius)
                set(x, y, colour);
        }
    }
}

std::vector<std::uint8_t> ArtCanvas::upscaled(int factor) const
{
    const std::size_t rowBytes = static_cast<std::size_t>(width * factor * 3);
    std::vector<std::uint8_t> bytes(rowBytes * static_cast<std::size_t>(height * factor));
    for (int y = 0; y < height; ++y) {
        std::uint8_t* row = bytes.data() + static_cast<std::size_t>(y * factor) * rowBytes;
        std::uint8_t* out = row;
        for (int x = 0; x < width; ++x) {
            Rgb colour = at(x, y);
            for (int i = 0; i < factor; ++i) {
                *out++ = colour.r;
                *out++ = colour.g;
                *out++ = colour.b;
            }
        }
        for (int i = 1; i < factor; ++i)
            std::copy(row, row + rowBytes, row + static_cast<std::size_t>(i) * rowBytes);
    }
    return bytes;
}

} // namespace hushmeadows::worldgen
