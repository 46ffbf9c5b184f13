#pragma once

#include <cstdint>
#include <vector>

namespace hushmeadows::worldgen {

struct Rgb {
    std::uint8_t r = 0;
    std::uint8_t g = 0;
    std::uint8_t b = 0;

    static constexpr Rgb hex(std::uint32_t value)
    {
        return {static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
    }
    bool operator==(const Rgb&) const = default;

    // The colour a fraction `amount` of the way towards `other`.
    Rgb mixedWith(Rgb other, double amount) const;
};

// The picture at art resolution: flat colours, no blending, nothing drawn
// outside the frame.
class ArtCanvas {
public:
    static constexpr int width = 320;
    static constexpr int height = 180;

    ArtCanvas();

    Rgb at(int x, int y) const { return pixels_[static_cast<std::size_t>(y * width + x)]; }
    void set(int x, int y, Rgb colour);
    void fillRect(int x, int y, int w, int h, Rgb colour);
    // Every pixel whose centre lies within `radius` of (cx, cy).
    void fillDisc(double cx, double cy, double radius, Rgb colour);

    // RGB24 bytes with every art pixel as a factor × factor block, so that
    // 4:2:0 chroma (one sample per 2 × 2 block) never straddles two colours.
    std::vector<std::uint8_t> upscaled(int factor) const;

    bool operator==(const ArtCanvas&) const = default;

private:
    std::vector<Rgb> pixels_;
};

} // namespace hushmeadows::worldgen
