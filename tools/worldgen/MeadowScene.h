#pragma once

#include "tools/worldgen/ArtCanvas.h"

#include <array>
#include <vector>

namespace hushmeadows::worldgen {

enum class TimeOfDay { day, night };

// The meadow as pixel art: sky bands, hills with a cabin, a meadow of swaying
// grass, and by day the sun, pollen and birds, by night the moon, stars and
// fireflies. Every moving thing completes whole cycles over `loopFrames`, so
// frame `loopFrames` is frame 0 again and the video loops without a seam.
// Day and night share one layout; only the palette and the sky life differ.
class MeadowScene {
public:
    MeadowScene(TimeOfDay timeOfDay, int loopFrames);

    // Any frame number; the picture repeats every `loopFrames` frames.
    void render(int frame, ArtCanvas& canvas) const;

    struct Palette {
        std::array<Rgb, 6> sky;
        Rgb halo;
        Rgb sunOrMoon;
        Rgb sunOrMoonShade;
        Rgb cloudRim, cloud, cloudShade;
        Rgb farHill, farHillRim, farTree;
        Rgb nearHill, nearHillRim, nearHillShade;
        Rgb treeDark, treeLight, trunk;
        Rgb wall, wallShade, roof, roofShade, door, window, chimney;
        Rgb smoke;
        std::array<Rgb, 3> meadow;
        Rgb meadowRim;
        std::array<Rgb, 3> flowers;
        Rgb bladeDark, bladeLight, bladeTip;
        Rgb foregroundDark, foregroundLight;
        Rgb moteBright, moteDim, moteGlow;
        Rgb star, starDim;
        Rgb bird;
    };

private:
    struct Puff {
        double dx, dy, radius;
    };
    struct Cloud {
        double x, y, drift, phase;
        std::vector<Puff> puffs;
    };
    struct Tree {
        int x;
        double radius;
        int trunk;
    };
    struct Flower {
        int x, y, colour;
        bool large;
    };
    struct Blade {
        int dx, height, lean;
    };
    struct Tuft {
        int x, y;
        double amplitude, phase;
        std::vector<Blade> blades;
    };
    struct Mote {
        double x, y, dx, dy, offset, wobblePhase, blinkPhase;
        int wobbleCycles, blinkCycles;
    };
    struct Star {
        int x, y, cycles;
        double phase;
        bool twinkles, large;
    };

    void drawSky(ArtCanvas& canvas, double t) const;
    void drawClouds(ArtCanvas& canvas, double t) const;
    void drawLand(ArtCanvas& canvas) const;
    void drawCabin(ArtCanvas& canvas, double t) const;
    void drawMeadow(ArtCanvas& canvas, double t) const;
    void drawBlade(ArtCanvas& canvas, int x, int y, const Blade& blade, double sway, Rgb dark, Rgb light, Rgb tip) const;
    void drawMotes(ArtCanvas& canvas, double t) const;
    void drawBirds(ArtCanvas& canvas, double t) const;
    double wind(double t, double x) const;

    TimeOfDay timeOfDay_;
    int loopFrames_;
    Palette palette_;
    std::array<int, ArtCanvas::width> farTop_{};
    std::array<int, ArtCanvas::width> nearTop_{};
    std::array<int, ArtCanvas::width> meadowTop_{};
    std::vector<Cloud> clouds_;
    std::vector<int> farTrees_;
    std::vector<Tree> trees_;
    std::vector<Flower> flowers_;
    std::vector<Tuft> tufts_;
    std::vector<Tuft> foreground_;
    std::vector<Mote> motes_;
    std::vector<Star> stars_;
    int cabinX_ = 0;
    int cabinBase_ = 0;
};

} // namespace hushmeadows::worldgen
